#include "host/report_items.h"

#include <algorithm>
#include <set>
#include <unordered_map>
#include <utility>

#include "host/report_parts.h"
#include "host/report_text.h"
#include "host/terminal_text.h"
#include "inventory/names.h"

namespace host {
namespace {

using inventory::ItemKind;
using kainjow::mustache::data;
using Strings = std::vector<std::string>;

constexpr std::size_t kDeepest = 30;  // of a drawn tree: browsers nest elements 512 deep

// --- What a page says.

// Values of a pool's columns that are documented as its default, schema and built-in ones where they differ
// (learn.microsoft.com/en-us/previous-versions/iis/6.0-sdk/ and the page's name).
struct Default {
  std::string_view column;
  std::vector<std::string_view> values;
  std::string_view page;
};

const Default kDefaults[] = {
    {"Recycle (in minutes)", {"1740", "60"}, "ms525914(v=vs.90)"},
    {"Number of recycle requests", {"0", "10000"}, "ms525851(v=vs.90)"},
    {"Maximum virtual memory (mb)", {"0", "500"}, "ms525539(v=vs.90)"},
    {"Maximum used memory (mb)", {"0"}, "ms525009(v=vs.90)"},
    {"Number of request queues", {"1000", "4000"}, "ms524493(v=vs.90)"},
    {"Maximum number of worker processes", {"1"}, "ms525074(v=vs.90)"},
    {"Maximum CPU use (percentage)", {"0"}, "ms524939(v=vs.90)"},
    {"Action performed when CPU usage exceeds maximum CPU use", {"No action"}, "ms525681(v=vs.90)"},
    {"Refresh CPU usage numbers (in minutes)", {"0", "5"}, "ms525330(v=vs.90)"},
    {"Enable pinging", {"True"}, "ms525345(v=vs.90)"},
    {"Ping worker process (frequency in seconds)", {"30"}, "ms525149(v=vs.90)"},
    {"Enable rapid-fail protection", {"True"}, "ms525133(v=vs.90)"},
    {"Rapid-fail protection failures", {"5"}, "ms525633(v=vs.90)"},
    {"Rapid-fail protection time period (in minutes)", {"5"}, "ms525610(v=vs.90)"},
    {"Startup time limit (in seconds)", {"90"}, "ms524792(v=vs.90)"},
    // learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/ for these.
    {"Scheduled recycle at", {"none"}, "cc783454(v=ws.10)"},
    {"Idle timeout (in minutes)", {"20"}, "cc785037(v=ws.10)"},
    {"Shutdown time limit (in seconds)", {"90"}, "cc787702(v=ws.10)"},
    {"Security account", {"Network Service"}, "cc781986(v=ws.10)"},
};

struct Tab {
  std::string_view title;
  std::string_view table;
};

constexpr Tab kSiteTabs[] = {{"General", "tblGeneral"},
                             {"Home directory", "tblHomeDirectorySetting"},
                             {"Security accounts", "tblSecurityAccounts"},
                             {"Directory security", "tblDirectorySecuritySetting"},
                             {"Messages", "tblMessageSetting"},
                             {"Log file", "tblLogFileSetting"},
                             {"Log fields", "tblExtendedLogSetting"}};

constexpr Tab kPoolTabs[] = {{"General", "tblGeneral"},
                             {"Identity", "tblIdentity"},
                             {"Recycling", "tblWProcessRecycling"},
                             {"Memory recycling", "tblMemoryRecycling"},
                             {"Performance", "tblPerformance"},
                             {"Health", "tblHealth"}};

constexpr std::string_view kAll = "All computer access";
constexpr std::string_view kGranted = "Granted IP Address (Subnet mask)";
constexpr std::string_view kDenied = "Denied IP Address (Subnet mask)";

// Who may come in, out of all rows of a site or directory.
std::string access(const std::vector<Cells>& rows) {
  if (rows.empty()) return "";
  std::string granted, denied;
  for (const Cells& row : rows) {
    for (const std::string_view column : {kAll, kGranted, kDenied}) {
      if (row.isUnknown(column)) return "not known";
    }
    const auto add = [&](std::string& list, std::string_view column) {
      if (const std::string value = row.at(column); !value.empty())
        list += (list.empty() ? "" : ", ") + value;
    };
    add(granted, kGranted);
    add(denied, kDenied);
  }
  const std::string all = rows.front().at(kAll);
  if (all == "Granted") return denied.empty() ? "everybody" : "everybody but " + harmless(denied);
  if (all == "Denied") return granted.empty() ? "nobody" : "only " + harmless(granted);
  return all.empty() ? "-" : harmless(all);
}

template <typename Add>
void addFields(const std::vector<Cells>& rows, const Add& add) {
  const Cells& row = rows.front();
  std::string on, off;
  for (const std::string_view column : row.table->columns) {
    if (column == inventory::kServerColumn || column == inventory::kSiteColumn ||
        column == inventory::kPoolColumn || column == "FTP site name") {
      continue;
    }
    const bool isUnknown = row.isUnknown(column);
    // What a format or a kind of item doesn't have.
    if (!isUnknown && !row.isWritten(column)) continue;
    std::string value = shown(row, column);
    if (row.table->name == "tblExtendedLogSetting" && !isUnknown) {
      std::string& list = value == "True" || value == "Yes" ? on : off;
      list += (list.empty() ? "" : ", ") + std::string(column);
      continue;
    }
    if (column == "Scheduled recycle at") {
      for (const Cells& other : rows) {
        if (&other != &row && !other.at(column).empty()) value += ", " + harmless(other.at(column));
      }
    }
    const auto known = std::ranges::find(kDefaults, column, &Default::column);
    const bool isChanged = !isUnknown && known != std::end(kDefaults) && !value.empty() &&
                           std::ranges::find(known->values, value) == known->values.end();
    if (value.empty()) value = "(empty)";
    add(column, value, isUnknown, isChanged,
        isChanged ? "default " + std::string(known->values.front()) : std::string());
  }
  if (!on.empty()) add("Logged", on, false, false, "");
  if (!off.empty()) add("Not logged", off, false, false, "");
}

// The fields of a row but for what names it.
void addGroup(Book& book, data& groups, std::string_view title, const std::vector<Cells>& rows,
              const std::string& server, std::string_view table, ItemKind kind, const std::string& item) {
  data result, fields{data::type::list}, reasons{data::type::list};
  result.set("title", std::string(title));
  if (rows.empty()) {
    const Strings why = book.notKnown().whyMissing(server, table, item);
    result.set("missing", !book.coverage().has(server, table, kind, item) ? "Not collected."
                          : why.empty()                                   ? "Nothing stands here."
                                        : "Not known: " + harmless(why.front()));
  }
  const auto add = [&](std::string_view label, const std::string& value, bool isUnknown, bool isChanged,
                       const std::string& note) {
    data field;
    field.set("label", std::string(label));
    field.set("value", value);
    field.set("isUnknown", flag(isUnknown));
    field.set("isChanged", flag(isChanged));
    if (!note.empty()) field.set("note", note);
    fields.push_back(field);
  };
  std::set<std::string> told;
  for (const Cells& row : rows) {
    for (const std::string& message : row.notKnown.messages) {
      if (!told.insert(message).second) continue;
      data reason;
      reason.set("reason", harmless(message));
      reasons.push_back(reason);
    }
  }
  if (table == "tblDirectorySecuritySetting" && !rows.empty()) {
    const std::string who = access(rows);
    add("Who may come in", who, who == "not known", false, "");
  } else if (!rows.empty()) {
    addFields(rows, add);
  }
  // A log of another format has no fields.
  if (!rows.empty() && fields.is_empty_list() && reasons.is_empty_list()) return;
  result.set("fields", fields);
  result.set("reasons", reasons);
  groups.push_back(result);
}

data marksOf(const Marks& rules) {
  data marks{data::type::list};
  for (const Rule* const rule : rules) {
    data mark;
    mark.set("mark", std::string(rule->title));
    marks.push_back(mark);
  }
  return marks;
}

std::string pathOf(const Cells& row) {
  return inventory::folded(row.at(inventory::kPathColumn) + "/" + row.at("Directory name"));
}

std::string directory(const Cells& row, std::unordered_map<std::string, std::vector<Cells>>& security,
                      bool withPath) {
  data entry;
  const std::string name = row.at("Directory name");
  entry.set("name", harmless(withPath ? row.at(inventory::kPathColumn) + "/" + name : name));
  entry.set("path", shown(row, "Path"));
  entry.set("isPathUnknown", flag(row.isUnknown("Path")));
  std::string rights;
  const auto add = [&](std::string_view column, const char* word) {
    const std::string value = row.isUnknown(column) ? "?" : row.at(column);
    if (value == "Yes" || value == "?")
      rights += (rights.empty() ? "" : ", ") + std::string(word) + (value == "?" ? " not known" : "");
  };
  add("Read", "read");
  add("Write", "write");
  add("Log visits", "logged");
  entry.set("rights", rights.empty() ? "no access" : rights);
  entry.set("mayWrite", flag(!row.isUnknown("Write") && row.at("Write") == "Yes"));
  const auto found = security.find(pathOf(row));
  if (found != security.end()) {
    const std::string who = access(found->second);
    entry.set("who", who);
    entry.set("isWhoUnknown", flag(who == "not known"));
    if (who == "not known" && !found->second.front().notKnown.messages.empty())
      entry.set("reason", harmless(found->second.front().notKnown.messages.front()));
  }
  return render(parts::directory, entry);
}

// The virtual directories of a site as nested lists.
std::string directories(Book& book, const std::string& server, const std::string& site) {
  const auto rows = book.rows("tblvirtualDirectory", server, inventory::kSiteColumn, site);
  std::unordered_map<std::string, std::vector<Cells>> security;
  for (Cells& row : book.rows("tblvirtualDirSecurity", server, inventory::kSiteColumn, site))
    security[pathOf(row)].push_back(std::move(row));
  if (rows.empty()) {
    if (!book.coverage().has(server, "tblvirtualDirectory", ItemKind::kSite, site))
      return "<p class=\"unknown\">Not collected.</p>\n";
    const Strings why = book.notKnown().whyMissing(server, "tblvirtualDirectory", site);
    return why.empty() ? "" : "<p class=\"unknown\">Not known: " + escaped(harmless(why.front())) + "</p>\n";
  }
  std::unordered_map<std::string, std::vector<std::size_t>> children;
  std::set<std::string> there;
  for (const Cells& row : rows) there.insert(pathOf(row));
  std::vector<std::pair<std::size_t, std::size_t>> open;  // row and depth, the next one last
  for (std::size_t at = rows.size(); at > 0; --at) {
    const std::string parent = inventory::folded(rows[at - 1].at(inventory::kPathColumn));
    if (there.contains(parent)) {
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
    const std::size_t drawn = std::min(level, kDeepest);
    for (; depth > drawn; --depth) html += "</li></ul>";
    if (depth == drawn) {
      html += "</li>";
    } else {
      html += depth == 0 ? "<ul class=\"tree\">" : "<ul>";
      depth = drawn;
    }
    html += "\n<li>" + directory(rows[at], security, level > kDeepest);
    if (const auto below = children.find(pathOf(rows[at])); below != children.end()) {
      for (const std::size_t child : below->second) open.emplace_back(child, level + 1);
    }
  }
  for (; depth > 0; --depth) html += "</li></ul>";
  return html + "\n";
}

// An empty name stands for the address and the port.
std::string table(const char* part, const std::vector<Cells>& rows,
                  const std::vector<std::string_view>& columns) {
  data page, list{data::type::list};
  for (const Cells& row : rows) {
    data entry, cells{data::type::list};
    for (const std::string_view column : columns) {
      data cell;
      if (column.empty()) {
        const std::string port = shown(row, "TCP port"), ip = shown(row, "IP address");
        cell.set("value", row.at("TCP port").empty() && !row.isUnknown("TCP port") ? ip : ip + " : " + port);
        cell.set("isUnknown", flag(row.isUnknown("IP address") || row.isUnknown("TCP port")));
      } else {
        cell.set("value", shown(row, column));
        cell.set("isUnknown", flag(row.isUnknown(column)));
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

std::string siteBlock(Book& book, const std::string& server, const Cells& site, const std::string& id,
                      const Marks& marks) {
  const std::string identifier = site.at(inventory::kSiteColumn), name = site.at("FTP site name");
  data page, groups{data::type::list};
  page.set("anchor", id);
  page.set("name", name.empty() ? "(no name)" : shown(site, "FTP site name"));
  page.set("identifier", "site " + harmless(identifier));
  page.set("marks", marksOf(marks));
  for (const Tab& tab : kSiteTabs) {
    const auto rows = book.rows(tab.table, server, inventory::kSiteColumn, identifier);
    if (tab.table == "tblGeneral" && !rows.empty()) {
      const Cells& row = rows.front();
      page.set("address",
               shown(row, "IP Address") + " : " + shown(row, "TCP Port") + ", " + shown(row, "State"));
    }
    addGroup(book, groups, tab.title, rows, server, tab.table, ItemKind::kSite, identifier);
  }
  page.set("groups", groups);
  const std::string tree = directories(book, server, identifier);
  page.set("hasTable", flag(!tree.empty()));
  page.set("tableTitle", "Virtual directories");
  page.set("table", tree);
  return render(parts::site, page);
}

std::string poolBlock(Book& book, const std::string& server, const Cells& pool, const std::string& id,
                      const Marks& marks) {
  const std::string name = pool.at(inventory::kPoolColumn);
  data page, groups{data::type::list};
  page.set("anchor", id);
  page.set("name", harmless(name));
  page.set("marks", marksOf(marks));
  for (const Tab& tab : kPoolTabs) {
    const auto rows = book.rows(tab.table, server, inventory::kPoolColumn, name);
    if (tab.table == "tblGeneral" && !rows.empty()) page.set("address", shown(rows.front(), "State"));
    addGroup(book, groups, tab.title, rows, server, tab.table, ItemKind::kPool, name);
  }
  page.set("groups", groups);
  const auto applications = book.rows("tblAppliedObject", server, inventory::kPoolColumn, name);
  page.set("hasTable", flag(true));
  page.set("tableTitle", "Applications");
  if (applications.empty()) {
    const Strings why = book.notKnown().whyMissing(server, "tblAppliedObject", name);
    const bool isCollected = book.coverage().has(server, "tblAppliedObject", ItemKind::kPool, name);
    page.set("table", !isCollected ? "<p class=\"unknown\">Not collected.</p>\n"
                      : why.empty()
                          ? "<p class=\"faint\">None.</p>\n"
                          : "<p class=\"unknown\">Not known: " + escaped(harmless(why.front())) + "</p>\n");
  } else {
    page.set("table", table(parts::applications, applications,
                            {"Object name", "Object type", "", "State", "Local path"}));
  }
  return render(parts::site, page);
}

std::string extensionsTable(const std::vector<Cells>& rows) {
  return table(parts::extensions, rows,
               {"Web service extension", "Description", "Status", "Required files path", "File access"});
}

}  // namespace host
