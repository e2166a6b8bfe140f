#include "host/report.h"

#include <openssl/evp.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <kainjow/mustache.hpp>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <system_error>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/findings.h"
#include "host/private_folder.h"
#include "host/problem_groups.h"
#include "host/report_drawing.h"
#include "host/report_parts.h"
#include "host/servers.h"
#include "host/terminal_text.h"
#include "inventory/clock.h"
#include "inventory/coverage.h"
#include "inventory/names.h"
#include "inventory/not_known.h"
#include "inventory/records.h"
#include "sqlite/database.h"

namespace host {
namespace {

using inventory::ItemKind;
using kainjow::mustache::data;
using kainjow::mustache::mustache;
using Strings = std::vector<std::string>;
using Write = std::function<void(std::string_view)>;

constexpr std::size_t kMostLinks = 40;       // to servers behind a bar
constexpr std::size_t kMostProblems = 2000;  // of one server
constexpr std::size_t kDeepest = 30;         // of a drawn tree: browsers nest elements 512 deep

// --- The rows, where they can be asked for one by one.

// A row of a table, with what of it isn't known.
struct Cells {
  const inventory::Table* table = nullptr;
  std::vector<std::optional<std::string>> values;
  inventory::NotKnownCells notKnown;

  std::size_t place(std::string_view column) const { return inventory::columnIndex(*table, column); }
  bool isUnknown(std::string_view column) const { return notKnown.has(place(column)); }
  std::string at(std::string_view column) const {
    const std::size_t at = place(column);
    return at < values.size() ? values[at].value_or("") : std::string();
  }
  bool isWritten(std::string_view column) const { return values[place(column)].has_value(); }
};

// The servers of a report in a private database, in which the rows of one site or pool are found at once.
class Book {
 public:
  Book(const ReportOptions& options, const std::filesystem::path& folder) : file_(folder / "report.db") {
    const auto source = inventory::openForReading(options.database, options.access);
    const auto snapshot = source->snapshot();
    servers_ = chosenServers(*snapshot, options.servers);
    if (!servers_.empty()) inventory::openForPublishing(sqlite::utf8Of(file_), {})->take(*snapshot, servers_);
  }

  void open() {
    if (servers_.empty()) return;
    inventory_ = inventory::openForReading(sqlite::utf8Of(file_), {});
    database_ = std::make_unique<sqlite::Database>(file_, sqlite::Database::Mode::kReadWrite,
                                                   std::chrono::milliseconds(0));
    for (const inventory::Table& table : inventory::tables()) {
      for (const std::string_view key : {inventory::kSiteColumn, inventory::kPoolColumn}) {
        if (!inventory::hasColumn(table, key)) continue;
        database_->execute("create index " +
                           sqlite::quotedName("report " + std::string(table.name) + std::string(key)) +
                           " on " + sqlite::quotedName(table.name) + " (" + sqlite::quotedName(key) + ", " +
                           serverOf(table) + " collate nocase)");
      }
    }
    snapshot_ = inventory_->snapshot();
    notKnown_ = inventory::readNotKnown(*snapshot_, servers_);
    coverage_ = inventory::Coverage::read(*snapshot_, servers_);
  }

  const Strings& servers() const { return servers_; }
  inventory::Snapshot& snapshot() { return *snapshot_; }
  const inventory::NotKnown& notKnown() const { return notKnown_; }
  const inventory::Coverage& coverage() const { return coverage_; }

  // The rows of a server in a table, in their order: of one site or pool, or all of them. The row may be
  // taken. Not to be called for the same table from within.
  void forEach(std::string_view name, const std::string& server, std::string_view key,
               const std::string& item, const std::function<void(Cells&)>& each) {
    const std::size_t place = inventory::tableIndex(name);
    const inventory::Table& table = inventory::tables()[place];
    sqlite::Statement& statement = prepared(table, key);
    statement.bind(1, server);
    if (!key.empty()) statement.bind(2, item);
    while (statement.step()) {
      Cells row{&table, {}, {}};
      row.values.reserve(table.columns.size());
      for (std::size_t at = 0; at < table.columns.size(); ++at) {
        const auto text = statement.text(static_cast<int>(at));
        row.values.push_back(text ? std::optional<std::string>(*text) : std::nullopt);
      }
      row.notKnown =
          notKnown_.of(place, [&](std::size_t column) { return inventory::Cell(row.values[column]); });
      each(row);
    }
    statement.reset();
  }
  void forEach(std::string_view name, const std::string& server, const std::function<void(Cells&)>& each) {
    forEach(name, server, {}, {}, each);
  }

  std::vector<Cells> rows(std::string_view name, const std::string& server, std::string_view key = {},
                          const std::string& item = {}) {
    std::vector<Cells> found;
    forEach(name, server, key, item, [&](Cells& row) { found.push_back(std::move(row)); });
    return found;
  }

  std::vector<std::map<std::string, std::string>> own(const char* table, const std::string& server,
                                                      std::size_t most) {
    auto statement = database_->prepare("select * from " + std::string(table) +
                                        " where \"Server name\" = ?1 collate nocase order by rowid limit " +
                                        std::to_string(most));
    statement.bind(1, server);
    std::vector<std::map<std::string, std::string>> all;
    while (statement.step()) {
      auto& row = all.emplace_back();
      for (int at = 0; at < statement.columnCount(); ++at)
        row[std::string(statement.columnName(at))] = statement.text(at).value_or("");
    }
    return all;
  }

  std::int64_t count(const std::string& sql, const std::string& server) {
    auto statement = database_->prepare(sql);
    statement.bind(1, server);
    return statement.step() ? std::stoll(std::string(statement.text(0).value_or("0"))) : 0;
  }

 private:
  static std::string serverOf(const inventory::Table& table) {
    if (inventory::hasColumn(table, inventory::kServerColumn))
      return sqlite::quotedName(inventory::kServerColumn);
    const std::string path = sqlite::quotedName(inventory::kPathColumn);
    return "substr(" + path + ", 7, instr(substr(" + path + ", 7), '/') - 1)";
  }

  sqlite::Statement& prepared(const inventory::Table& table, std::string_view key) {
    sqlite::Statement& statement = statements_[std::string(table.name) + '\n' + std::string(key)];
    if (isNew_.insert(std::string(table.name) + '\n' + std::string(key)).second) {
      std::string columns;
      for (const std::string_view column : table.columns)
        columns += (columns.empty() ? "" : ", ") + sqlite::quotedName(column);
      statement = database_->prepare("select " + columns + " from " + sqlite::quotedName(table.name) +
                                     " where " + serverOf(table) + " = ?1 collate nocase" +
                                     (key.empty() ? "" : " and " + sqlite::quotedName(key) + " = ?2") +
                                     " order by rowid");
    }
    return statement;
  }

  const std::filesystem::path file_;
  Strings servers_;
  std::unique_ptr<sqlite::Database> database_;
  std::unique_ptr<inventory::Inventory> inventory_;
  std::unique_ptr<inventory::Snapshot> snapshot_;
  inventory::NotKnown notKnown_;
  inventory::Coverage coverage_;
  std::map<std::string, sqlite::Statement> statements_;
  std::set<std::string> isNew_;
};

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
    {"Number of request queues", {"1000", "4000"}, "ms524493(v=vs.90)"},
    {"Maximum number of worker processes", {"1"}, "ms525074(v=vs.90)"},
    {"Maximum CPU use (percentage)", {"0"}, "ms524939(v=vs.90)"},
    {"Refresh CPU usage numbers (in minutes)", {"0", "5"}, "ms525330(v=vs.90)"},
    {"Enable pinging", {"True"}, "ms525345(v=vs.90)"},
    {"Ping worker process (frequency in seconds)", {"30"}, "ms525149(v=vs.90)"},
    {"Enable rapid-fail protection", {"True"}, "ms525133(v=vs.90)"},
    {"Rapid-fail protection failures", {"5"}, "ms525633(v=vs.90)"},
    {"Rapid-fail protection time period (in minutes)", {"5"}, "ms525610(v=vs.90)"},
    // learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/ for these.
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

std::string render(const char* part, const data& values) {
  static std::map<const char*, std::unique_ptr<mustache>> parsed;
  std::unique_ptr<mustache>& known = parsed[part];
  if (known == nullptr) known = std::make_unique<mustache>(std::string(part));
  return known->render(values);
}

data flag(bool is) {
  return data(is ? data::type::bool_true : data::type::bool_false);
}

// A cell as it is shown.
std::string shown(const Cells& row, std::string_view column) {
  if (row.isUnknown(column)) return "not known";
  if (!row.isWritten(column)) return "-";
  return harmless(row.at(column));
}

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

// The drive or share that a path is on.
std::string rootOf(const std::string& path) {
  if (!path.starts_with("\\\\")) return path.substr(0, path.size() > 1 && path[1] == ':' ? 2 : path.size());
  const std::size_t server = path.find('\\', 2);
  return path.substr(0, server == path.npos ? path.npos : path.find('\\', server + 1));
}

class Page {
 public:
  Page(Book& book, Write write) : book_(book), write_(std::move(write)) {}

  void write() {
    writeStart();
    writeServers();
    writeOverview();
    for (std::size_t at = 0; at < book_.servers().size(); ++at) writeServer(at);
    data end;
    end.set("script", std::string(parts::script));
    write_(render(parts::page_end, end));
  }

 private:
  static std::string anchor(std::size_t server) { return "server-" + std::to_string(server + 1); }

  static std::string hashOf(std::string_view text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> hash{};
    unsigned size = 0;
    if (EVP_Digest(text.data(), text.size(), hash.data(), &size, EVP_sha256(), nullptr) != 1)
      throw std::runtime_error("can't make the report: no SHA-256");
    std::array<unsigned char, 2 * EVP_MAX_MD_SIZE> code{};
    const int length = EVP_EncodeBlock(code.data(), hash.data(), static_cast<int>(size));
    return {reinterpret_cast<const char*>(code.data()), static_cast<std::size_t>(length)};
  }

  void writeStart() {
    std::int64_t sites = 0, pools = 0;
    // Counted while the servers are judged, so that nothing of them is kept.
    for (const std::string& server : book_.servers()) {
      Counts& counts = counts_.emplace_back();
      counts.sites = book_.count("select count(*) from tblFTPSiteInfo where \"Server name\" = ?1", server);
      counts.pools = book_.count("select count(*) from tblAppPoolInfo where \"Server name\" = ?1", server);
      judge(book_.snapshot(), server, book_.notKnown(), book_.coverage(),
            {[&](const Finding& finding) { ++counts.findings[finding.rule]; },
             [&](const Unjudged& unjudged) { counts.unjudged.insert(unjudged.rule); }});
      sites += counts.sites;
      pools += counts.pools;
    }
    const Strings& servers = book_.servers();
    data page;
    page.set("title", servers.empty() ? "no server"
                      : servers.size() == 1
                          ? harmless(servers.front())
                          : counted(static_cast<std::int64_t>(servers.size()), "server", "servers"));
    page.set("serverCount", counted(static_cast<std::int64_t>(servers.size()), "server", "servers"));
    page.set("siteCount", counted(sites, "FTP site", "FTP sites"));
    page.set("poolCount", counted(pools, "application pool", "application pools"));
    page.set("written", inventory::utcNow().substr(0, 16).replace(10, 1, " ") + " UTC");
    page.set("version", IISINVENTORY_VERSION);
    page.set("style", std::string(parts::style));
    page.set("styleHash", hashOf(parts::style));
    page.set("scriptHash", hashOf(parts::script));
    write_(render(parts::page_start, page));
  }

  void writeServers() {
    data page, servers{data::type::list};
    for (std::size_t at = 0; at < book_.servers().size(); ++at) {
      const std::string& name = book_.servers()[at];
      data server, collections{data::type::list};
      std::int64_t rows = 0;
      for (auto& row : book_.own("Collections", name, 20)) {
        data collection;
        collection.set("time", harmless(row["Published"].substr(0, 19)).replace(10, 1, " "));
        collection.set("file", harmless(row["File"]));
        collection.set("size", row["File size"] + " bytes");
        collection.set("fileTime", harmless(row["File time"].substr(0, 10)));
        collection.set("hash", harmless(row["SHA-256"]));
        collection.set("selection", row["Selection"].empty() ? "everything" : harmless(row["Selection"]));
        collections.push_back(collection);
      }
      for (const inventory::Table& table : inventory::tables()) rows += rowsOf(table, name);
      std::int64_t findings = 0;
      for (const auto& [rule, count] : counts_[at].findings) findings += count;
      const std::int64_t problems =
          book_.count("select count(*) from Problems where Kind = 'problem' and \"Server name\" = ?1", name);
      server.set("anchor", anchor(at));
      server.set("name", harmless(name));
      server.set("collections", collections);
      server.set("rows", std::to_string(rows));
      server.set("problems", std::to_string(problems));
      server.set("hasProblems", flag(problems > 0));
      server.set("findings", std::to_string(findings));
      servers.push_back(server);
    }
    page.set("servers", servers);
    write_(render(parts::servers, page));
  }

  std::int64_t rowsOf(const inventory::Table& table, const std::string& server) {
    const auto rows = book_.snapshot().rowsOf(std::string(table.name), {server});
    std::int64_t count = 0;
    while (rows->next()) ++count;
    return count;
  }

  void writeOverview() {
    const Strings& servers = book_.servers();
    data page, list{data::type::list};
    std::int64_t most = 1, all = 0;
    const auto total = [&](const Rule& rule) {
      std::int64_t sum = 0;
      for (const Counts& counts : counts_) {
        const auto found = counts.findings.find(&rule);
        sum += found == counts.findings.end() ? 0 : found->second;
      }
      return sum;
    };
    for (const Rule& rule : rules()) {
      most = std::max(most, total(rule));
      all += total(rule);
    }
    for (const Rule& rule : rules()) {
      const std::int64_t count = total(rule);
      data entry, links{data::type::list};
      std::size_t linked = 0, unjudged = 0;
      for (std::size_t at = 0; at < servers.size(); ++at) {
        unjudged += counts_[at].unjudged.contains(&rule) ? 1U : 0U;
        const auto found = counts_[at].findings.find(&rule);
        if (found == counts_[at].findings.end() || ++linked > kMostLinks) continue;
        data link;
        link.set("anchor", anchor(at));
        link.set("name", harmless(servers[at]));
        link.set("count", std::to_string(found->second));
        links.push_back(link);
      }
      entry.set("title", std::string(rule.title));
      entry.set("why", std::string(rule.why));
      if (!rule.source.empty()) entry.set("source", std::string(rule.source));
      entry.set("count", std::to_string(count));
      entry.set("isNone", flag(count == 0));
      if (count > 0) {
        entry.set("bar", std::to_string(std::max<std::int64_t>(2, 160 * count / most)));
        entry.set("barLabel", counted(count, "finding", "findings"));
      }
      entry.set("servers", links);
      if (linked > kMostLinks) entry.set("more", "and " + std::to_string(linked - kMostLinks) + " more");
      if (unjudged > 0)
        entry.set("unjudged", counted(static_cast<std::int64_t>(unjudged), "server", "servers"));
      list.push_back(entry);
    }
    page.set("lead",
             all == 0
                 ? "None of the rules holds for anything."
                 : "Each rule with what it holds for; the rows that it rests on stand with each server.");
    page.set("barTitle", servers.size() == 1 ? "Server" : "Servers");
    page.set("rules", list);
    write_(render(parts::overview, page));
  }

  void writeServer(std::size_t place) {
    const std::string& server = book_.servers()[place];
    const Counts& counts = counts_[place];
    writeFindings(place);
    writeDrawings(server);
    heading("FTP sites", "tblFTPSiteInfo", ItemKind::kSite, server, counts.sites);
    std::int64_t count = 0;
    book_.forEach("tblFTPSiteInfo", server, [&](const Cells& site) {
      writeSite(anchor(place) + "-site-" + std::to_string(++count), server, site);
    });
    heading("Application pools", "tblAppPoolInfo", ItemKind::kPool, server, counts.pools);
    count = 0;
    book_.forEach("tblAppPoolInfo", server, [&](const Cells& pool) {
      writePool(anchor(place) + "-pool-" + std::to_string(++count), server, pool);
    });
    writeExtensions(server);
    writeProblems(server);
    write_("</section>\n");
  }

  void heading(const std::string& title, std::string_view table, ItemKind kind, const std::string& server,
               std::int64_t count) {
    write_("<h3>" + title + " <span class=\"faint\">" + std::to_string(count) + "</span></h3>\n");
    if (count == 0) {
      write_(book_.coverage().hasSome(server, table, kind) ? "<p class=\"faint\">None.</p>\n"
                                                           : "<p class=\"unknown\">Not collected.</p>\n");
    }
  }

  // Judges the server, and writes as it goes.
  void writeFindings(std::size_t place) {
    const std::string& server = book_.servers()[place];
    const Counts& counts = counts_[place];
    data page, unjudged{data::type::list};
    page.set("anchor", anchor(place));
    page.set("name", harmless(server));
    page.set("hasFindings", flag(!counts.findings.empty()));
    write_(render(parts::server_start, page));
    marks_.clear();
    const Rule* rule = nullptr;
    bool isUnjudged = false;
    const auto close = [&] {
      if (rule != nullptr) write_(parts::rule_end);
      rule = nullptr;
    };
    const auto found = [&](const Finding& finding) {
      if (finding.rule != rule) {
        close();
        rule = finding.rule;
        data entry;
        entry.set("title", std::string(rule->title));
        entry.set("why", std::string(rule->why));
        entry.set("count", std::to_string(counts.findings.at(rule)));
        write_(render(parts::rule_start, entry));
      }
      if (finding.thing == "site" || finding.thing == "pool")
        marks_[std::string(finding.thing) + '\n' + finding.name].push_back(finding.rule);
      data each, rows{data::type::list};
      each.set("thing", std::string(finding.thing));
      each.set("subject", harmless(finding.name));
      for (const std::string& text : finding.rows) {
        data row;
        row.set("row", harmless(text));
        rows.push_back(row);
      }
      each.set("rows", rows);
      write_(render(parts::finding, each));
    };
    const auto notJudged = [&](const Unjudged& each) {
      data entry;
      entry.set("title", std::string(each.rule->title));
      entry.set("reason", harmless(each.reason));
      unjudged.push_back(entry);
      isUnjudged = true;
    };
    judge(book_.snapshot(), server, book_.notKnown(), book_.coverage(), {found, notJudged});
    close();
    if (!isUnjudged) return;
    data rest;
    rest.set("unjudged", unjudged);
    write_(render(parts::unjudged, rest));
  }

  void writeDrawings(const std::string& server) {
    Drawing pools, content;
    book_.forEach("tblAppPoolInfo", server,
                  [&](const Cells& pool) { pools.left(pool.at(inventory::kPoolColumn)); });
    book_.forEach("tblAppliedObject", server, [&](const Cells& object) {
      const std::string path = object.isUnknown("Local path") ? "" : object.at("Local path");
      pools.join(pools.left(object.at(inventory::kPoolColumn)),
                 pools.right(object.at("Object name") + (path.empty() ? "" : " \u2013 " + path),
                             path.starts_with("\\\\") ? "share" : ""));
    });
    std::unordered_map<std::string, std::size_t> sites;
    book_.forEach("tblFTPSiteInfo", server, [&](const Cells& site) {
      const std::string id = site.at(inventory::kSiteColumn);
      sites[id] = content.left(id + " \u2013 " + site.at("FTP site name"));
    });
    for (const char* const table : {"tblHomeDirectorySetting", "tblvirtualDirectory"}) {
      book_.forEach(table, server, [&](const Cells& row) {
        const auto site = sites.find(row.at(inventory::kSiteColumn));
        if (site == sites.end() || row.isUnknown("Path") || row.at("Path").empty()) return;
        const std::string root = rootOf(row.at("Path"));
        content.join(site->second, content.right(root, root.starts_with("\\\\") ? "share" : ""),
                     !row.isUnknown("Write") && row.at("Write") == "Yes");
      });
    }
    if (!pools.empty())
      write_(pools.html("Application pools and what they serve; a network share is coloured"));
    if (!content.empty())
      write_(content.html(
          "FTP sites and the drives and shares that their directories lead to; a red line: may be "
          "written to"));
  }

  // The fields of a row but for what names it.
  void addGroup(data& groups, std::string_view title, const std::vector<Cells>& rows,
                const std::string& server, std::string_view table, ItemKind kind, const std::string& item) {
    data result, fields{data::type::list}, reasons{data::type::list};
    result.set("title", std::string(title));
    if (rows.empty()) {
      const Strings why = book_.notKnown().whyMissing(server, table, item);
      result.set("missing", !book_.coverage().has(server, table, kind, item) ? "Not collected."
                            : why.empty()                                    ? "Nothing stands here."
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

  template <typename Add>
  static void addFields(const std::vector<Cells>& rows, const Add& add) {
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

  void addMarks(data& page, const std::string& key) {
    data marks{data::type::list};
    if (const auto found = marks_.find(key); found != marks_.end()) {
      for (const Rule* const rule : found->second) {
        data mark;
        mark.set("mark", std::string(rule->title));
        marks.push_back(mark);
      }
    }
    page.set("marks", marks);
  }

  void writeSite(const std::string& id, const std::string& server, const Cells& site) {
    const std::string identifier = site.at(inventory::kSiteColumn), name = site.at("FTP site name");
    data page, groups{data::type::list};
    page.set("anchor", id);
    page.set("name", name.empty() ? "(no name)" : shown(site, "FTP site name"));
    page.set("identifier", "site " + harmless(identifier));
    addMarks(page, "site\n" + identifier + " (" + name + ")");
    for (const Tab& tab : kSiteTabs) {
      const auto rows = book_.rows(tab.table, server, inventory::kSiteColumn, identifier);
      if (tab.table == "tblGeneral" && !rows.empty()) {
        const Cells& row = rows.front();
        page.set("address",
                 shown(row, "IP Address") + " : " + shown(row, "TCP Port") + ", " + shown(row, "State"));
      }
      addGroup(groups, tab.title, rows, server, tab.table, ItemKind::kSite, identifier);
    }
    page.set("groups", groups);
    const std::string tree = directories(server, identifier);
    page.set("hasTable", flag(!tree.empty()));
    page.set("tableTitle", "Virtual directories");
    page.set("table", tree);
    write_(render(parts::site, page));
  }

  // The virtual directories of a site as nested lists.
  std::string directories(const std::string& server, const std::string& site) {
    const auto rows = book_.rows("tblvirtualDirectory", server, inventory::kSiteColumn, site);
    std::unordered_map<std::string, std::vector<Cells>> security;
    for (Cells& row : book_.rows("tblvirtualDirSecurity", server, inventory::kSiteColumn, site))
      security[pathOf(row)].push_back(std::move(row));
    if (rows.empty()) {
      if (!book_.coverage().has(server, "tblvirtualDirectory", ItemKind::kSite, site))
        return "<p class=\"unknown\">Not collected.</p>\n";
      const Strings why = book_.notKnown().whyMissing(server, "tblvirtualDirectory", site);
      return why.empty() ? ""
                         : "<p class=\"unknown\">Not known: " + escaped(harmless(why.front())) + "</p>\n";
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

  static std::string pathOf(const Cells& row) {
    return inventory::folded(row.at(inventory::kPathColumn) + "/" + row.at("Directory name"));
  }

  static std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
      switch (c) {
        case '&':
          result += "&amp;";
          break;
        case '<':
          result += "&lt;";
          break;
        case '>':
          result += "&gt;";
          break;
        case '"':
          result += "&quot;";
          break;
        case '\'':
          result += "&#39;";
          break;
        default:
          result += c;
      }
    }
    return result;
  }

  static std::string directory(const Cells& row,
                               std::unordered_map<std::string, std::vector<Cells>>& security, bool withPath) {
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

  void writePool(const std::string& id, const std::string& server, const Cells& pool) {
    const std::string name = pool.at(inventory::kPoolColumn);
    data page, groups{data::type::list};
    page.set("anchor", id);
    page.set("name", harmless(name));
    addMarks(page, "pool\n" + name);
    for (const Tab& tab : kPoolTabs) {
      const auto rows = book_.rows(tab.table, server, inventory::kPoolColumn, name);
      if (tab.table == "tblGeneral" && !rows.empty()) page.set("address", shown(rows.front(), "State"));
      addGroup(groups, tab.title, rows, server, tab.table, ItemKind::kPool, name);
    }
    page.set("groups", groups);
    const auto applications = book_.rows("tblAppliedObject", server, inventory::kPoolColumn, name);
    page.set("hasTable", flag(true));
    page.set("tableTitle", "Applications");
    if (applications.empty()) {
      const Strings why = book_.notKnown().whyMissing(server, "tblAppliedObject", name);
      const bool isCollected = book_.coverage().has(server, "tblAppliedObject", ItemKind::kPool, name);
      page.set("table", !isCollected ? "<p class=\"unknown\">Not collected.</p>\n"
                        : why.empty()
                            ? "<p class=\"faint\">None.</p>\n"
                            : "<p class=\"unknown\">Not known: " + escaped(harmless(why.front())) + "</p>\n");
    } else {
      page.set("table", table(parts::applications, applications,
                              {"Object name", "Object type", "", "State", "Local path"}));
    }
    write_(render(parts::site, page));
  }

  // An empty name stands for the address and the port.
  static std::string table(const char* part, const std::vector<Cells>& rows,
                           const std::vector<std::string_view>& columns) {
    data page, list{data::type::list};
    for (const Cells& row : rows) {
      data entry, cells{data::type::list};
      for (const std::string_view column : columns) {
        data cell;
        if (column.empty()) {
          const std::string port = shown(row, "TCP port"), ip = shown(row, "IP address");
          cell.set("value",
                   row.at("TCP port").empty() && !row.isUnknown("TCP port") ? ip : ip + " : " + port);
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

  void writeExtensions(const std::string& server) {
    const auto rows = book_.rows("tblWSExtension", server);
    if (!rows.empty()) {
      write_(table(parts::extensions, rows,
                   {"Web service extension", "Description", "Status", "Required files path", "File access"}));
      return;
    }
    heading("Web service extensions", "tblWSExtension", ItemKind::kNone, server, 0);
  }

  void writeProblems(const std::string& server) {
    auto rows = book_.own("Problems", server, kMostProblems + 1);
    if (rows.empty()) return;
    data page, list{data::type::list};
    const std::size_t shownRows = std::min(rows.size(), kMostProblems);
    for (std::size_t at = 0; at < shownRows; ++at) {
      auto& row = rows[at];
      data entry;
      const std::string item = row["Item"].empty() ? "" : row["Item kind"] + " " + row["Item"];
      entry.set("where", harmless(row["Node"].empty() ? item : row["Node"]));
      entry.set("table", harmless(row["Table"]));
      entry.set("property", harmless(row["Property"]));
      entry.set("number", harmless(row["Number"]));
      entry.set("message", harmless(row["Message"]));
      entry.set("isNote", flag(row["Kind"] == "note"));
      list.push_back(entry);
    }
    page.set("rows", list);
    if (rows.size() > kMostProblems) {
      const std::int64_t all =
          book_.count("select count(*) from Problems where \"Server name\" = ?1", server);
      page.set("more", "The first " + std::to_string(kMostProblems) + " of " + std::to_string(all) +
                           "; 'iisinventory show Problems' has them all.");
    }
    write_(render(parts::problems, page));
  }

  struct Counts {
    std::int64_t sites = 0;
    std::int64_t pools = 0;
    std::map<const Rule*, std::int64_t> findings;
    std::set<const Rule*> unjudged;
  };

  Book& book_;
  const Write write_;
  std::vector<Counts> counts_;
  std::unordered_map<std::string, std::vector<const Rule*>> marks_;
};

// A file that takes another one's place when it is whole.
class NewFile {
 public:
  explicit NewFile(std::filesystem::path path)
      : path_(std::move(path)), made_(path_.string() + "." + std::to_string(::getpid()) + ".new") {
    if (std::filesystem::is_directory(path_)) fail("it is a directory");
    stream_.open(made_, std::ios::binary | std::ios::trunc);
    if (!stream_) fail(std::generic_category().message(errno));
  }
  ~NewFile() {
    std::error_code ignored;
    if (!isDone_) std::filesystem::remove(made_, ignored);
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  void write(std::string_view text) {
    if (!stream_.write(text.data(), static_cast<std::streamsize>(text.size())))
      fail(std::generic_category().message(errno));
  }

  void finish() {
    stream_.close();
    if (!stream_) fail(std::generic_category().message(errno));
    std::error_code error;
    std::filesystem::rename(made_, path_, error);
    if (error) fail(error.message());
    isDone_ = true;
  }

 private:
  [[noreturn]] void fail(const std::string& why) const {
    throw std::runtime_error("can't write '" + path_.string() + "': " + why);
  }

  const std::filesystem::path path_;
  const std::filesystem::path made_;
  std::ofstream stream_;
  bool isDone_ = false;
};

}  // namespace

void report(const ReportOptions& options, Output& output) {
  std::optional<NewFile> file;
  if (!options.output.empty()) file.emplace(options.output);
  const PrivateFolder folder;
  std::optional<Book> book;
  try {
    book.emplace(options, folder.path());
  } catch (const inventory::Unreachable&) {
    // Once more, as a whole.
    book.emplace(options, folder.path());
  }
  book->open();
  Page(*book, [&](std::string_view text) { file ? file->write(text) : output.write(text); }).write();
  if (file) file->finish();
  output.flush();
}

}  // namespace host
