#include "host/report/items.h"

#include <utility>

#include "host/console/terminal_text.h"
#include "inventory/names.h"

namespace host::page {
namespace {

constexpr Tab kSiteTabs[] = {{"General", kGeneral},
                             {"Home directory", inventory::table("tblHomeDirectorySetting")},
                             {"Security accounts", inventory::table("tblSecurityAccounts")},
                             {"Directory security", inventory::table("tblDirectorySecuritySetting")},
                             {"Messages", inventory::table("tblMessageSetting")},
                             {"Log file", inventory::table("tblLogFileSetting")},
                             {"Log fields", inventory::table("tblExtendedLogSetting")}};

constexpr Tab kPoolTabs[] = {{"General", kGeneral},
                             {"Identity", inventory::table("tblIdentity")},
                             {"Recycling", inventory::table("tblWProcessRecycling")},
                             {"Memory recycling", inventory::table("tblMemoryRecycling")},
                             {"Performance", inventory::table("tblPerformance")},
                             {"Health", inventory::table("tblHealth")}};

constexpr ColumnRef kState = column("tblGeneral", "State");
constexpr ColumnRef kAddress = column("tblGeneral", "IP Address");
constexpr ColumnRef kPort = column("tblGeneral", "TCP Port");
constexpr ColumnRef kApplicationType = column("tblAppliedObject", "Object type");
constexpr ColumnRef kApplicationAddress = column("tblAppliedObject", "IP address");
constexpr ColumnRef kApplicationPort = column("tblAppliedObject", "TCP port");
constexpr ColumnRef kApplicationState = column("tblAppliedObject", "State");
constexpr ColumnRef kExtensionColumns[] = {
    column("tblWSExtension", "Web service extension"), column("tblWSExtension", "Description"),
    column("tblWSExtension", "Status"), column("tblWSExtension", "Required files path"),
    column("tblWSExtension", "File access")};

std::vector<std::string> titlesOf(const Marks& rules) {
  std::vector<std::string> titles;
  for (const Rule* const rule : rules) titles.push_back(rule->title);
  return titles;
}

// The address and the port together.
Value addressOf(const DataRow& application) {
  Value address = valueOf(application, kApplicationAddress);
  const Value port = valueOf(application, kApplicationPort);
  if (port.isUnknown || !application.text(kApplicationPort).empty()) address.text += ":" + port.text;
  return {address.text, address.isUnknown || port.isUnknown};
}

Table applicationTable(const Rows& rows) {
  Table table{"applications", "Applications", {"Application", "Type", "Address", "State", "Path"}, {}};
  for (const DataRow& row : rows) {
    table.addRow({valueOf(row, kApplicationName), valueOf(row, kApplicationType), addressOf(row),
                  valueOf(row, kApplicationState), valueOf(row, kApplicationPath)});
  }
  return table;
}

}  // namespace

Items::Items(const ServerData& server) : server_(server) {
  forEachRow(server, kDirectories,
             [&](const DataRow& row) { directories_[row.text(kDirectorySite)].push_back(row); });
  forEachRow(server, kApplications, [&](const DataRow& row) {
    applications_[inventory::folded(row.text(kApplicationPool))].push_back(row);
  });
}

Item Items::site(const DataRow& row, std::string anchor, const Marks& marks) const {
  const std::int64_t object = row.objectId();
  Item item;
  item.anchor = std::move(anchor);
  item.name = row.text(kSiteName).empty() ? "(no name)" : valueOf(row, kSiteName).text;
  item.identifier = "site " + escapeForTerminal(row.text(kSiteIdentifier));
  item.marks = titlesOf(marks);
  if (const Rows general = server_.rowsOf(kGeneral, object); !general.empty()) {
    const auto text = [&](ColumnRef column) { return valueOf(general.front(), column).text; };
    item.address = text(kAddress) + ":" + text(kPort) + ", " + text(kState);
  }
  item.groups = settingGroups(server_, kSiteTabs, ObjectKind::kSite, object);
  if (const auto found = directories_.find(row.text(kSiteIdentifier)); found != directories_.end()) {
    item.tree = directoryTree(server_, found->second);
  } else {
    item.missing = missingReason(server_, kDirectories, ObjectKind::kDirectory, object);
  }
  if (!item.tree.directories.empty() || !item.missing.empty()) item.listTitle = "Virtual directories";
  return item;
}

Item Items::pool(const DataRow& row, std::string anchor, const Marks& marks) const {
  const std::int64_t object = row.objectId();
  Item item;
  item.anchor = std::move(anchor);
  item.name = escapeForTerminal(row.text(kPoolName));
  item.marks = titlesOf(marks);
  if (const Rows general = server_.rowsOf(kGeneral, object); !general.empty())
    item.address = valueOf(general.front(), kState).text;
  item.groups = settingGroups(server_, kPoolTabs, ObjectKind::kPool, object);
  item.listTitle = "Applications";
  if (const auto found = applications_.find(inventory::folded(row.text(kPoolName)));
      found != applications_.end()) {
    item.applications = applicationTable(found->second);
  } else {
    item.missing = missingReason(server_, kApplications, ObjectKind::kApplication, object);
  }
  return item;
}

Table Items::extensions() const {
  Table table{
      "extensions", "Web service extensions", {"Extension", "Description", "Status", "File", "Access"}, {}};
  forEachRow(server_, kExtensions, [&](const DataRow& row) {
    std::vector<Value> values;
    for (const ColumnRef each : kExtensionColumns) values.push_back(valueOf(row, each));
    table.addRow(std::move(values));
  });
  return table;
}

}  // namespace host::page
