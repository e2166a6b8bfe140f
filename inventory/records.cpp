#include "inventory/records.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>
#include <numeric>
#include <set>
#include <utility>

#include "automation/text.h"

namespace inventory {
namespace {

using nlohmann::json;

// Whether a text is plain ASCII without a NUL, as nearly every one is, and so what every database takes:
// eight bytes at a time, none of which has its highest bit set, before or after 1 is taken from it.
bool isPlain(std::string_view text) {
  constexpr std::uint64_t kOnes = 0x0101010101010101, kHighest = 0x8080808080808080;
  for (; text.size() >= sizeof kOnes; text.remove_prefix(sizeof kOnes)) {
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, text.data(), sizeof bytes);
    if ((((bytes - kOnes) | bytes) & kHighest) != 0) return false;
  }
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<signed char>(c) > 0; });
}

// Made in place: a variant of the standard library's that is copied may not survive a lack of memory.
template <typename... Given>
std::vector<Value> valuesOf(const Given&... given) {
  std::vector<Value> values;
  values.reserve(sizeof...(given));
  (values.emplace_back(given), ...);
  return values;
}

}  // namespace

const Table& collectionsTable() {
  static const Table table{
      kCollections,
      {"Server name", "File", "File size", "File time", "SHA-256", "Started", "Published", "Version",
       "Selection", "Rows", "Rows by table", "Problems", "Notes", "Seconds"}};
  return table;
}

const Table& problemsTable() {
  static const Table table{kProblems,
                           {"Server name", "Kind", "Table", "Item kind", "Item", "Node", "Property",
                            "Routine", "Number", "Message", "Time"}};
  return table;
}

ColumnType columnType(std::string_view column) {
  if (column == "Seconds") return ColumnType::kReal;
  const bool isNumber = std::ranges::find(kNumberColumns, column) != std::end(kNumberColumns);
  return isNumber ? ColumnType::kInteger : ColumnType::kText;
}

std::vector<Value> collectionValues(const Result& result, const std::string& published,
                                    const RowCounts& added, std::size_t problems) {
  json byTable = json::object();
  for (std::size_t at = 0; at < added.size(); ++at) {
    if (added[at] > 0) byTable[std::string(tables()[at].name)] = added[at];
  }
  const auto notes = std::count_if(result.problems.begin(), result.problems.end(),
                                   [](const Problem& problem) { return problem.isNote; });
  const Origin& origin = result.origin;
  // A number of so few digits is the same text wherever it is kept.
  const double seconds = std::round(origin.seconds * 1000) / 1000;
  return valuesOf(origin.server, origin.file, origin.fileSize, origin.fileTime, origin.sha256, origin.started,
                  published, origin.version, origin.selection,
                  std::accumulate(added.begin(), added.end(), std::int64_t{0}), byTable.dump(),
                  static_cast<std::int64_t>(result.problems.size() + problems) - notes, std::int64_t{notes},
                  seconds);
}

std::vector<Value> problemValues(const std::string& server, const Problem& problem) {
  char number[16] = "";
  if (problem.number) std::snprintf(number, sizeof number, "0x%X", static_cast<unsigned>(*problem.number));
  return valuesOf(server, problem.isNote ? "note" : "problem", problem.table,
                  std::string(wordFor(problem.itemKind)), problem.item, problem.node, problem.property,
                  problem.routine, number, problem.message, problem.time);
}

Value valueOf(std::string_view column, Cell text) {
  const std::string value(text.value_or(""));
  switch (columnType(column)) {
    case ColumnType::kInteger:
      return static_cast<std::int64_t>(std::strtoll(value.c_str(), nullptr, 10));
    case ColumnType::kReal:
      return std::strtod(value.c_str(), nullptr);
    case ColumnType::kText:
      break;
  }
  return value;
}

std::vector<const Table*> everyTable() {
  std::vector<const Table*> all;
  for (const Table& table : tables()) all.push_back(&table);
  all.push_back(&collectionsTable());
  all.push_back(&problemsTable());
  return all;
}

std::vector<std::string> replacedItems(const TableScope& part, const std::vector<std::string>& there) {
  const auto foldedSet = [](const std::vector<std::string>& items) {
    std::set<std::string> all;
    for (const std::string& item : items) all.insert(folded(item));
    return all;
  };
  const std::set<std::string> selected = foldedSet(part.items), left = foldedSet(part.there);
  std::vector<std::string> replaced;
  for (const std::string& item : there) {
    const std::string name = folded(item);
    if (selected.contains(name) || !left.contains(name)) replaced.push_back(item);
  }
  return replaced;
}

Newcomers newcomersOf(
    const Scope& scope,
    const std::function<std::vector<std::string>(std::string_view table, std::string_view column)>& listed) {
  Newcomers newcomers;
  for (const auto& [kind, list, column] : {std::tuple(ItemKind::kSite, "tblFTPSiteInfo", kSiteColumn),
                                           std::tuple(ItemKind::kPool, "tblAppPoolInfo", kPoolColumn)}) {
    const auto part = std::ranges::find(scope.tables, kind, &TableScope::kind);
    if (part == scope.tables.end()) continue;
    std::set<std::string>& all = newcomers[kind];
    for (const std::string& item : part->there) all.insert(folded(item));
    for (const std::string& item : listed(list, column)) all.erase(folded(item));
  }
  return newcomers;
}

std::string renamedInProblems(const std::string& name) {
  const std::string server = "\"Server name\"";
  const std::string former = "'IIS://' || " + server + " || '/'", next = "'IIS://' || " + name + " || '/'";
  // A node's path may end in the name.
  const std::string node = "replace(\"Node\" || '/', " + former + ", " + next + ")";
  return ", \"Node\" = substr(" + node + ", 1, length(" + node +
         ") - 1), \"Message\" = replace(\"Message\", " + former + ", " + next + ")";
}

void failTaken(const std::string& database, const std::string& name) {
  throw Error("there is a server '" + name + "' in the database '" + database +
              "' already; 'remove' takes it out");
}

std::string jsonList(const std::vector<std::string>& texts) {
  return json(texts).dump(-1, ' ', false, json::error_handler_t::replace);
}

CheckedRows::CheckedRows(const Table& table, std::unique_ptr<Rows> rows)
    : table_(table),
      rows_(std::move(rows)),
      kinds_(Remainder::kindsOf(table)),
      poolColumn_(columnIndex(table, kPoolColumn)),
      replacements_(table.columns.size()) {}

bool CheckedRows::next() {
  if (!rows_->next()) return false;
  ++count_;
  told_.reset();
  return true;
}

Cell CheckedRows::cell(std::size_t column) {
  const Cell value = rows_->cell(column);
  if (!value || (value->size() <= kLongestValue && isPlain(*value))) return value;
  return replaced(column, *value);
}

Cell CheckedRows::replaced(std::size_t column, std::string_view text) {
  if (text.size() > kLongestValue) {
    tell(column, "has " + std::to_string(text.size()) + " bytes; an inventory keeps at most " +
                     std::to_string(kLongestValue) + ", so nothing stands there");
    return std::nullopt;
  }
  // What is no UTF-8, half a surrogate pair among it, becomes U+FFFD on the way.
  std::string clean = automation::toUtf8(automation::fromUtf8(text));
  std::size_t at = 0;
  while ((at = clean.find('\0', at)) != std::string::npos) clean.replace(at, 1, "\uFFFD");
  if (clean == text) return text;
  tell(column, "holds a NUL character or what is no text; U+FFFD stands in its place");
  replacements_[column] = std::move(clean);
  return replacements_[column];
}

void CheckedRows::tell(std::size_t column, std::string message) {
  if (told_.test(column)) return;
  told_.set(column);
  const auto of = [&](std::string_view name) {
    const std::size_t place = columnIndex(table_, name);
    const Cell value = place < table_.columns.size() && place != column ? rows_->cell(place) : Cell();
    return value ? automation::toUtf8(automation::fromUtf8(*value)) : std::string();
  };
  Problem problem;
  problem.table = table_.name;
  problem.itemKind = kinds_.size() > 1 && rows_->cell(poolColumn_) ? kinds_[1] : kinds_[0];
  if (problem.itemKind != ItemKind::kNone) {
    problem.item = of(problem.itemKind == ItemKind::kSite ? kSiteColumn : kPoolColumn);
  }
  problem.node = of(kPathColumn);
  problem.property = table_.columns[column];
  problem.message = "the value of '" + problem.property + "' " + message;
  problem.time = utcNow();
  // The place must be fit for an inventory too.
  for (std::string* place : {&problem.item, &problem.node}) {
    if (place->size() > kLongestValue) place->clear();
    std::replace(place->begin(), place->end(), '\0', '?');
  }
  problems_.push_back(std::move(problem));
}

}  // namespace inventory
