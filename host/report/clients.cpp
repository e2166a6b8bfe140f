#include "host/report/clients.h"

#include "host/console/terminal_text.h"

namespace host::page {

Value allowedClients(const Rows& rows, const AccessColumns& columns) {
  std::string granted, denied;
  for (const DataRow& row : rows) {
    for (const ColumnRef each : {columns.all, columns.granted, columns.denied}) {
      if (row.isUnknown(each)) return {"not known", true};
    }
    if (const std::string value = row.text(columns.granted); !value.empty()) append(granted, value);
    if (const std::string value = row.text(columns.denied); !value.empty()) append(denied, value);
  }
  const std::string all = rows.front().text(columns.all);
  if (all == "Granted") return {denied.empty() ? "all" : "all except " + escapeForTerminal(denied)};
  if (all == "Denied") return {granted.empty() ? "none" : "only " + escapeForTerminal(granted)};
  return {all.empty() ? "-" : escapeForTerminal(all)};
}

}  // namespace host::page
