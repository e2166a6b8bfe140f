#include "host/query/table_reader.h"

#include <fmt/core.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>

#include "host/console/suggestion.h"
#include "host/usage_error.h"
#include "inventory/catalog/views.h"
#include "inventory/names.h"

namespace host {
namespace {

using inventory::Cell;
using Collections = std::vector<inventory::CollectionInfo>;
using inventory::Type;

constexpr const char* kFoundInColumn = "Found in";
constexpr const char* kNotKnownColumn = "Not known";
constexpr std::size_t kRowsByTable = inventory::ownColumn("Collections", "Rows by table");

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

bool contains(std::string_view text, std::string_view folded) {
  return inventory::folded(text).find(folded) != std::string::npos;
}

// One of the conditions "=" and "~" must be met, and each "!=".
bool meets(std::string_view value, const std::vector<const Condition*>& conditions) {
  bool hasAlternatives = false, isMet = false;
  for (const Condition* const condition : conditions) {
    if (condition->kind == Condition::Kind::kIsNot) {
      if (inventory::sameName(value, condition->text)) return false;
      continue;
    }
    hasAlternatives = true;
    isMet = isMet ||
            (condition->kind == Condition::Kind::kIs ? inventory::sameName(value, condition->text)
                                                     : contains(value, inventory::folded(condition->text)));
  }
  return isMet || !hasAlternatives;
}

// Returns the non-zero row counts by table as a JSON object.
std::string toJson(const inventory::RowCounts& counts) {
  nlohmann::json object = nlohmann::json::object();
  for (std::size_t at = 0; at < counts.size(); ++at) {
    if (counts[at] > 0) object[std::string(inventory::tables()[at].name)] = counts[at];
  }
  return object.dump();
}

}  // namespace

TableReader::TableReader(const ShowOptions& options, const Relation& relation)
    : options_(options), relation_(relation), search_(inventory::folded(options.search)) {
  readColumns();
  for (const std::string& wanted : options.columns) shownColumns_.push_back(findColumn(wanted));
  if (shownColumns_.empty()) {
    for (std::size_t at = 0; at < columns_.size(); ++at) shownColumns_.push_back(at);
  }
  for (const Condition& condition : options.conditions) {
    const std::size_t column = findColumn(condition.column);
    auto found = std::ranges::find(conditions_, column, &ColumnConditions::column);
    if (found == conditions_.end()) found = conditions_.insert(found, {column, {}});
    found->conditions.push_back(&condition);
  }
  cells_.resize(columns_.size());
  isUnknown_.resize(columns_.size());
}

CapturedTable TableReader::read(inventory::Reader& reader, const Collections& collections) {
  CapturedTable captured;
  captured.name = relation_.name;
  if (!search_.empty()) captured.columns.push_back({kFoundInColumn});
  for (const std::size_t at : shownColumns_) captured.columns.push_back(listingColumn(columns_[at]));
  if (hasUnknownColumn()) captured.columns.push_back({kNotKnownColumn});
  std::optional<std::size_t> sortColumn;
  if (!options_.sort.empty()) sortColumn = findColumn(options_.sort);
  std::vector<std::pair<std::string, std::vector<std::optional<std::string>>>> sorted;
  forEachRow(reader, collections, [&] {
    if (!matchesConditions() || !matchesSearch()) return;
    if (!sortColumn) return captured.add(shownCells());
    std::vector<std::optional<std::string>> kept;
    for (const Cell& cell : shownCells()) kept.emplace_back(cell);
    sorted.emplace_back(text(*sortColumn), std::move(kept));
  });
  std::ranges::stable_sort(sorted, [&](const auto& left, const auto& right) {
    return options_.isReversed ? isLess(right.first, left.first) : isLess(left.first, right.first);
  });
  for (const auto& [key, row] : sorted) captured.add(std::vector<Cell>(row.begin(), row.end()));
  return captured;
}

void TableReader::readColumns() {
  if (relation_.isView()) {
    for (const inventory::DictionaryEntry& entry : inventory::dictionary()) {
      if (entry.isView && entry.relation == relation_.name && !entry.isBookkeeping)
        columns_.push_back({entry.column, entry.type, entry.type, columns_.size()});
    }
    return;
  }
  const auto columns = relation_.table->columns;
  for (std::size_t at = 0; at < columns.size(); ++at) {
    const inventory::Column& column = columns[at];
    if (column.role == inventory::Role::kBookkeeping) continue;
    const Type cellType = column.type == Type::kText ? column.viewType : column.type;
    columns_.push_back({std::string(column.name), column.type, cellType, at});
  }
}

// Returns the index of a column. Throws UsageError for an unknown one.
std::size_t TableReader::findColumn(const std::string& wanted) const {
  std::vector<std::string> names;
  std::string all;
  for (const Column& column : columns_) {
    if (inventory::sameName(column.name, wanted)) return static_cast<std::size_t>(&column - columns_.data());
    names.push_back(column.name);
    all += (all.empty() ? "" : ", ") + column.name;
  }
  const std::string suggestion = didYouMean(wanted, names);
  throw UsageError(fmt::format("no column '{}' in {}{}", wanted, relation_.name,
                               suggestion.empty() ? "; columns: " + all : suggestion));
}

Listing::Column TableReader::listingColumn(const Column& column) const {
  const bool isNumber = column.type == Type::kInteger || column.type == Type::kReal;
  return {.name = column.name,
          .isNumber = isNumber,
          .isJson = column.type == Type::kBoolean || isRowsByTable(column),
          .isProblemCount = false,
          .cellType = column.cellType,
          .isMessage = inventory::sameName(column.name, "Message")};
}

bool TableReader::isRowsByTable(const Column& column) const {
  return relation_.table == &inventory::collectionsTable() && column.index == kRowsByTable;
}

// Whether the output has a last column with the names of the columns whose values are unknown.
bool TableReader::hasUnknownColumn() const {
  return options_.format != Format::kTable && relation_.isData();
}

// Returns the query for a view. Its order does not depend on the database: by server and object, then by the
// columns from left to right.
std::string TableReader::viewQuery() const {
  std::string names, order;
  for (std::size_t at = 0; at < columns_.size(); ++at) {
    names += (at == 0 ? "" : ", ") + inventory::quotedName(columns_[at].name);
    order += fmt::format(", {} nulls first", at + 1);
  }
  return fmt::format("select {} from {} order by server, {} nulls first{}", names,
                     inventory::quotedName(relation_.name),
                     relation_.name == "collection" ? "collection_id" : "object_id", order);
}

// Stores each row in cells_ and isUnknown_, and calls `handle`.
template <typename Handle>
void TableReader::forEachRow(inventory::Reader& reader, Collections collections, const Handle& handle) {
  if (!relation_.isView()) {
    return reader.forEachRow(*relation_.table, collections, [&](const inventory::TableRow& row) {
      for (std::size_t at = 0; at < columns_.size(); ++at) {
        cells_[at] = row.cell(columns_[at].index);
        if (isRowsByTable(columns_[at])) cells_[at] = rowsByTable_ = toJson(row.collection().rowsByTable);
        isUnknown_[at] = relation_.isData() && row.isUnknown(columns_[at].index);
      }
      handle();
    });
  }
  std::ranges::sort(collections, {}, &inventory::CollectionInfo::server);
  reader.inViews(collections, [&](inventory::Session& session, auto, const std::string& selected) {
    const auto row = session.query(inventory::withViews(session.dialect(), selected, viewQuery()));
    while (row->next()) {
      for (std::size_t at = 0; at < columns_.size(); ++at) {
        cells_[at] = row->cell(at);
        if (cells_[at] && columns_[at].type == Type::kBoolean)
          cells_[at] = *cells_[at] == "1" ? "true" : "false";
      }
      handle();
    }
  });
}

// Returns a cell's text for conditions and sorting.
std::string_view TableReader::text(std::size_t column) const {
  return isUnknown_[column] ? kNotKnownText : cells_[column].value_or("");
}

bool TableReader::matchesConditions() const {
  return std::ranges::all_of(
      conditions_, [&](const ColumnConditions& each) { return meets(text(each.column), each.conditions); });
}

// Whether a column contains the text to search for. Stores the names of these columns in foundIn_.
bool TableReader::matchesSearch() {
  if (search_.empty()) return true;
  foundIn_.clear();
  for (std::size_t at = 0; at < columns_.size(); ++at) {
    if (contains(text(at), search_)) foundIn_ += (foundIn_.empty() ? "" : "; ") + columns_[at].name;
  }
  return !foundIn_.empty();
}

// Returns the cells to print; valid until the next call.
const std::vector<Cell>& TableReader::shownCells() {
  out_.clear();
  if (!search_.empty()) out_.emplace_back(foundIn_);
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

}  // namespace host
