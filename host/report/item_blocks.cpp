#include "host/report/item_blocks.h"

#include <algorithm>
#include <set>
#include <utility>

#include "host/console/terminal_text.h"
#include "host/report/html.h"
#include "host/report/report_parts.h"
#include "inventory/names.h"

namespace host {
namespace {

using inventory::column;
using inventory::ColumnRef;
using inventory::DataRow;
using inventory::ObjectKind;
using inventory::ServerData;
using kainjow::mustache::data;
using Rows = std::vector<DataRow>;

constexpr std::size_t kMaxDepth = 30;  // of a drawn tree: browsers nest elements 512 deep

struct Tab {
  std::string_view title;
  std::size_t table;
};

constexpr std::size_t kGeneral = inventory::table("tblGeneral");
constexpr std::size_t kAddresses = inventory::table("tblDirectorySecuritySetting");
constexpr std::size_t kLogFields = inventory::table("tblExtendedLogSetting");
constexpr std::size_t kDirectories = inventory::table("tblvirtualDirectory");
constexpr std::size_t kDirectoryAddresses = inventory::table("tblvirtualDirSecurity");
constexpr std::size_t kApplications = inventory::table("tblAppliedObject");
constexpr std::size_t kExtensions = inventory::table("tblWSExtension");

constexpr Tab kSiteTabs[] = {{"General", kGeneral},
                             {"Home directory", inventory::table("tblHomeDirectorySetting")},
                             {"Security accounts", inventory::table("tblSecurityAccounts")},
                             {"Directory security", kAddresses},
                             {"Messages", inventory::table("tblMessageSetting")},
                             {"Log file", inventory::table("tblLogFileSetting")},
                             {"Log fields", kLogFields}};

constexpr Tab kPoolTabs[] = {{"General", kGeneral},
                             {"Identity", inventory::table("tblIdentity")},
                             {"Recycling", inventory::table("tblWProcessRecycling")},
                             {"Memory recycling", inventory::table("tblMemoryRecycling")},
                             {"Performance", inventory::table("tblPerformance")},
                             {"Health", inventory::table("tblHealth")}};

constexpr ColumnRef kState = column("tblGeneral", "State");
constexpr ColumnRef kAddress = column("tblGeneral", "IP Address");
constexpr ColumnRef kPort = column("tblGeneral", "TCP Port");
constexpr ColumnRef kSiteName = column("tblFTPSiteInfo", "FTP site name");
constexpr ColumnRef kIdentifier = column("tblFTPSiteInfo", "Identifier");
constexpr ColumnRef kPoolName = column("tblAppPoolInfo", "Application pool name");
constexpr ColumnRef kParentPath = column("tblvirtualDirectory", "IISPath");
constexpr ColumnRef kDirectoryName = column("tblvirtualDirectory", "Directory name");
constexpr ColumnRef kDirectorySite = column("tblvirtualDirectory", "Identifier");
constexpr ColumnRef kPath = column("tblvirtualDirectory", "Path");
constexpr ColumnRef kRead = column("tblvirtualDirectory", "Read");
constexpr ColumnRef kWrite = column("tblvirtualDirectory", "Write");
constexpr ColumnRef kLogVisits = column("tblvirtualDirectory", "Log visits");
constexpr ColumnRef kApplicationPool = column("tblAppliedObject", "Application pool name");
constexpr ColumnRef kApplicationAddress = column("tblAppliedObject", "IP address");
constexpr ColumnRef kApplicationPort = column("tblAppliedObject", "TCP port");

struct AccessColumns {
  ColumnRef all;
  ColumnRef granted;
  ColumnRef denied;
};

constexpr AccessColumns kSiteAccess = {
    column("tblDirectorySecuritySetting", "All computer access"),
    column("tblDirectorySecuritySetting", "Granted IP Address (Subnet mask)"),
    column("tblDirectorySecuritySetting", "Denied IP Address (Subnet mask)")};
constexpr AccessColumns kDirectoryAccess = {
    column("tblvirtualDirSecurity", "All computer access"),
    column("tblvirtualDirSecurity", "Granted IP Address (Subnet mask)"),
    column("tblvirtualDirSecurity", "Denied IP Address (Subnet mask)")};

// Returns the clients that a site or directory admits, by all its rows.
std::string allowedClients(const Rows& rows, const AccessColumns& columns) {
  std::string granted, denied;
  for (const DataRow& row : rows) {
    for (const ColumnRef each : {columns.all, columns.granted, columns.denied}) {
      if (row.isUnknown(each)) return "not known";
    }
    const auto add = [&](std::string& list, ColumnRef each) {
      if (const std::string value = row.text(each); !value.empty())
        list += (list.empty() ? "" : ", ") + value;
    };
    add(granted, columns.granted);
    add(denied, columns.denied);
  }
  const std::string all = rows.front().text(columns.all);
  if (all == "Granted") return denied.empty() ? "all" : "all except " + escapeForTerminal(denied);
  if (all == "Denied") return granted.empty() ? "none" : "only " + escapeForTerminal(granted);
  return all.empty() ? "-" : escapeForTerminal(all);
}

// Returns the documented default if a value differs from it; empty if it doesn't, or if there is none.
std::string differingDefault(const inventory::Column& column, const std::string& value) {
  std::string_view rest = column.defaults;
  if (value.empty() || rest.empty() || ("|" + std::string(rest) + "|").find("|" + value + "|") != rest.npos)
    return {};
  return std::string(rest.substr(0, rest.find('|')));
}

// The fields of a site's or pool's rows in a table, without those that identify it.
class Fields {
 public:
  void addAll(const Rows& rows) {
    const DataRow& row = rows.front();
    const bool isLogFields = &row.table() == &inventory::tables()[kLogFields];
    std::string on, off;
    for (std::size_t at = 0; at < row.table().columns.size(); ++at) {
      const inventory::Column& each = row.table().columns[at];
      const bool isUnknown = row.isUnknown(at);
      // A null means that the column does not apply.
      if (each.role == inventory::Role::kIdentity || (!isUnknown && !row.cell(at))) continue;
      std::string value = cellText(row, at);
      if (isLogFields && !isUnknown) {
        std::string& names = value == "True" || value == "Yes" ? on : off;
        names += (names.empty() ? "" : ", ") + std::string(each.name);
        continue;
      }
      if (each.role == inventory::Role::kListed) {
        for (std::size_t other = 1; other < rows.size(); ++other) {
          if (!rows[other].text(at).empty()) value += ", " + escapeForTerminal(rows[other].text(at));
        }
      }
      const std::string defaultValue = isUnknown ? "" : differingDefault(each, value);
      add(each.name, value.empty() ? "(empty)" : value, isUnknown, defaultValue);
    }
    if (!on.empty()) add("Logged", on);
    if (!off.empty()) add("Not logged", off);
  }

  // `defaultValue` is the default of a value that differs from it.
  void add(std::string_view label, const std::string& value, bool isUnknown = false,
           const std::string& defaultValue = {}) {
    data field;
    field.set("label", std::string(label));
    field.set("value", value);
    field.set("isUnknown", toFlag(isUnknown));
    field.set("isChanged", toFlag(!defaultValue.empty()));
    if (!defaultValue.empty()) field.set("note", "default " + defaultValue);
    list.push_back(field);
  }

  data list{data::type::list};
};

void addGroup(const ServerData& server, data& groups, const Tab& tab, const Rows& rows, ObjectKind kind,
              std::int64_t object) {
  data result, reasons{data::type::list};
  Fields fields;
  result.set("title", std::string(tab.title));
  if (rows.empty()) {
    const std::string why = missingReason(server, tab.table, kind, object);
    result.set("missing", why.empty() ? "Nothing is stored here." : why);
  } else if (tab.table == kAddresses) {
    const std::string clients = allowedClients(rows, kSiteAccess);
    fields.add("Allowed clients", clients, clients == "not known");
  } else {
    fields.addAll(rows);
  }
  if (std::ranges::any_of(rows, &DataRow::hasUnknown)) {
    for (const std::string& message : server.reasons(inventory::tables()[tab.table].name, object)) {
      data reason;
      reason.set("reason", escapeForTerminal(message));
      reasons.push_back(reason);
    }
  }
  // A log of another format has no fields.
  if (!rows.empty() && fields.list.is_empty_list() && reasons.is_empty_list()) return;
  result.set("fields", fields.list);
  result.set("reasons", reasons);
  groups.push_back(result);
}

data toMarks(const Marks& rules) {
  data marks{data::type::list};
  for (const Rule* const rule : rules) {
    data mark;
    mark.set("mark", std::string(rule->title));
    marks.push_back(mark);
  }
  return marks;
}

std::string pathOf(const DataRow& directory) {
  return inventory::folded(directory.text(kParentPath) + "/" + directory.text(kDirectoryName));
}

std::string renderDirectory(const ServerData& server, const DataRow& row, bool withPath) {
  data entry;
  const std::string name = row.text(kDirectoryName);
  entry.set("name", escapeForTerminal(withPath ? row.text(kParentPath) + "/" + name : name));
  entry.set("path", cellText(row, kPath));
  entry.set("isPathUnknown", toFlag(row.isUnknown(kPath)));
  std::string rights;
  const auto add = [&](ColumnRef right, const char* word) {
    const std::string value = row.isUnknown(right) ? "?" : row.text(right);
    if (value == "Yes" || value == "?")
      rights += (rights.empty() ? "" : ", ") + std::string(word) + (value == "?" ? " not known" : "");
  };
  add(kRead, "read");
  add(kWrite, "write");
  add(kLogVisits, "logged");
  entry.set("rights", rights.empty() ? "no access" : rights);
  entry.set("mayWrite", toFlag(!row.isUnknown(kWrite) && row.text(kWrite) == "Yes"));
  const std::int64_t object = row.objectId();
  const Rows addresses = object == 0 ? Rows() : server.rowsOf(kDirectoryAddresses, object);
  if (!addresses.empty()) {
    const std::string clients = allowedClients(addresses, kDirectoryAccess);
    entry.set("clients", clients);
    entry.set("isClientsUnknown", toFlag(clients == "not known"));
    if (clients == "not known") {
      const auto reasons = server.reasons(inventory::tables()[kDirectoryAddresses].name, object);
      if (!reasons.empty()) entry.set("reason", escapeForTerminal(reasons.front()));
    }
  }
  return render(parts::directory, entry);
}

// Renders directories as nested lists.
std::string renderTree(const ServerData& server, const Rows& rows) {
  std::unordered_map<std::string, std::vector<std::size_t>> children;
  std::set<std::string> paths;
  for (const DataRow& row : rows) paths.insert(pathOf(row));
  std::vector<std::pair<std::size_t, std::size_t>> open;  // row and depth, the next one last
  for (std::size_t at = rows.size(); at > 0; --at) {
    const std::string parent = inventory::folded(rows[at - 1].text(kParentPath));
    if (paths.contains(parent)) {
      children[parent].push_back(at - 1);
    } else {
      open.emplace_back(at - 1, 1);
    }
  }
  std::string html;
  std::size_t depth = 0;
  while (!open.empty()) {
    const auto [at, level] = open.back();
    open.pop_back();
    const std::size_t drawn = std::min(level, kMaxDepth);
    for (; depth > drawn; --depth) html += "</li></ul>";
    if (depth == drawn) {
      html += "</li>";
    } else {
      html += depth == 0 ? "<ul class=\"tree\">" : "<ul>";
      depth = drawn;
    }
    html += "\n<li>" + renderDirectory(server, rows[at], level > kMaxDepth);
    if (const auto below = children.find(pathOf(rows[at])); below != children.end()) {
      for (const std::size_t child : below->second) open.emplace_back(child, level + 1);
    }
  }
  for (; depth > 0; --depth) html += "</li></ul>";
  return html + "\n";
}

// A column index for the address and the port together.
constexpr std::size_t kAddressAndPort = SIZE_MAX;

std::string renderTable(const char* part, const Rows& rows, std::initializer_list<std::size_t> columns) {
  data page, list{data::type::list};
  for (const DataRow& row : rows) {
    data entry, cells{data::type::list};
    for (const std::size_t each : columns) {
      data cell;
      if (each == kAddressAndPort) {
        const bool isPortUnknown = row.isUnknown(kApplicationPort);
        const bool hasPort = isPortUnknown || !row.text(kApplicationPort).empty();
        cell.set("value",
                 cellText(row, kApplicationAddress) + (hasPort ? ":" + cellText(row, kApplicationPort) : ""));
        cell.set("isUnknown", toFlag(row.isUnknown(kApplicationAddress) || isPortUnknown));
      } else {
        cell.set("value", cellText(row, each));
        cell.set("isUnknown", toFlag(row.isUnknown(each)));
      }
      cells.push_back(cell);
    }
    entry.set("cells", cells);
    list.push_back(entry);
  }
  page.set("rows", list);
  return render(part, page);
}

}  // namespace

std::string missingReason(const ServerData& server, std::size_t table, ObjectKind kind, std::int64_t object) {
  const std::string_view name = inventory::tables()[table].name;
  if (!server.isCollected(name, kind, object)) return "Not collected.";
  const std::vector<std::string> reasons = server.reasons(name, object);
  return reasons.empty() ? "" : "Not known: " + escapeForTerminal(reasons.front());
}

std::string missingParagraph(const std::string& reason, const std::string& none) {
  constexpr const char* kUnknown = "<p class=\"unknown\">{{reason}}</p>\n";
  if (!reason.empty()) return render(kUnknown, kainjow::mustache::data{"reason", reason});
  return none.empty() ? "" : "<p class=\"faint\">" + none + "</p>\n";
}

ItemBlocks::ItemBlocks(const ServerData& server) : data_(server) {
  for (std::size_t at = 0; at < server.rowCount(kDirectories); ++at) {
    const DataRow row = server.row(kDirectories, at);
    directories_[row.text(kDirectorySite)].push_back(row);
  }
  for (std::size_t at = 0; at < server.rowCount(kApplications); ++at) {
    const DataRow row = server.row(kApplications, at);
    applications_[inventory::folded(row.text(kApplicationPool))].push_back(row);
  }
}

std::string ItemBlocks::site(const DataRow& site, const std::string& id, const Marks& marks) const {
  const std::int64_t object = site.objectId();
  data page, groups{data::type::list};
  page.set("anchor", id);
  page.set("name", site.text(kSiteName).empty() ? "(no name)" : cellText(site, kSiteName));
  page.set("identifier", "site " + escapeForTerminal(site.text(kIdentifier)));
  page.set("marks", toMarks(marks));
  for (const Tab& tab : kSiteTabs) {
    const Rows rows = data_.rowsOf(tab.table, object);
    if (tab.table == kGeneral && !rows.empty()) {
      const DataRow& row = rows.front();
      page.set("address",
               cellText(row, kAddress) + ":" + cellText(row, kPort) + ", " + cellText(row, kState));
    }
    addGroup(data_, groups, tab, rows, ObjectKind::kSite, object);
  }
  page.set("groups", groups);
  const std::string list = directories(site);
  page.set("hasTable", toFlag(!list.empty()));
  page.set("tableTitle", "Virtual directories");
  page.set("table", list);
  return render(parts::site, page);
}

std::string ItemBlocks::directories(const DataRow& site) const {
  const auto found = directories_.find(site.text(kIdentifier));
  if (found != directories_.end()) return renderTree(data_, found->second);
  return missingParagraph(missingReason(data_, kDirectories, ObjectKind::kDirectory, site.objectId()), "");
}

std::string ItemBlocks::pool(const DataRow& pool, const std::string& id, const Marks& marks) const {
  const std::int64_t object = pool.objectId();
  data page, groups{data::type::list};
  page.set("anchor", id);
  page.set("name", escapeForTerminal(pool.text(kPoolName)));
  page.set("marks", toMarks(marks));
  for (const Tab& tab : kPoolTabs) {
    const Rows rows = data_.rowsOf(tab.table, object);
    if (tab.table == kGeneral && !rows.empty()) page.set("address", cellText(rows.front(), kState));
    addGroup(data_, groups, tab, rows, ObjectKind::kPool, object);
  }
  page.set("groups", groups);
  page.set("hasTable", toFlag(true));
  page.set("tableTitle", "Applications");
  page.set("table", applications(pool));
  return render(parts::site, page);
}

std::string ItemBlocks::applications(const DataRow& pool) const {
  const auto found = applications_.find(inventory::folded(pool.text(kPoolName)));
  if (found == applications_.end()) {
    return missingParagraph(missingReason(data_, kApplications, ObjectKind::kApplication, pool.objectId()),
                            "None.");
  }
  constexpr auto index = [](ColumnRef each) { return std::size_t{each.column}; };
  return renderTable(
      parts::applications, found->second,
      {index(column("tblAppliedObject", "Object name")), index(column("tblAppliedObject", "Object type")),
       kAddressAndPort, index(column("tblAppliedObject", "State")),
       index(column("tblAppliedObject", "Local path"))});
}

std::string ItemBlocks::extensions() const {
  Rows rows;
  for (std::size_t at = 0; at < data_.rowCount(kExtensions); ++at) rows.push_back(data_.row(kExtensions, at));
  if (rows.empty()) return "";
  constexpr auto index = [](ColumnRef each) { return std::size_t{each.column}; };
  return renderTable(
      parts::extensions, rows,
      {index(column("tblWSExtension", "Web service extension")),
       index(column("tblWSExtension", "Description")), index(column("tblWSExtension", "Status")),
       index(column("tblWSExtension", "Required files path")),
       index(column("tblWSExtension", "File access"))});
}

}  // namespace host
