#include "host/query/show.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/console/listing.h"
#include "host/console/output_files.h"
#include "host/console/text.h"
#include "host/console/workbook.h"
#include "host/query/relation.h"
#include "host/query/retry.h"
#include "host/query/servers.h"
#include "host/query/table_reader.h"
#include "host/usage_error.h"
#include "inventory/catalog/views.h"
#include "inventory/inventory.h"

namespace host {
namespace {

using Collections = std::vector<inventory::CollectionInfo>;
using Strings = std::vector<std::string>;

// Returns the list of the tables, with their row counts, and the views.
CapturedTable listRelations(const Collections& collections) {
  std::vector<std::int64_t> counts(inventory::tables().size());
  std::int64_t problems = 0;
  for (const inventory::CollectionInfo& collection : collections) {
    problems += collection.problems + collection.notes;
    for (std::size_t at = 0; at < counts.size(); ++at) counts[at] += collection.rowsByTable[at];
  }
  counts.insert(counts.end(), {std::ssize(collections), problems});
  const std::vector<Relation> all = relations();
  CapturedTable captured;
  captured.columns = {{"Table"}, {"Rows", true}};
  for (std::size_t at = 0; at < all.size(); ++at) {
    const std::string count = at < counts.size() ? std::to_string(counts[at]) : "";
    captured.add({all[at].name, count.empty() ? inventory::Cell() : inventory::Cell(count)});
  }
  return captured;
}

// Prints the servers for which a table was not collected, or only partly.
void reportNotCollected(const Relation& relation, const Collections& collections) {
  constexpr std::size_t kMaxNames = 20;
  inventory::Coverage complete;
  if (relation.isData()) {
    for (const inventory::ObjectKind kind : relation.table->kinds) complete.add(*relation.table, kind);
  } else if (relation.isView()) {
    for (const auto& [table, kind] : inventory::sourcesOf(relation.name, "")) complete.add(*table, kind);
  } else {
    return;
  }
  Strings names;
  for (const inventory::CollectionInfo& collection : collections) {
    if (!collection.coverage.covers(complete))
      names.push_back(collection.server + " (collected with " + collection.selection + ")");
  }
  if (!names.empty())
    printError(
        fmt::format("{}: not collected, or only partly, for {}", relation.name, joinNames(names, kMaxNames)));
}

// Returns the relations to show without TABLE; none for their list.
std::vector<Relation> defaultRelations(const ShowOptions& options) {
  std::vector<Relation> all;
  const bool isSearch = !options.search.empty();
  if (!isSearch && options.format != Format::kXlsx) return all;
  for (Relation& relation : relations()) {
    if (isSearch ? !relation.isView() : relation.isView()) all.push_back(std::move(relation));
  }
  return all;
}

std::vector<CapturedTable> capture(const ShowOptions& options) {
  const bool isNamed = !options.tables.empty();
  if (!isNamed && (!options.columns.empty() || !options.conditions.empty() || !options.sort.empty()))
    throw UsageError("--columns, --where and --sort need a table");
  const std::vector<Relation> chosen = isNamed ? findRelations(options.tables) : defaultRelations(options);
  const auto inventory = inventory::openForReading(options.database, options.access);
  inventory::Reader reader = inventory->read(reportSuccessor);
  const Collections collections = chosenServers(reader, options.servers, options.at);
  std::vector<CapturedTable> tables;
  if (chosen.empty()) tables.push_back(listRelations(collections));
  for (const Relation& relation : chosen) {
    CapturedTable table = TableReader(options, relation).read(reader, collections);
    if (isNamed || options.format == Format::kXlsx) reportNotCollected(relation, collections);
    if (isNamed || options.search.empty() || !table.isEmpty) tables.push_back(std::move(table));
  }
  return tables;
}

Listing listingOf(CapturedTable& table) {
  return {table.columns, [&table](const std::function<void(const Row&)>& each) {
            table.rows.forEach(table.columns.size(), each);
          }};
}

void requireOneTable(const std::vector<CapturedTable>& tables) {
  if (tables.size() < 2) return;
  Strings names;
  for (const CapturedTable& table : tables) names.push_back(table.name);
  throw UsageError("csv prints one table at a time; name one of: " + joinNames(names, names.size()));
}

void printTables(const ShowOptions& options, std::vector<CapturedTable>& tables, Output& output) {
  // Several tables are printed below each other, or as members of one JSON object. A search of all tables
  // always prints them so.
  const bool hasSeveral = tables.size() > 1 || (options.tables.empty() && !options.search.empty());
  const bool isJson = options.format == Format::kJson;
  if (options.format == Format::kCsv) requireOneTable(tables);
  if (hasSeveral && isJson) output.write("{");
  std::string_view separator;
  for (CapturedTable& table : tables) {
    if (hasSeveral && options.format != Format::kCsv)
      output.write(isJson ? fmt::format("{}\"{}\": ", separator, table.name)
                          : fmt::format("{}{}\n\n", separator, table.name));
    separator = isJson ? "," : "\n";
    print(listingOf(table), {options.format, true, options.isWide, options.vertical, options.forExcel},
          output);
  }
  if (hasSeveral && isJson) output.write("}\n");
}

}  // namespace

void show(const ShowOptions& options, Output& output) {
  std::vector<std::filesystem::path> paths;
  if (!options.output.empty()) paths.push_back(options.output);
  OutputFiles files(paths);
  Output& target = paths.empty() ? output : files[0];
  std::vector<CapturedTable> tables = retryOnDisconnect([&] { return capture(options); });
  if (!options.search.empty() && std::ranges::all_of(tables, &CapturedTable::isEmpty))
    printError(fmt::format("no row contains '{}'", options.search));
  if (options.format == Format::kXlsx) {
    std::vector<Sheet> sheets;
    for (CapturedTable& table : tables) sheets.push_back({table.name, listingOf(table)});
    writeWorkbook(sheets, target);
  } else {
    printTables(options, tables, target);
  }
  target.flush();
  files.finish();
}

}  // namespace host
