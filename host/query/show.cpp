#include "host/query/show.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "host/console/listing.h"
#include "host/console/suggestion.h"
#include "host/console/text.h"
#include "host/query/retry.h"
#include "host/query/servers.h"
#include "host/sections.h"
#include "host/usage_error.h"
#include "inventory/catalog/views.h"
#include "inventory/inventory.h"
#include "inventory/names.h"
#include "os/spool.h"

namespace host {
namespace {

using inventory::Cell;
using Collections = std::vector<inventory::CollectionInfo>;
using inventory::ObjectKind;
using Strings = std::vector<std::string>;

constexpr const char* kNotKnownColumn = "Not known";
constexpr std::size_t kRowsByTable = inventory::ownColumn("Collections", "Rows by table");

// The rows of one table, read completely before the first one is printed, so that a slow consumer of the
// output does not block publications.
struct CapturedTable {
  std::string name;
  std::vector<Listing::Column> columns;
  os::Spool rows;
};

// A table or a view.
struct Relation {
  std::string name;
  const inventory::Table* table = nullptr;  // null for a view

  bool isData() const { return table != nullptr && table->kinds[0] != inventory::ObjectKind::kNone; }
};

std::vector<Relation> relations() {
  std::vector<Relation> all;
  for (const inventory::Table& table : inventory::tables()) all.push_back({std::string(table.name), &table});
  all.push_back({std::string(inventory::collectionsTable().name), &inventory::collectionsTable()});
  all.push_back({std::string(inventory::problemsTable().name), &inventory::problemsTable()});
  for (const inventory::DictionaryEntry& entry : inventory::dictionary()) {
    if (entry.isView && all.back().name != entry.relation) all.push_back({std::string(entry.relation)});
  }
  return all;
}

std::optional<double> parseNumber(std::string_view text) {
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  // "nan" and "inf" are texts.
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(number)) return std::nullopt;
  return number;
}

// Orders numbers by value and before texts, texts ignoring case.
bool isLess(const std::string& left, const std::string& right) {
  const auto one = parseNumber(left), other = parseNumber(right);
  if (one && other) return *one < *other;
  if (one || other) return one.has_value();
  return inventory::folded(left) < inventory::folded(right);
}

// Reads the rows and columns of a relation that the options select.
class TableReader {
 public:
  TableReader(const ShowOptions& options, const Relation& relation) : options_(options), relation_(relation) {
    readColumns();
    for (const std::string& wanted : options.columns) shownColumns_.push_back(findColumn(wanted));
    if (shownColumns_.empty()) {
      for (std::size_t at = 0; at < columns_.size(); ++at) shownColumns_.push_back(at);
    }
    for (const Condition& condition : options.conditions)
      conditions_.emplace_back(findColumn(condition.column), &condition);
    if (!options.sort.empty()) sortColumn_ = findColumn(options.sort);
    cells_.resize(columns_.size());
    isUnknown_.resize(columns_.size());
  }

  void read(inventory::Reader& reader, const Collections& collections, CapturedTable& captured) {
    captured.name = relation_.name;
    for (const std::size_t at : shownColumns_) captured.columns.push_back(listingColumn(columns_[at]));
    if (hasUnknownColumn()) captured.columns.push_back({kNotKnownColumn});
    std::vector<std::pair<std::string, std::vector<std::optional<std::string>>>> sorted;
    forEachRow(reader, collections, [&] {
      if (!matchesConditions()) return;
      if (!sortColumn_) return captured.rows.add(shownCells());
      std::vector<std::optional<std::string>> kept;
      for (const Cell& cell : shownCells()) kept.emplace_back(cell);
      sorted.emplace_back(text(*sortColumn_), std::move(kept));
    });
    std::ranges::stable_sort(sorted, [&](const auto& left, const auto& right) {
      return options_.isReversed ? isLess(right.first, left.first) : isLess(left.first, right.first);
    });
    for (const auto& [key, row] : sorted) captured.rows.add(std::vector<Cell>(row.begin(), row.end()));
  }

 private:
  struct Column {
    std::string name;
    inventory::Type type = inventory::Type::kText;
    std::size_t index = 0;  // in the table or in the query
  };

  void readColumns() {
    if (relation_.table != nullptr) {
      const auto columns = relation_.table->columns;
      for (std::size_t at = 0; at < columns.size(); ++at) {
        if (columns[at].role != inventory::Role::kBookkeeping)
          columns_.push_back({std::string(columns[at].name), columns[at].type, at});
      }
      return;
    }
    for (const inventory::DictionaryEntry& entry : inventory::dictionary()) {
      if (entry.isView && entry.relation == relation_.name && !entry.isBookkeeping)
        columns_.push_back({std::string(entry.column), entry.type, columns_.size()});
    }
  }

  Listing::Column listingColumn(const Column& column) const {
    const bool isNumber = column.type == inventory::Type::kInteger || column.type == inventory::Type::kReal;
    return {column.name, isNumber, column.type == inventory::Type::kBoolean || isRowsByTable(column), false,
            column.name == "Message" || column.name == "message"};
  }

  bool isRowsByTable(const Column& column) const {
    return relation_.table == &inventory::collectionsTable() && column.index == kRowsByTable;
  }

  // Returns the index of a column. Throws UsageError for an unknown one.
  std::size_t findColumn(const std::string& wanted) const {
    Strings names;
    for (const Column& column : columns_) {
      if (inventory::sameName(column.name, wanted))
        return static_cast<std::size_t>(&column - columns_.data());
      names.push_back(column.name);
    }
    std::string all;
    for (const std::string& name : names) all += (all.empty() ? " " : ", ") + name;
    const std::string suggestion = didYouMean(wanted, names);
    throw UsageError("no column '" + wanted + "' in " + relation_.name +
                     (suggestion.empty() ? "; columns:" + all : suggestion));
  }

  // Whether the output has a last column with the names of the columns whose values are unknown.
  bool hasUnknownColumn() const { return options_.format != Format::kTable && relation_.isData(); }

  // Returns the query for a view. Its order does not depend on the database: by server and object, then by
  // the columns from left to right.
  std::string viewQuery() const {
    std::string sql;
    for (const Column& column : columns_)
      sql += (sql.empty() ? "select " : ", ") + inventory::quotedName(column.name);
    const std::string next = relation_.name == "collection" ? "collection_id" : "object_id";
    sql += " from " + inventory::quotedName(relation_.name) + " order by server, " + next + " nulls first";
    for (std::size_t at = 0; at < columns_.size(); ++at)
      sql += ", " + std::to_string(at + 1) + " nulls first";
    return sql;
  }

  // Stores each row in cells_ and isUnknown_, and calls `handle`.
  template <typename Handle>
  void forEachRow(inventory::Reader& reader, const Collections& collections, const Handle& handle) {
    if (relation_.table != nullptr) {
      reader.forEachRow(*relation_.table, collections, [&](const inventory::TableRow& row) {
        for (std::size_t at = 0; at < columns_.size(); ++at) {
          cells_[at] = row.cell(columns_[at].index);
          if (isRowsByTable(columns_[at])) cells_[at] = rowsByTable_ = toJson(row.collection().rowsByTable);
          isUnknown_[at] = relation_.isData() && row.isUnknown(columns_[at].index);
        }
        handle();
      });
      return;
    }
    Collections sorted = collections;
    std::ranges::sort(sorted, {}, &inventory::CollectionInfo::server);
    reader.inViews(sorted, [&](inventory::Session& session, auto, const std::string& selected) {
      const auto row = session.query(inventory::withViews(session.dialect(), selected, viewQuery()));
      while (row->next()) {
        for (std::size_t at = 0; at < columns_.size(); ++at) {
          cells_[at] = row->cell(at);
          if (cells_[at] && columns_[at].type == inventory::Type::kBoolean)
            cells_[at] = *cells_[at] == "1" ? "true" : "false";
        }
        handle();
      }
    });
  }

  // Returns the non-zero row counts by table as a JSON object.
  static std::string toJson(const inventory::RowCounts& counts) {
    nlohmann::json object = nlohmann::json::object();
    for (std::size_t at = 0; at < counts.size(); ++at) {
      if (counts[at] > 0) object[std::string(inventory::tables()[at].name)] = counts[at];
    }
    return object.dump();
  }

  // Returns a cell's text for conditions and sorting.
  std::string_view text(std::size_t column) const {
    return isUnknown_[column] ? kNotKnownText : cells_[column].value_or("");
  }

  bool matchesConditions() const {
    return std::ranges::all_of(conditions_, [&](const auto& pair) {
      const std::string_view value = text(pair.first);
      switch (pair.second->kind) {
        case Condition::Kind::kIs:
          return inventory::sameName(value, pair.second->text);
        case Condition::Kind::kIsNot:
          return !inventory::sameName(value, pair.second->text);
        case Condition::Kind::kContains:
          break;
      }
      return inventory::folded(value).find(inventory::folded(pair.second->text)) != std::string::npos;
    });
  }

  // Returns the cells to print; valid until the next call.
  const std::vector<Cell>& shownCells() {
    out_.clear();
    for (const std::size_t at : shownColumns_) {
      const bool isHidden = isUnknown_[at] && options_.format == Format::kTable;
      out_.push_back(isHidden ? Cell(kNotKnownText) : cells_[at]);
    }
    if (hasUnknownColumn()) {
      unknownNames_.clear();
      for (std::size_t at = 0; at < columns_.size(); ++at) {
        if (isUnknown_[at]) unknownNames_ += (unknownNames_.empty() ? "" : "; ") + columns_[at].name;
      }
      out_.emplace_back(unknownNames_);
    }
    return out_;
  }

  const ShowOptions& options_;
  const Relation& relation_;
  std::vector<Column> columns_;
  std::vector<std::size_t> shownColumns_;
  std::vector<std::pair<std::size_t, const Condition*>> conditions_;
  std::optional<std::size_t> sortColumn_;
  std::vector<Cell> cells_;
  std::vector<bool> isUnknown_;
  std::vector<Cell> out_;
  std::string unknownNames_;
  std::string rowsByTable_;
};

// Returns the relations of the given names, each once. The name of a tab selects all its tables. Throws
// UsageError for an unknown name.
std::vector<Relation> findRelations(const Strings& names) {
  const std::vector<Relation> all = relations();
  std::vector<Relation> found;
  const auto add = [&](std::string_view name) {
    const auto relation =
        std::ranges::find_if(all, [&](const Relation& each) { return inventory::sameName(each.name, name); });
    if (relation == all.end()) return false;
    if (std::ranges::find(found, relation->name, &Relation::name) == found.end()) found.push_back(*relation);
    return true;
  };
  for (const std::string& name : names) {
    if (add(name)) continue;
    bool isTab = false;
    for (const Section& section : sections()) {
      if (!inventory::sameName(section.name, name)) continue;
      isTab = true;
      for (const std::string_view table : section.tables) add(table);
    }
    if (isTab) continue;
    Strings known;
    std::string list;
    for (const Relation& relation : all) {
      known.push_back(relation.name);
      list += (list.empty() ? " " : ", ") + relation.name;
    }
    for (const Section& section : sections()) known.emplace_back(section.name);
    const std::string suggestion = didYouMean(name, known);
    throw UsageError("no table '" + name + "'" + (suggestion.empty() ? "; tables:" + list : suggestion));
  }
  return found;
}

// Returns the list of the tables with their row counts.
CapturedTable listTables(const Collections& collections) {
  std::vector<std::int64_t> counts(inventory::tables().size());
  std::int64_t problems = 0;
  for (const inventory::CollectionInfo& collection : collections) {
    problems += collection.problems + collection.notes;
    for (std::size_t at = 0; at < counts.size(); ++at) counts[at] += collection.rowsByTable[at];
  }
  CapturedTable captured;
  captured.columns = {{"Table"}, {"Rows", true}};
  const auto add = [&](std::string_view name, std::int64_t count) {
    const std::string text = std::to_string(count);
    captured.rows.add(std::vector<Cell>{name, text});
  };
  for (std::size_t at = 0; at < counts.size(); ++at) add(inventory::tables()[at].name, counts[at]);
  add(inventory::collectionsTable().name, static_cast<std::int64_t>(collections.size()));
  add(inventory::problemsTable().name, problems);
  return captured;
}

// Prints the servers for which a table was not collected, or only partly.
void reportNotCollected(const Relation& relation, const Collections& collections) {
  constexpr std::size_t kMaxNames = 20;
  if (relation.table == nullptr || relation.table->kinds[0] == ObjectKind::kNone) return;
  inventory::Coverage complete;
  for (const ObjectKind kind : relation.table->kinds) complete.add(*relation.table, kind);
  Strings names;
  for (const inventory::CollectionInfo& collection : collections) {
    if (!collection.coverage.covers(complete))
      names.push_back(collection.server + " (collected with " + collection.selection + ")");
  }
  if (!names.empty())
    printError(relation.name + ": not collected, or only partly, for " + joinNames(names, kMaxNames));
}

std::vector<CapturedTable> capture(const ShowOptions& options) {
  if (options.tables.empty() &&
      (!options.columns.empty() || !options.conditions.empty() || !options.sort.empty())) {
    throw UsageError("--columns, --where and --sort need a table");
  }
  const std::vector<Relation> named = findRelations(options.tables);
  if (named.size() > 1 && options.format == Format::kCsv) {
    std::string all;
    for (const Relation& relation : named) all += (all.empty() ? "" : ", ") + relation.name;
    throw UsageError("csv prints one table at a time; selected: " + all);
  }
  const auto inventory = inventory::openForReading(options.database, options.access);
  inventory::Reader reader = inventory->read(reportSuccessor);
  const Collections collections = chosenServers(reader, options.servers, options.at);
  std::vector<CapturedTable> tables;
  if (named.empty()) tables.push_back(listTables(collections));
  for (const Relation& relation : named)
    TableReader(options, relation).read(reader, collections, tables.emplace_back());
  for (const Relation& relation : named) reportNotCollected(relation, collections);
  return tables;
}

}  // namespace

void show(const ShowOptions& options, Output& output) {
  std::vector<CapturedTable> tables = retryOnDisconnect([&] { return capture(options); });
  const bool hasSeveral = tables.size() > 1;
  for (CapturedTable& table : tables) {
    const bool isFirst = &table == &tables.front();
    Listing listing{table.columns, {}};
    listing.forEachRow = [&table](const std::function<void(const Row&)>& each) {
      table.rows.forEach(table.columns.size(), each);
    };
    // Several tables are printed below each other, or as members of one JSON object.
    if (hasSeveral && options.format == Format::kTable) {
      output.write((isFirst ? "" : "\n") + table.name + "\n\n");
    } else if (hasSeveral) {
      output.write((isFirst ? "{\"" : ",\"") + table.name + "\": ");
    }
    print(listing, {options.format, true, options.isWide, options.vertical, options.writeBom}, output);
  }
  if (hasSeveral && options.format == Format::kJson) output.write("}\n");
  output.flush();
}

}  // namespace host
