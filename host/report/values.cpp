#include "host/report/values.h"

#include "host/console/terminal_text.h"

namespace host::page {

Value valueOf(const DataRow& row, std::size_t column) {
  if (row.isUnknown(column)) return {"not known", true};
  const inventory::Cell cell = row.cell(column);
  return {cell ? escapeForTerminal(*cell) : "-"};
}

std::string missingReason(const ServerData& server, std::size_t table, ObjectKind kind, std::int64_t object) {
  const std::string_view name = inventory::tables()[table].name;
  if (!server.isCollected(name, kind, object)) return "Not collected.";
  const std::vector<std::string> reasons = server.reasons(name, object);
  return reasons.empty() ? "" : "Not known: " + escapeForTerminal(reasons.front());
}

void append(std::string& list, std::string_view word) {
  if (!list.empty()) list += ", ";
  list += word;
}

}  // namespace host::page
