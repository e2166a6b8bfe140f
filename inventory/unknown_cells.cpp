#include "inventory/unknown_cells.h"

#include <algorithm>

#include "inventory/names.h"

namespace inventory {
namespace {

// The number of a problem with a text that has fewer pieces than it should have. What the missing ones were
// made into is empty.
constexpr std::int32_t kTooFewPieces = 9;

constexpr std::string_view kApplications = "tblAppliedObject";
constexpr std::string_view kExtensions = "tblWSExtension";
constexpr ColumnRef kPort = column("tblAppliedObject", "TCP port");
constexpr ColumnRef kAddress = column("tblAppliedObject", "IP address");
constexpr ColumnRef kObjectType = column("tblAppliedObject", "Object type");
constexpr ColumnRef kObjectName = column("tblAppliedObject", "Object name");
constexpr ColumnRef kLogFormat = column("tblLogFileSetting", "Active log format");

std::uint64_t bit(std::size_t column) {
  return std::uint64_t{1} << column;
}

// Whether a web application, as its row has it, can be the one at a node. Only a directory has the node's
// name.
bool mayBeAt(const std::string& path, std::string_view type, std::string_view name) {
  constexpr std::string_view kBelow = "/w3svc/";
  const std::size_t start = path.find(kBelow);
  if (start == path.npos) return true;
  const auto depth =
      std::count(path.begin() + static_cast<std::ptrdiff_t>(start + kBelow.size()), path.end(), '/');
  if (type == "Web site") return depth <= 1;
  return depth >= 2 && path.ends_with("/" + folded(name));
}

// Whether a log of this format has a column, as far as only some formats have it.
bool isOfFormat(std::string_view column, std::string_view format) {
  if (column.starts_with("ODBC")) return format == "ODBC Logging";
  if (column.starts_with("Use local time")) return format == "W3C Extended Log File Format";
  return format != "ODBC Logging";
}

}  // namespace

UnknownCells::UnknownCells(std::span<const Problem> problems) {
  for (const Problem& problem : problems) {
    const std::size_t at = findTable(problem.table);
    if (problem.isNote || at == tables().size()) continue;
    auto& byKey = problems_[tables()[at].name];
    const std::string item = folded(problem.item);
    byKey[item];  // also says that rows of the item may be missing
    const bool isAtNode = tables()[at].isAbout(ObjectKind::kDirectory) && !problem.node.empty();
    byKey[isAtNode ? item + '\n' + folded(problem.node) : item].push_back(
        {problem.itemKind, folded(problem.node), problem.property, problem.number == kTooFewPieces});
  }
}

std::string UnknownCells::of(const Table& table, const Row& row) const {
  if (!concerns(table.name)) return {};
  Columns unknown = 0;
  const std::string item = folded(row.item), node = folded(row.node);
  std::vector<std::string> keys{item, ""};
  if (item.empty()) keys.pop_back();
  if (!node.empty()) keys.insert(keys.end(), {item + '\n' + node, '\n' + node});
  for (const std::string& key : keys) {
    const std::vector<Entry>* const entries = find(table.name, key);
    if (entries == nullptr) continue;
    for (const Entry& entry : *entries) {
      if (concernsRow(entry, table, row)) unknown |= columnsOf(entry, table, row);
    }
  }
  if (unknown == 0) return {};
  // What the routine didn't come to any more isn't known either.
  if (table.name != kExtensions && table.name != kApplications) unknown |= unwrittenColumns(table, row);
  std::string text = "|";
  for (std::size_t at = 0; at < table.columns.size(); ++at) {
    if ((unknown & bit(at)) != 0) text.append(table.columns[at].viewName).append("|");
  }
  return text;
}

bool UnknownCells::mayLackRows(std::string_view table, std::string_view item) const {
  return concerns(table) && (find(table, folded(item)) != nullptr || find(table, {}) != nullptr);
}

const std::vector<UnknownCells::Entry>* UnknownCells::find(std::string_view table,
                                                           const std::string& key) const {
  const auto& byKey = problems_.at(table);
  const auto found = byKey.find(key);
  return found == byKey.end() ? nullptr : &found->second;
}

bool UnknownCells::concernsRow(const Entry& entry, const Table& table, const Row& row) {
  if (entry.itemKind != ObjectKind::kNone && entry.itemKind != itemKindOf(row.kind) && !row.item.empty())
    return false;
  // Problems at the node of a directory were found by it.
  if (entry.node.empty() || table.name != kApplications) return true;
  return mayBeAt(entry.node, row.cell(kObjectType.column).value_or(""),
                 row.cell(kObjectName.column).value_or(""));
}

UnknownCells::Columns UnknownCells::columnsOf(const Entry& entry, const Table& table, const Row& row) {
  Columns columns = 0;
  if (entry.hasTooFewPieces && table.name == kApplications) {
    // The missing address reads as that of all addresses.
    const bool isMissing = row.cell(kPort.column).value_or("").empty();
    return isMissing ? bit(kPort.column) | bit(kAddress.column) : 0;
  }
  for (const std::size_t at : columnsMadeOf(table, row.kind, entry.property)) {
    if (entry.hasTooFewPieces && table.name == kExtensions && !row.cell(at).value_or("").empty()) continue;
    columns |= bit(at);
  }
  return columns;
}

UnknownCells::Columns UnknownCells::unwrittenColumns(const Table& table, const Row& row) {
  Columns columns = 0;
  const bool isLog = table.name == "tblLogFileSetting";
  const std::string_view format = isLog ? row.cell(kLogFormat.column).value_or("") : std::string_view();
  for (const std::size_t at : columnsMadeOf(table, row.kind, {})) {
    if (row.cell(at) || (isLog && !isOfFormat(table.columns[at].name, format))) continue;
    columns |= bit(at);
  }
  return columns;
}

}  // namespace inventory
