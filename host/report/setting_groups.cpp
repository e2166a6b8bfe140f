#include "host/report/setting_groups.h"

#include <algorithm>

#include "host/console/terminal_text.h"
#include "host/report/clients.h"

namespace host::page {
namespace {

constexpr std::size_t kAddresses = inventory::table("tblDirectorySecuritySetting");
constexpr std::size_t kLogFields = inventory::table("tblExtendedLogSetting");

// Returns the documented default if a value differs from it; empty if it doesn't, or if there is none.
std::string differingDefault(const inventory::Column& column, const std::string& value) {
  const std::string_view defaults = column.defaults;
  if (value.empty() || defaults.empty() ||
      ("|" + std::string(defaults) + "|").find("|" + value + "|") != defaults.npos)
    return {};
  return "default " + std::string(defaults.substr(0, defaults.find('|')));
}

// Whether a column has a value to show. A null means that it does not apply.
bool hasSetting(const DataRow& row, std::size_t column) {
  return row.table().columns[column].role != inventory::Role::kIdentity &&
         (row.isUnknown(column) || row.cell(column));
}

// The settings in the rows of one object in a table, without those that identify it.
std::vector<Setting> settingsOf(const Rows& rows) {
  std::vector<Setting> settings;
  const DataRow& row = rows.front();
  for (std::size_t at = 0; at < row.table().columns.size(); ++at) {
    if (!hasSetting(row, at)) continue;
    const inventory::Column& column = row.table().columns[at];
    auto [value, isUnknown] = valueOf(row, at);
    if (column.role == inventory::Role::kListed) {
      for (std::size_t other = 1; other < rows.size(); ++other) {
        if (const std::string more = rows[other].text(at); !more.empty())
          value += ", " + escapeForTerminal(more);
      }
    }
    const std::string note = isUnknown ? "" : differingDefault(column, value);
    settings.push_back({std::string(column.name), value.empty() ? "(empty)" : value, note, isUnknown});
  }
  return settings;
}

// The fields of a log in two lists.
std::vector<Setting> logFieldsOf(const DataRow& row) {
  std::vector<Setting> settings;
  std::string on, off;
  for (std::size_t at = 0; at < row.table().columns.size(); ++at) {
    if (!hasSetting(row, at)) continue;
    const std::string name(row.table().columns[at].name);
    const Value value = valueOf(row, at);
    if (value.isUnknown) {
      settings.push_back({name, value.text, "", true});
    } else {
      append(value.text == "True" || value.text == "Yes" ? on : off, name);
    }
  }
  if (!on.empty()) settings.push_back({"Logged", on});
  if (!off.empty()) settings.push_back({"Not logged", off});
  return settings;
}

SettingGroup groupOf(const ServerData& server, const Tab& tab, ObjectKind kind, std::int64_t object) {
  const Rows rows = server.rowsOf(tab.table, object);
  SettingGroup group{std::string(tab.title), {}, {}, {}};
  if (rows.empty()) {
    group.missing = missingReason(server, tab.table, kind, object);
    if (group.missing.empty()) group.missing = "Nothing is stored here.";
  } else if (tab.table == kAddresses) {
    const Value clients = allowedClients(rows, kSiteAccess);
    group.settings.push_back({"Allowed clients", clients.text, "", clients.isUnknown});
  } else {
    group.settings = tab.table == kLogFields ? logFieldsOf(rows.front()) : settingsOf(rows);
  }
  if (std::ranges::any_of(rows, &DataRow::hasUnknown)) {
    for (const std::string& message : server.reasons(inventory::tables()[tab.table].name, object))
      group.reasons.push_back(escapeForTerminal(message));
  }
  return group;
}

}  // namespace

std::vector<SettingGroup> settingGroups(const ServerData& server, std::span<const Tab> tabs, ObjectKind kind,
                                        std::int64_t object) {
  std::vector<SettingGroup> groups;
  for (const Tab& tab : tabs) {
    SettingGroup group = groupOf(server, tab, kind, object);
    // A log of another format has no fields.
    if (!group.settings.empty() || !group.missing.empty() || !group.reasons.empty())
      groups.push_back(std::move(group));
  }
  return groups;
}

}  // namespace host::page
