// The command "schema".

#include <algorithm>

#include "host/cli/command_options.h"
#include "host/console/listing.h"
#include "host/console/suggestion.h"
#include "inventory/names.h"

namespace host {
namespace {

using Entries = std::vector<inventory::DictionaryEntry>;

constexpr const char* kFooter =
    "Without TABLE, all tables and views. 'Null' says what null means in a column,\n"
    "and 'Properties' which metabase properties its values come from.\n"
    "\n"
    "Examples:\n"
    "  iisinventory schema ftp_site\n"
    "  iisinventory schema --format markdown > tables.md";

struct Raw {
  std::string table;
  std::string format = "table";
};

Entries entriesOf(const std::string& table) {
  Entries all = inventory::dictionary();
  if (table.empty()) return all;
  Entries found;
  std::vector<std::string> names;
  for (const inventory::DictionaryEntry& entry : all) {
    if (inventory::sameName(entry.relation, table)) found.push_back(entry);
    if (names.empty() || names.back() != entry.relation) names.emplace_back(entry.relation);
  }
  if (found.empty()) throw UsageError("no table or view '" + table + "'" + didYouMean(table, names));
  return found;
}

std::string kindOf(const inventory::DictionaryEntry& entry) {
  return entry.isView ? "view" : "table";
}

void printTables(const Entries& entries, Output& output) {
  for (auto first = entries.begin(); first != entries.end();) {
    const auto end = std::find_if(first, entries.end(), [&](const inventory::DictionaryEntry& entry) {
      return entry.relation != first->relation;
    });
    output.write((first == entries.begin() ? "" : "\n") + std::string(first->relation) + " (" +
                 kindOf(*first) + "): " + std::string(first->relationMeaning) + "\n\n");
    Listing listing{{{"Column"}, {"Type"}, {"Meaning"}, {"Null"}, {"Properties"}}, {}};
    listing.forEachRow = [&](const std::function<void(const Row&)>& each) {
      for (auto entry = first; entry != end; ++entry) {
        each({std::string(entry->column), std::string(inventory::wordFor(entry->type)),
              std::string(entry->meaning), entry->nullMeaning, std::string(entry->properties)});
      }
    };
    print(listing, {Format::kTable}, output);
    first = end;
  }
}

void printJson(const Entries& entries, Output& output) {
  Listing listing{
      {{"Table"}, {"Kind"}, {"Table meaning"}, {"Column"}, {"Type"}, {"Meaning"}, {"Null"}, {"Properties"}},
      {}};
  listing.forEachRow = [&](const std::function<void(const Row&)>& each) {
    for (const inventory::DictionaryEntry& entry : entries) {
      each({std::string(entry.relation), kindOf(entry), std::string(entry.relationMeaning),
            std::string(entry.column), std::string(inventory::wordFor(entry.type)),
            std::string(entry.meaning), entry.nullMeaning, std::string(entry.properties)});
    }
  };
  print(listing, {Format::kJson}, output);
}

}  // namespace

void addSchemaCommand(Program& program, CommandAction& action) {
  const auto raw = std::make_shared<Raw>();
  Command command = program.add("schema", "Describe the tables and views of a database");
  command.argument("TABLE", raw->table, "Table or view to describe", Presence::kOptional);
  command.choice("-f,--format", raw->format, {"table", "json", "markdown"}, "FORMAT",
                 "table, json or markdown (default: table)");
  command.footer(kFooter);
  command.onParsed([raw, &action] {
    action = [entries = entriesOf(raw->table), format = raw->format](Output& output) {
      if (inventory::sameName(format, "json")) {
        printJson(entries, output);
      } else if (inventory::sameName(format, "markdown")) {
        output.write(inventory::dictionaryPage(entries));
      } else {
        printTables(entries, output);
      }
      output.flush();
      return 0;
    };
  });
}

}  // namespace host
