#include "inventory/unknown_cells.h"

#include <algorithm>

#include "inventory/names.h"

namespace inventory {
namespace {

// The number of a problem with a text that has too few parts. The columns of the missing parts are empty.
constexpr std::int32_t kTooFewPieces = 9;

constexpr std::string_view kApplications = "tblAppliedObject";
constexpr std::string_view kExtensions = "tblWSExtension";
constexpr ColumnRef kPort = column("tblAppliedObject", "TCP port");
constexpr ColumnRef kAddress = column("tblAppliedObject", "IP address");
constexpr ColumnRef kObjectType = column("tblAppliedObject", "Object type");
constexpr ColumnRef kObjectName = column("tblAppliedObject", "Object name");
constexpr ColumnRef kLogFormat = column("tblLogFileSetting", "Active log format");

using Columns = std::uint64_t;  // a bit per column index

Columns bit(std::size_t column) {
  return Columns{1} << column;
}

// The columns of a kind that derive from a property; for any other property, all columns of the kind that may
// be unknown.
Columns columnsMadeOf(const Table& table, ObjectKind kind, std::string_view property) {
  const std::string wanted = " " + folded(property) + " ";
  Columns made = 0, all = 0;
  for (std::size_t at = 0; at < table.columns.size(); ++at) {
    const Column& column = table.columns[at];
    if (column.properties == "-" || (column.onlyOf != ObjectKind::kNone && column.onlyOf != kind)) continue;
    all |= bit(at);
    const std::string properties = " " + folded(column.properties) + " ";
    if (!property.empty() && properties.find(wanted) != std::string::npos) made |= bit(at);
  }
  return made != 0 ? made : all;
}

// Whether a row's web application can be the one at a node. Only a directory has the node's name.
bool mayBeAt(const std::string& path, std::string_view type, std::string_view name) {
  constexpr std::string_view kBelow = "/w3svc/";
  const std::size_t start = path.find(kBelow);
  if (start == std::string::npos) return true;
  const auto depth = std::ranges::count(std::string_view(path).substr(start + kBelow.size()), '/');
  return type == "Web site" ? depth <= 1 : depth >= 2 && path.ends_with("/" + folded(name));
}

// Whether logs of a format have a column.
bool isOfFormat(std::string_view column, std::string_view format) {
  if (column.starts_with("ODBC")) return format == "ODBC Logging";
  if (column.starts_with("Use local time")) return format == "W3C Extended Log File Format";
  return format != "ODBC Logging";
}

std::string_view textAt(const UnknownCells::Row& row, std::size_t column) {
  return row.cell(column).value_or("");
}

// The columns that the component did not write because it stopped early.
Columns unwrittenColumns(const Table& table, const UnknownCells::Row& row) {
  const bool isLog = table.name == "tblLogFileSetting";
  Columns columns = columnsMadeOf(table, row.kind, {});
  for (std::size_t at = 0; at < table.columns.size(); ++at) {
    if (row.cell(at) || (isLog && !isOfFormat(table.columns[at].name, textAt(row, kLogFormat.column))))
      columns &= ~bit(at);
  }
  return columns;
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
  const auto problems = problems_.find(table.name);
  if (problems == problems_.end()) return {};
  Columns unknown = 0;
  const std::string item = folded(row.item), node = '\n' + folded(row.node);
  std::vector<std::string> keys{""};
  if (!item.empty()) keys.push_back(item);
  if (!row.node.empty()) keys.insert(keys.end(), {item + node, node});
  for (const std::string& key : keys) {
    const auto entries = problems->second.find(key);
    if (entries == problems->second.end()) continue;
    for (const Entry& entry : entries->second) {
      if (concernsRow(entry, table, row)) unknown |= columnsOf(entry, table, row);
    }
  }
  if (unknown == 0) return {};
  if (table.name != kExtensions && table.name != kApplications) unknown |= unwrittenColumns(table, row);
  std::string text = "|";
  for (std::size_t at = 0; at < table.columns.size(); ++at) {
    if ((unknown & bit(at)) != 0) text.append(table.columns[at].viewName).append("|");
  }
  return text;
}

bool UnknownCells::mayLackRows(std::string_view table, std::string_view item) const {
  const auto problems = problems_.find(table);
  return problems != problems_.end() &&
         (problems->second.contains(folded(item)) || problems->second.contains(""));
}

bool UnknownCells::concernsRow(const Entry& entry, const Table& table, const Row& row) {
  if (entry.itemKind != ObjectKind::kNone && entry.itemKind != itemKindOf(row.kind) && !row.item.empty())
    return false;
  // Problems with a directory's node are matched by the key.
  return entry.node.empty() || table.name != kApplications ||
         mayBeAt(entry.node, textAt(row, kObjectType.column), textAt(row, kObjectName.column));
}

std::uint64_t UnknownCells::columnsOf(const Entry& entry, const Table& table, const Row& row) {
  // A missing address means all addresses.
  if (entry.hasTooFewPieces && table.name == kApplications)
    return textAt(row, kPort.column).empty() ? bit(kPort.column) | bit(kAddress.column) : 0;
  Columns columns = columnsMadeOf(table, row.kind, entry.property);
  for (std::size_t at = 0; at < table.columns.size(); ++at) {
    if (entry.hasTooFewPieces && table.name == kExtensions && !textAt(row, at).empty()) columns &= ~bit(at);
  }
  return columns;
}

}  // namespace inventory
