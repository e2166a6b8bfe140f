// Publication into an inventory: the whole collection of a server, or the previous one.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "inventory/catalog/views.h"
#include "inventory/inventory.h"
#include "inventory/names.h"
#include "tests/support/collection.h"
#include "tests/support/process.h"
#include "tests/support/table_row_source.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using sqlite::Database;
using Strings = std::vector<std::string>;
using test::Arguments;
using test::dropFileCapabilities;
using test::readAllRows;
using test::Result;
using test::TableRowSource;

const std::string kLegacy = SAMPLES_DIRECTORY "/LEGACY/MetaBase.xml";

class Publication : public testing::Test {
 protected:
  // Generates a server in a state: rows of different states differ, except for the names of pools.
  std::string generateState(int number, int sites = 3, int pools = 2) const {
    test::MetabaseOptions options;
    options.seed = static_cast<std::uint64_t>(number);
    options.sites = sites;
    options.pools = pools;
    const std::string name = std::to_string(number);
    test::generateMetabase(folder_, name, options);
    std::string text = test::contents(folder_ / (name + ".xml"));
    const std::pair<const char*, std::string> changes[] = {
        {"FTP site number", "State " + name + " site"},
        {"IUSR_SERVER", "IUSR_" + name},
        {"Good bye", "Good bye " + name},
        {"LogExtFileTime", number % 2 == 0 ? "LogExtFileHost" : "LogExtFileReferer"},
        {",Extension ", ",State " + name + " extension "},
        {"D:", name + ":"},
        {"CPULimit", "PingInterval=\"" + name + "\" CPULimit"}};
    for (const auto& [what, with] : changes) text = test::replaced(text, what, with);
    return folder_.file(name + ".xml", text);
  }

  // A modified copy of a file; by default each site has a problem.
  std::string modifiedCopy(const std::string& file, const char* what = "ServerBindings=\":200",
                           const std::string& with = "ServerBindings=\"x\" Own=\"") const {
    return folder_.file("changed.xml", test::replaced(test::contents(file), what, with));
  }

  // Runs the program and expects an exit status and, if given, words.
  Result collect(Arguments arguments, int status = 0, const std::string& words = "",
                 const std::function<void()>& prepare = {}) const {
    arguments.insert(arguments.begin(), "collect");
    arguments.insert(arguments.end(), {"--database", database_.string()});
    const Result result = test::runExpecting(folder_, arguments, status, words, prepare);
    EXPECT_TRUE(fs::is_empty(folder_ / "temporary"));
    return result;
  }

  Strings rows() const { return readAllRows(database_); }

  Strings values(const std::string& sql) const {
    Database database(database_, Database::Mode::kReadOnly, {});
    auto statement = database.prepare(sql);
    Strings found;
    while (statement.step()) found.emplace_back(statement.text(0).value_or("-"));
    return found;
  }
  std::string value(const std::string& sql) const {
    const Strings found = values(sql);
    return found.empty() ? "" : found.front();
  }

  void execute(const std::string& sql) const {
    Database(database_, Database::Mode::kCreate, {}).execute(sql);
  }

  // Runs another command on the database. Returns all output.
  std::string runCommand(Arguments arguments, int status = 0, const std::string& words = "") const {
    arguments.insert(arguments.end(), {"--database", database_.string()});
    const Result result = test::runExpecting(folder_, arguments, status, words);
    return result.out + result.err;
  }

  const test::Folder folder_;
  fs::path database_ = folder_.folder("kept") / "inventory.db";
};

TEST_F(Publication, ReplacesOnlyWhatTheSelectionCovers) {
  // Only the second state has site 4 and pool 3.
  const std::string files[] = {generateState(1), generateState(2, 4, 3)};
  const fs::path kept = database_, whole = folder_ / "whole.db";
  database_ = whole;
  collect({"A=" + files[1]});
  const struct {
    Arguments options;
    // The tables selected of sites, of pools and of neither; the selected items. "*" and "" mean all.
    std::string tables[3], items[3] = {};
  } cases[] = {
      {{"--only", "Web Service Extensions"}, {"", "", "*"}},
      {{"--site", "4", "--site", "2"}, {"*"}, {"'4', '2'"}},
      {{"--pool", "pool 3"}, {"", "*"}, {"", "'Pool 3'"}},
      {{"--only", "General", "--site", "3", "--pool", "Pool 2"},
       {"tblGeneral", "tblGeneral"},
       {"'3'", "'Pool 2'"}},
      {{"--only", "Virtual Directories", "--site", "1", "--only", "Applied Objects"},
       {"tblvirtualDirectory tblvirtualDirSecurity", "tblAppliedObject"},
       {"'1'"}},
  };
  const std::string_view columns[] = {inventory::kSiteColumn, inventory::kPoolColumn,
                                      inventory::kServerColumn};
  const char* const lists[] = {"tblFTPSiteInfo", "tblAppPoolInfo", ""};
  for (const auto& [options, tables, items] : cases) {
    SCOPED_TRACE(testing::PrintToString(options));
    database_ = kept;
    collect({"A=" + files[0]});
    const Strings before = rows();
    Arguments arguments = options;
    arguments.push_back("A=" + files[1]);
    collect(arguments, 2, "A is of everything, which this one does not cover (use --replace to replace it)");
    EXPECT_EQ(rows(), before);
    arguments.push_back("--replace");
    collect(arguments);
    for (const inventory::Table& table : inventory::tables()) {
      std::string wanted = "false";
      for (const std::size_t side : {0U, 1U, 2U}) {
        const bool ofItems = table.has(columns[0]) || table.has(columns[1]);
        if (side == 2 ? ofItems : !table.has(columns[side])) continue;
        const std::string item = sqlite::quotedName(columns[side]), name(table.name);
        const bool isList = name == lists[side] && tables[side] != "";
        if (tables[side] != "*" && tables[side].find(name) == std::string::npos && !isList) continue;
        wanted += " or " + item + " is not null";
        if (!isList && !items[side].empty()) wanted += " and " + item + " in (" + items[side] + ")";
      }
      Database one(kept, Database::Mode::kReadOnly, {}), other(whole, Database::Mode::kReadOnly, {});
      EXPECT_EQ(test::rowsWhere(one, table, "true"), test::rowsWhere(other, table, wanted)) << table.name;
    }
    arguments.pop_back();
    collect(arguments);
    EXPECT_EQ(value("select count(*) from Collections"), "1");
  }

  fs::remove(database_);
  collect({"A=" + files[0], "--pool", "Pool 1"});
  collect({"A=" + files[0], "--pool", "POOL 1", "--site", "1"});
  collect({"A=" + files[0], "--pool", "Pool 1"}, 2, "which this one does not cover");
}

TEST_F(Publication, RefusesSmallerCoverageAndMarksUncollectedColumns) {
  collect({"B=" + generateState(1)});
  const Strings before = rows();
  const Result result =
      collect({"A=" + generateState(2), "B=" + generateState(2), "--only", "General", "--site", "1"}, 1,
              "B: not published: the previous collection of B is of everything");
  EXPECT_NE(result.err.find("previous inventory kept: B ("), std::string::npos) << result.err;
  EXPECT_EQ(test::selectServer("B", rows()), before);
  EXPECT_EQ(test::selectServer("A", rows()).size(), 3U + 1);
  EXPECT_EQ(values("select group_concat((tcp_port is null) || (path is null) || access_incomplete, ' ') from "
                   "ftp_site where server = 'A'"),
            Strings{"011 111 111"});
  for (const Arguments& command :
       {Arguments{"findings"}, {"report"}, {"show", "Message"}, {"show", "General"}})
    runCommand(command, 0, "not collected");
  test::runExpecting(folder_, {"diff", database_.string(), "--server", "B", "--against", "A"}, 1,
                     "not collected");
}

TEST_F(Publication, KeepsTheConfiguredNumberOfCollections) {
  const auto collectAlone = [&](int number) {
    const fs::path kept = std::exchange(database_, folder_ / (std::to_string(number) + ".db"));
    collect({"srv=" + generateState(number)});
    return std::exchange(database_, kept).string();
  };
  const std::string third = collectAlone(3), fourth = collectAlone(4), fifth = collectAlone(5);
  collect({"srv=" + generateState(1)});
  runCommand({"servers", "--set-keep", "3"});
  for (const int number : {2, 3, 4, 5}) collect({(number == 4 ? "SRV=" : "srv=") + generateState(number)});
  EXPECT_EQ(rows(), readAllRows(fs::path(fifth)));
  for (const char* collections : {"collection_id from objects", "id / 4294967296 from tblGeneral",
                                  "id / 4294967296 from tblvirtualDirSecurity"}) {
    EXPECT_EQ(values("select distinct " + std::string(collections) + " order by 1"),
              (Strings{"3", "4", "5"}));
  }
  const Strings times = values("select Published from Collections order by collection_id");
  const auto shown = [&](Arguments arguments, const std::string& database) {
    arguments.insert(arguments.end(), {"--format", "csv"});
    if (arguments[0] != "diff") arguments.insert(arguments.end(), {"--database", database});
    const Result result = test::run(folder_, arguments);
    EXPECT_TRUE(result.status == 0 || result.status == 1) << result.err;
    return result.out;
  };
  const std::string database = database_.string();
  for (const char* relation : {"Message", "app_pool"})
    EXPECT_EQ(shown({"show", relation, "--at", times[0]}, database), shown({"show", relation}, third));
  EXPECT_EQ(shown({"findings", "--at", times[0]}, database), shown({"findings"}, third));
  EXPECT_EQ(shown({"diff", database}, ""), shown({"diff", fourth, fifth}, ""));
  EXPECT_EQ(shown({"diff", database, "--since", times[0]}, ""), shown({"diff", third, fifth}, ""));

  runCommand({"remove", "SRV", "--before", times[1]});
  EXPECT_EQ(values("select collection_id from Collections order by 1"), (Strings{"4", "5"}));
  runCommand({"servers", "--set-keep", "1"});
  collect({"SRV=" + generateState(1)});
  EXPECT_EQ(values("select collection_id || name from Collections join servers using (server_id)"),
            Strings{"6SRV"});
  runCommand({"remove", "srv"});
  EXPECT_EQ(rows(), Strings());
  collect({"SRV=" + generateState(1)});
  EXPECT_EQ(value("select collection_id from Collections"), "7");
}

TEST_F(Publication, IgnoresTheCaseOfServerNames) {
  collect({"\u00C4RGER=" + kLegacy, "\u00C4=" + generateState(1), "WEB=" + kLegacy}, 1);
  const Strings first = rows();
  collect({"\u00E4rger=" + kLegacy, "web=" + kLegacy}, 1, "replaced 62 rows of 2 servers ");
  EXPECT_EQ(rows().size(), first.size());
  EXPECT_EQ(values("select name from servers order by server_key"), (Strings{"web", "\u00C4", "\u00E4rger"}));
  EXPECT_EQ(values("select distinct server from ftp_site where name is not null order by 1"),
            (Strings{"web", "\u00C4", "\u00E4rger"}));
  EXPECT_NE(runCommand({"show", "Problems", "--server", "\u00C4rger"}).find("\u00E4rger "),
            std::string::npos);
  collect({"\u00C4RGER=" + kLegacy, "WEB=" + kLegacy}, 1);
  EXPECT_EQ(rows(), first);
  collect({"web01=" SAMPLES_DIRECTORY "/WEB01/MetaBase.xml", "--pool", "\u00FCBERSICHT"});
  EXPECT_EQ(values("select name from app_pool where server = 'web01' and pinging is not null"),
            Strings{"\u00DCbersicht"});
}

TEST_F(Publication, KeepsRowsWithoutObjectAndPublishesAllServersOrNone) {
  const TableRowSource directories(
      "tblvirtualDirectory",
      {{"", "1", "a"}, {"IIS://A/MSFTPSVC/1/ROOT", "1", "b"}, {"IIS://A/MSFTPSVC/1/ROOT", "1", "b"}});
  const TableRowSource pools("tblWProcessRecycling", {{"B"}, {"B", "P"}, {"B", "P"}});
  TableRowSource failing("tblvirtualDirectory");
  failing.fails = true;
  test::publish(database_.string(), {{"A", &directories}, {"B", &pools}});
  EXPECT_EQ(values("select (id & 4294967295) || [Directory name] from tblvirtualDirectory order by id"),
            (Strings{"1b", "2147483648a", "2147483649b"}));
  EXPECT_EQ(values("select (id & 4294967295) || ' ' || number from tblWProcessRecycling order by id, number"),
            (Strings{"1 1", "1 2", "2147483648 1"}));
  EXPECT_EQ(values("select \"Rows\" from Collections"), (Strings{"3", "3"}));
  runCommand({"verify"});
  const Strings before = rows();
  EXPECT_THROW(test::publish(database_.string(), {{"B", &directories}, {"A", &failing}}), std::exception);
  EXPECT_EQ(rows(), before);
}

TEST_F(Publication, RecordsUnknownColumnsAndSourceLines) {
  collect({kLegacy, SAMPLES_DIRECTORY "/WEB01/MetaBase.xml"}, 1);
  EXPECT_EQ(values("select incomplete from objects where incomplete is not null"), Strings{"|ftp_access|"});
  Strings unknown;
  for (const inventory::Table& table : inventory::tables()) {
    const std::string marks = "select not_known from " + std::string(table.name) + " where not_known <> ''";
    for (const std::string& names : values(marks)) unknown.push_back(names);
    const std::string shown = runCommand({"show", std::string(table.name), "--format", "json"});
    for (const json& row : json::parse(shown)) {
      if (row["Not known"] != "") unknown.push_back(row["Not known"]);
    }
  }
  EXPECT_EQ(
      unknown,
      (Strings{"|content_source|path|listing_style|", "Content source; Path; Directory Listing Style",
               "|grants_others|granted_addresses|denied_addresses|",
               "All computer access; Granted IP Address (Subnet mask); Denied IP Address (Subnet mask)"}));
  EXPECT_EQ(value("select parent || name from ftp_access where grants_others is null or address is null"),
            "IIS://LEGACY/MSFTPSVC/1/ROOTprivate");

  for (const std::string server : {"LEGACY", "WEB01"}) {
    Strings lines{""};
    std::ifstream file(SAMPLES_DIRECTORY "/" + server + "/MetaBase.xml");
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    const std::string of =
        " from object where node is not null and server = '" + server + "' order by object_id";
    const Strings nodes = values("select node" + of), places = values("select line" + of);
    EXPECT_EQ(nodes.size(), server == "LEGACY" ? 7U : 37U);
    for (std::size_t at = 0; at < nodes.size(); ++at)
      EXPECT_NE(inventory::folded(lines.at(std::stoul(places[at])))
                    .find(inventory::folded("\"" + nodes[at] + "\"")),
                std::string::npos)
          << nodes[at];
  }
  const std::string parents = " from object o left join object p on p.object_id = o.parent_id where ";
  EXPECT_EQ(value("select count(*)" + parents + "o.parent_id is not null and p.server is not o.server"), "0");
  EXPECT_EQ(value("select p.key" + parents + "o.key = 'HR'"), "Batch Pool");
}

TEST_F(Publication, MarksColumnsAffectedByAProblem) {
  using inventory::ObjectKind;
  const std::string root = "IIS://A/MSFTPSVC/1/ROOT";
  const auto problem = [](const char* table, ObjectKind kind, const std::string& item,
                          const std::string& node, const char* property, std::int32_t number = 0x5E) {
    return inventory::Problem{false, table, kind, item, node, property, "", number, "why", ""};
  };
  const struct {
    const char* table;
    std::vector<std::vector<inventory::Cell>> rows;
    inventory::Problem problem;
    Strings marks;  // of the rows
  } cases[] = {
      // By the property, case-insensitively, and unwritten columns; of one item, or of all.
      {"tblHomeDirectorySetting",
       {{"A", "one", "1", "s", "p", "Yes", "Yes"}, {"A", "two", "2"}},
       problem("tblHomeDirectorySetting", ObjectKind::kSite, "1", root, "accesswrite"),
       {"|may_write|logs_visits|listing_style|", ""}},
      {"tblHealth",
       {{"A", "P", "True", "1", "1", "1", "1", "1", "1"}, {"A", "Q", "True", "1", "1", "1", "1", "1", "1"}},
       problem("tblHealth", ObjectKind::kPool, "", "", "PingInterval"),
       {"|ping_seconds|", "|ping_seconds|"}},
      // The columns of a pool in a table shared with sites.
      {"tblGeneral",
       {{"A", "one", "1"}, {"A", {}, {}, {}, {}, {}, {}, "Running", "1"}},
       problem("tblGeneral", ObjectKind::kPool, "1", "", ""),
       {"", "|state|"}},
      {"tblvirtualDirectory",
       {{root, "1", "pub", "s", "p"}, {root, "1", "x"}},
       problem("tblvirtualDirectory", ObjectKind::kSite, "1", root + "/PUB", "Path"),
       {"|content_source|path|may_read|may_write|logs_visits|", ""}},
      // Missing pieces of a text are empty.
      {"tblAppliedObject",
       {{"A", "P", "W", "Web site", "(All)", ""}, {"A", "P", "shop", "Virtual directory", "", ""}},
       problem("tblAppliedObject", ObjectKind::kPool, "P", "IIS://A/W3SVC/4", "ServerBindings", 9),
       {"|ip_address|tcp_port|", ""}},
      {"tblWSExtension",
       {{"A", "X", "d", "Allowed", "", "Allowed"}, {"A", "Y", "d", "Allowed", "f", "Allowed"}},
       problem("tblWSExtension", ObjectKind::kNone, "", "", "", 9),
       {"|file|", ""}}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.table);
    const TableRowSource rows(each.table, each.rows);
    inventory::Collected collected;
    collected.origin.server = "A";
    collected.rows = &rows;
    const auto inventory = inventory::openForPublishing(database_.string(), {});
    for (const bool isNote : {true, false}) {
      collected.problems = {each.problem};
      collected.problems[0].isNote = isNote;
      inventory->publish({&collected, 1});
      const std::string order = " order by id";
      EXPECT_EQ(values("select coalesce(not_known, '') from " + std::string(each.table) + order),
                isNote ? Strings(each.marks.size()) : each.marks);
    }
  }
}

TEST_F(Publication, QueriesViewsThroughIndexes) {
  collect({kLegacy, SAMPLES_DIRECTORY "/WEB01/MetaBase.xml"}, 1);
  const inventory::Dialect dialect(inventory::Dialect::Kind::kSqlite);
  Database database(database_, Database::Mode::kReadOnly, {});
  for (const inventory::View& view : inventory::views(dialect, "selected")) {
    const std::string sql = "select * from " + view.name;
    for (const std::string& query :
         {sql + " where server = 'WEB01'",
          inventory::withViews(
              dialect, "select current_collection, name from servers where server_key = 'web01'", sql)}) {
      auto plan = database.prepare("explain query plan " + query);
      int searches = 0;
      while (plan.step()) {
        const std::string step(plan.text(3).value());
        searches += step.starts_with("SEARCH");
        if (!step.starts_with("SCAN")) continue;
        const bool isSmall = step.starts_with("SCAN servers") || step.starts_with("SCAN (subquery") ||
                             step == "SCAN s" || step == "SCAN " + view.name;
        EXPECT_TRUE(isSmall) << view.name << ": " << step;
      }
      EXPECT_GT(searches, 0) << view.name;
    }
  }
}

TEST_F(Publication, RestoresMissingTablesColumnsAndViews) {
  const std::string web01 = SAMPLES_DIRECTORY "/WEB01/MetaBase.xml";
  collect({web01});
  const Strings before = rows();
  const char* const counts =
      "select count(*) || ' ' || count(pinging) || ' ' || count(account) from app_pool";
  const std::string all = value(counts);
  execute(
      "drop view app_pool; drop view ftp_site; drop view collection;"
      "alter table tblHealth drop column \"Enable pinging\"; alter table Collections drop column Machine;"
      "drop table tblIdentity; drop table objects");
  collect({web01});
  EXPECT_EQ(rows(), before);
  EXPECT_EQ(value(counts), all);
  EXPECT_EQ(value("select count(*) from ftp_site where welcome_message is not null"), "12");
  EXPECT_NE(value("select \"Machine\" from Collections"), "-");
  EXPECT_NE(runCommand({"verify"}).find("no problems found"), std::string::npos);
  execute("drop view app_pool; create view app_pool as select 7 as answer");
  collect({web01});
  EXPECT_EQ(value(counts), all);
  execute("drop view app_pool; drop table tblIdentity; create table tblIdentity (Number)");
  collect({web01}, 2, "its table tblIdentity is not an inventory's (it has no column 'id')");
}

TEST_F(Publication, VerifyFindsMissingAndOrphanedRows) {
  collect({kLegacy, SAMPLES_DIRECTORY "/WEB01/MetaBase.xml"}, 1);
  runCommand({"servers", "--set-keep", "2"});
  collect({kLegacy}, 1);
  EXPECT_NE(runCommand({"verify"}).find("3 collections of 2 servers, no problems found"), std::string::npos);
  const fs::path good = folder_ / "good.db";
  fs::copy_file(database_, good);
  const std::pair<const char*, const char*> damages[] = {
      {"delete from tblHealth where id = (select max(id) from tblHealth)",
       "collection 2 of WEB01 has 5 rows in tblHealth, expected 6\n"},
      {"delete from Problems where id = (select min(id) from Problems)",
       "collection 1 of LEGACY has 4 rows in Problems, expected 5\n"},
      {"insert into tblPerformance (id) values (99 << 32)",
       "tblPerformance has 1 rows of collection 99, which does not exist\n"},
      {"insert into objects (collection_id, number) values (99, 1)", "1 objects of no collection\n"},
      {"delete from objects where kind = 4", "9 rows in tblWSExtension about no object\n"},
      {"update servers set current_collection = 7 where name = 'WEB01'",
       "1 servers whose current collection is missing\n"},
      {"delete from servers where name = 'LEGACY'", "2 collections of no server\n"}};
  for (const auto& [sql, words] : damages) {
    fs::copy_file(good, database_, fs::copy_options::overwrite_existing);
    execute(sql);
    runCommand({"verify"}, 1, words);
  }
  fs::copy_file(good, database_, fs::copy_options::overwrite_existing);
  const std::streamoff page = std::stol(value("select rootpage from sqlite_schema where name = 'tblHealth'"));
  std::fstream(database_, std::ios::in | std::ios::out | std::ios::binary).seekp((page - 1) * 4096)
      << std::string(4096, 'x');
  runCommand({"verify"}, 1);
  collect({"WEB01=" SAMPLES_DIRECTORY "/WEB01/MetaBase.xml"}, 2, "damaged");
}

// Readers get each collection completely, or its successor, and don't block publishing.
TEST_F(Publication, ReadersContinueWithReplacedCollections) {
  collect({"A=" + generateState(1), "B=" + generateState(1), "C=" + generateState(1)});
  const auto inventory = inventory::openForReading(database_.string(), {});
  Strings replaced, seen;
  inventory::Reader reader =
      inventory->read([&](const inventory::CollectionInfo& deleted) { replaced.push_back(deleted.server); });
  reader.forEach(reader.collections(), [&](const std::unique_ptr<inventory::ServerData> data) {
    if (data->server() == "A") {
      collect({"A=" + generateState(2), "b=" + generateState(2), "--wait", "0"});
      runCommand({"remove", "C"});
    }
    const auto message = inventory::column("tblMessageSetting", "Exit Message");
    seen.push_back(data->server() + " " + data->row(message.table, 0).text(message));
    EXPECT_EQ(data->row(message.table, 2).text(message), data->row(message.table, 0).text(message));
  });
  EXPECT_EQ(seen, (Strings{"A Good bye 1", "b Good bye 2"}));
  EXPECT_EQ(replaced, (Strings{"B", "C"}));

  const inventory::Table& table = inventory::tables()[inventory::table("tblMessageSetting")];
  seen.clear();
  std::size_t count = 0;
  const auto collections = reader.collections();
  collect({"b=" + generateState(3), "--wait", "0"});
  reader.forEachRow(table, collections, [&](const inventory::TableRow& row) {
    count += row.cell(table.find("Exit Message")) ==
             (row.collection().server == "A" ? "Good bye 2" : "Good bye 3");
  });
  EXPECT_EQ(count, 6U);
  EXPECT_EQ(replaced.size(), 3U);
}

TEST_F(Publication, RefusesForeignTablesOtherVersionsAndEmptyServers) {
  const auto isUntouched = [&](const std::vector<Arguments>& commands, const std::string& words) {
    const std::string bytes = test::contents(database_);
    for (const Arguments& command : commands) runCommand(command, 2, words);
    return test::contents(database_) == bytes;
  };
  execute(
      "create table tblGeneral (\"Server name\", State); create table Collections (\"Server name\", Rows)");
  EXPECT_TRUE(
      isUntouched({{"collect", kLegacy},
                   {"collect", kLegacy, "--force"},
                   {"show"},
                   {"servers"},
                   {"report"},
                   {"findings"},
                   {"verify"},
                   {"remove", "A"},
                   {"servers", "--set-keep", "2"}},
                  "it was written by version 1 of this program, which has another data model (collect"));
  fs::remove(database_);
  execute("create table Orders (Number); insert into Orders values (7)");
  EXPECT_TRUE(isUntouched({{"collect", kLegacy}}, "other tables but no inventory (use --force"));
  collect({"A=" + kLegacy, "--force"}, 1);
  EXPECT_EQ(value("select Number from Orders"), "7");
  collect({"A=" + kLegacy}, 1);

  const Strings before = rows();
  const std::string empty = folder_.file(
      "empty.xml",
      "<configuration><MBProperty><IIsFtpService Location='/LM/MSFTPSVC'/></MBProperty></configuration>");
  collect({"A=" + empty}, 2, "previous inventory kept: A (31 rows)");
  EXPECT_EQ(rows(), before);
  collect({"A=" + empty, "B=" + kLegacy}, 1);
  EXPECT_EQ(rows().size(), 2 * before.size());

  fs::permissions(database_.parent_path(), fs::perms::owner_read | fs::perms::owner_exec);
  collect({"A=" + kLegacy}, 2, "its directory is not writable", dropFileCapabilities);
  fs::permissions(database_.parent_path(), fs::perms::owner_all);
  execute("update settings set value = '3' where name = 'schema_version'");
  EXPECT_TRUE(isUntouched({{"collect", kLegacy}, {"collect", kLegacy, "--force"}, {"show"}, {"verify"}},
                          "version '3', this program's of 2 (use the version of the program that wrote it)"));
}

TEST_F(Publication, WaitsForLocksAsLongAsAllowed) {
  collect({"A=" + generateState(1)});
  const Strings before = rows();
  const std::string now = modifiedCopy(generateState(2));
  Database other(database_, Database::Mode::kReadWrite, {});
  const auto start = [&] {
    return std::make_unique<test::Program>(
        folder_, Arguments{"collect", "A=" + now, "--wait", "100000", "--database", database_.string()});
  };
  for (const bool reads : {true, false}) {
    std::optional<sqlite::ReadTransaction> reader;
    std::optional<sqlite::Transaction> writer;
    reads ? static_cast<void>(reader.emplace(other)) : static_cast<void>(writer.emplace(other));
    const Result result = collect({"A=" + now, "--wait", "0.01"}, 2, "locked by another process");
    EXPECT_EQ(result.out.find("list them: "), std::string::npos) << result.out;
    const auto interrupted = start();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    ::kill(interrupted->id(), SIGTERM);
    EXPECT_EQ(interrupted->wait().status, -SIGTERM);
    const auto patient = start();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_TRUE(patient->isRunning());
    EXPECT_EQ(rows(), before);
    reader.reset();
    writer.reset();
    EXPECT_EQ(patient->wait().status, 1);
    collect({"A=" + generateState(1)});
  }
}

TEST_F(Publication, IsNotBlockedByABlockedOutput) {
  collect({"A=" + generateState(1, 100)});
  const Strings before = rows();
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  ASSERT_GT(::fcntl(ends[1], F_SETPIPE_SZ, 4096), 0);
  const auto start = [&](Arguments arguments) {
    arguments.insert(arguments.end(), {"--database", database_.string()});
    return std::make_unique<test::Program>(folder_, arguments, [&] { ::dup2(ends[1], STDOUT_FILENO); });
  };
  const auto shows = start({"show", "tblvirtualDirectory"});
  char byte = 0;
  pollfd readable{ends[0], POLLIN, 0};
  while (::poll(&readable, 1, 10) == 0) ASSERT_TRUE(shows->isRunning());
  EXPECT_EQ(::read(ends[0], &byte, 1), 1);
  const int filler = ::open(("/proc/self/fd/" + std::to_string(ends[1])).c_str(), O_WRONLY | O_NONBLOCK);
  while (::write(filler, "x", 1) == 1) {
  }
  ::close(filler);
  const auto collects = start({"collect", "A=" + generateState(2)});
  while (rows() == before && collects->isRunning()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  // A kernel that does not report where a process waits reports "0".
  const std::string process = "/proc/" + std::to_string(collects->id());
  const auto isBlocked = [&] {
    const bool isAsleep = test::contents(process + "/stat").find(") S ") != std::string::npos;
    const std::string where = test::contents(process + "/wchan");
    return where.find("pipe") != std::string::npos || (isAsleep && where == "0");
  };
  while (!isBlocked()) {
    ASSERT_TRUE(collects->isRunning());
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_TRUE(shows->isRunning());
  ::kill(collects->id(), SIGINT);
  const Result result = collects->wait();
  EXPECT_EQ(result.status, -SIGINT);
  EXPECT_EQ(result.err, "iisinventory: ended by a signal; published: A; not published: none\n");
  ::close(ends[0]);
  ::close(ends[1]);
  EXPECT_EQ(shows->wait().status, 0);
  EXPECT_TRUE(fs::is_empty(folder_ / "temporary"));
}

// Gives this process a private mount namespace. Returns false if that is not permitted.
bool enterMountNamespace() {
  const std::string user = std::to_string(::getuid()), group = std::to_string(::getgid());
  if (::unshare(CLONE_NEWNS) != 0) {
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << "0 " + user + " 1";
    std::ofstream("/proc/self/gid_map") << "0 " + group + " 1";
  }
  return ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

// A small file system, unmounted by the destructor.
class SmallDisk {
 public:
  // Of that many KiB: a tmpfs, or ext2 with blocks of 1 KiB in an image file if `image` is given.
  SmallDisk(const fs::path& place, int size, const std::string& image = "") : place_(place) {
    const std::string kib = std::to_string(size), at = " '" + place.string() + "' 2>/dev/null";
    if (image.empty()) {
      there_ = ::mount("none", place.c_str(), "tmpfs", 0, ("size=" + kib + "k").c_str()) == 0;
    } else {
      const std::string make = "mkfs.ext2 -q -b 1024 '" + image + "' " + kib + " >/dev/null 2>&1";
      there_ = std::system((make + " && mount -o loop '" + image + "'" + at).c_str()) == 0;
    }
  }
  ~SmallDisk() {
    if (there_) ::umount2(place_.c_str(), MNT_DETACH);
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  explicit operator bool() const { return there_; }

  std::uintmax_t room() const { return fs::space(place_).available; }

  // Writes to a file until at most that many bytes are left.
  void fill(std::uintmax_t left) const {
    std::ofstream filler(place_ / "filler", std::ios::app);
    const std::string block(1024, 'x');
    while (filler && room() > left) filler.write(block.data(), 1024).flush();
  }

 private:
  fs::path place_;
  bool there_ = false;
};

TEST_F(Publication, IsCompleteOrKeepsThePreviousInventoryOnASmallDisk) {
  if (!enterMountNamespace()) GTEST_SKIP() << "nothing may be mounted here";
  const std::string old = generateState(1);
  const std::string now = modifiedCopy(generateState(2));
  collect({"A=" + now}, 1);
  const Strings newRows = rows();
  const fs::path former = folder_ / "former.db";
  fs::remove(database_);
  collect({"A=" + old});
  const Strings oldRows = rows();
  fs::copy_file(database_, former);

  const fs::path place = folder_.folder("disk");
  database_ = place / "inventory.db";
  const std::set<std::string> known = {"inventory.db", "TORVINLog.Log", "A.log", "filler", "lost+found"};
  int published = 0, refused = 0;
  // Collects with that many bytes left, or while the disk fills up, and checks the result.
  constexpr int kShrinking = -1;
  const auto collectWith = [&](const SmallDisk& disk, bool again, int room) {
    for (const fs::directory_entry& entry : fs::directory_iterator(place)) fs::remove(entry);
    std::error_code error;
    if (again && !fs::copy_file(former, database_, error)) return;
    if (room != kShrinking) disk.fill(static_cast<std::uintmax_t>(room));
    test::Program program(folder_, {"collect", "A=" + (again ? now : old), "--database", database_.string()});
    while (room == kShrinking && program.isRunning() && disk.room() > 0) disk.fill(disk.room() - 1);
    const Result result = program.wait();
    SCOPED_TRACE((again ? "again, " : "first, ") + std::to_string(room) + " bytes left\n" + result.out +
                 result.err);
    const bool isPublished = result.status < 2;
    ++(isPublished ? published : refused);
    EXPECT_TRUE(result.status == 2 || result.status == (again ? 1 : 0)) << result.status;
    const Strings found = rows();
    EXPECT_EQ(found, isPublished ? (again ? newRows : oldRows) : (again ? oldRows : Strings()))
        << found.size();
    EXPECT_EQ(fs::exists(database_), again || isPublished);
    if (fs::exists(database_)) {
      EXPECT_EQ(value("pragma integrity_check"), "ok");
    }
    EXPECT_EQ(result.err.find("previous inventory kept") != std::string::npos, again && !isPublished);
    for (const fs::directory_entry& entry : fs::directory_iterator(place)) {
      EXPECT_TRUE(known.contains(entry.path().filename())) << entry;
    }
  };
  // Too small, for the first collection only, and for both.
  const std::pair<int, std::string> disks[] = {
      {60, ""}, {200, ""}, {350, ""}, {800, (folder_ / "image").string()}};
  for (const auto& [size, image] : disks) {
    SCOPED_TRACE(std::to_string(size) + " KiB " + image);
    const SmallDisk disk(place, size, image);
    if (!disk) {
      std::cout << "no disk of this kind here: " << size << " KiB " << image << "\n";
      continue;
    }
    for (const bool again : {false, true}) {
      for (const int room : {1 << 30, 100000, 0, kShrinking}) collectWith(disk, again, room);
    }
  }
  std::cout << published << " published, " << refused << " refused\n";
  EXPECT_GT(published, 2);
  EXPECT_GT(refused, 5);
}

TEST_F(Publication, FailsWithoutSpaceForTemporaryFiles) {
  collect({"A=" + kLegacy}, 1);
  const Strings before = rows();
  // Long names, so that the temporary database does not stay in memory.
  const std::string small = generateState(1);
  const std::string large = modifiedCopy(generateState(2, 1000), "State 2 site", std::string(12000, 'x'));
  const auto limited = [](rlim_t kibibytes) {
    return [kibibytes] {
      const rlimit shortFiles{kibibytes * 1024, kibibytes * 1024};
      if (::setrlimit(RLIMIT_FSIZE, &shortFiles) != 0) throw std::runtime_error("no limit");
    };
  };
  collect({"A=" + small}, 2, "File too large", limited(100));
  collect({"A=" + large}, 2, "the temporary database: disk I/O error: File too large", limited(400));
  collect({"A=" + generateState(1, 300)}, 2, "inventory.db': disk I/O error: File too large", limited(400));
  if (!enterMountNamespace()) GTEST_SKIP() << "nothing may be mounted here";
  const fs::path place = folder_.folder("disk");
  const auto elsewhere = [&] { ::setenv("TMPDIR", place.c_str(), 1); };
  {
    const SmallDisk disk(place, 60);
    std::ofstream(place / "filler") << std::string(60 * 1024, 'x') << std::flush;
    const Result none = collect({"A=" + kLegacy}, 2, "No space left on device", elsewhere);
    EXPECT_NE(none.err.find("A: incomplete and not published: "), std::string::npos) << none.err;
  }
  const SmallDisk disk(place, 2048);
  const Result result = collect({"A=" + large}, 2, "the temporary database: no space left", elsewhere);
  EXPECT_NE(result.err.find("previous inventory kept"), std::string::npos) << result.err;
  EXPECT_EQ(rows(), before);
  EXPECT_TRUE(fs::is_empty(place));
  collect({"A=" + small}, 0, "", elsewhere);
}

TEST_F(Publication, SucceedsWithAnUnwritableLog) {
  const fs::path log = database_.parent_path() / "A.log";
  const std::pair<std::string, std::function<void()>> obstacles[] = {
      {"Is a directory", [&] { fs::create_directory(log); }},
      {"it is not a regular file", [&] { fs::create_symlink("/dev/full", log); }},
      {"it is a FIFO", [&] { ASSERT_EQ(::mkfifo(log.c_str(), 0600), 0); }},
      {"Permission denied", [&] { ::close(::open(log.c_str(), O_CREAT | O_WRONLY, 0400)); }},
      {"it is locked by another process",
       [&] { ASSERT_EQ(::flock(::open(log.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600), LOCK_EX), 0); }},
      {"it is a symbolic link in a directory that other users can write to",
       [&] {
         fs::permissions(log.parent_path(), fs::perms(0775));
         fs::create_symlink(folder_.file("linked", ""), log);
       }},
  };
  for (const auto& [why, make] : obstacles) {
    SCOPED_TRACE(why);
    fs::remove(database_);
    fs::remove(log);
    make();
    collect({"A=" + kLegacy, "--wait", "0"}, 1, log.string() + ": " + why, dropFileCapabilities);
    EXPECT_EQ(rows().size(), 31U);
    EXPECT_EQ(value("select count(*) || ' ' || sum(Message like 'cannot write the log%') from Problems"),
              "6 1");
  }
}

TEST_F(Publication, ReflectsTheFileAsFirstRead) {
  const std::string file = generateState(1, 1000), other = generateState(2, 1000),
                    kept = folder_ / "kept.xml";
  const std::string changed = folder_ / "changed.xml";
  fs::copy_file(file, kept);
  collect({"A=" + file});
  const Strings expected = rows();
  const std::function<void()> changes[] = {[&] { fs::rename(changed, file); },
                                           [&] { fs::resize_file(file, 1000); }, [&] { fs::remove(file); }};
  for (const auto& change : changes) {
    Result result;
    // Again if the file was changed too late.
    for (int attempt = 0; attempt < 10 && result.out.find("1 note:") == std::string::npos; ++attempt) {
      fs::copy_file(other, changed);
      fs::copy_file(kept, file, fs::copy_options::overwrite_existing);
      bool isChanged = false;
      result = test::runOnTerminal(folder_, 80, {"collect", "A=" + file, "--database", database_.string()},
                                   [&](pid_t, const std::string& shown) {
                                     if (isChanged || shown.find("Loading") == std::string::npos) return;
                                     change();
                                     isChanged = true;
                                   });
      fs::remove(changed);
      EXPECT_EQ(result.status, 0) << result.out;
    }
    EXPECT_EQ(rows(), expected);
    EXPECT_TRUE(value("select Kind || Message from Problems")
                    .ends_with("has changed since it was read; the inventory shows its earlier contents"));
    EXPECT_EQ(value("select Problems || ' ' || Notes from Collections"), "0 1");
  }
}

TEST_F(Publication, GroupsProblemsAndStoresTheirLocations) {
  std::string text =
      "<configuration><MBProperty><IIsFtpInfo Location='/LM/MSFTPSVC/Info' MajorIIsVersionNumber='6'/>";
  for (int at = 1; at <= 30; ++at) {
    // All with the same comment, so that only their order distinguishes them, and 25 with distinct values.
    const std::string site = std::to_string(at), place = " Location='/LM/MSFTPSVC/" + site;
    text += "<IIsFtpServer" + place + "' ServerComment='Same' ServerBindings='none'" +
            " LogPluginClsid='{FF160657-DE82-11CF-BC0A-00AA006111E0}' LogFilePeriod='";
    text += (at > 25 ? "1" : "x" + site) + "'/><IIsFtpVirtualDir" + place + "/ROOT' Path='C:\\f'/>";
  }
  const Result result = collect({"A=" + folder_.file("a.xml", text + "</MBProperty></configuration>")}, 1,
                                "\n26 problems in 55 places:\n"
                                "  30 x GetServerGeneralProperty, 0x9\n"
                                "      a value has too few parts (Subscript out of range)\n"
                                "      at IIS://A/MSFTPSVC/1\n"
                                "      at IIS://A/MSFTPSVC/2\n"
                                "      at IIS://A/MSFTPSVC/3\n"
                                "      and more places\n"
                                "  1 x GetLogFileSetting, 0x8000500C\n");
  EXPECT_NE(result.out.find("\n  and 6 more kinds\n"), std::string::npos) << result.out;
  const std::string shown = runCommand({"show", "problems", "--format", "csv"});
  for (const std::string site : {"1", "7", "30"}) {
    const std::string row = "\r\nA,problem,tblGeneral,site," + site + ",IIS://A/MSFTPSVC/" + site +
                            ",,GetServerGeneralProperty,0x9,a value has too few parts (Subscript out of "
                            "range),";
    EXPECT_NE(shown.find(row), std::string::npos) << shown;
  }
  EXPECT_EQ(std::count(shown.begin(), shown.end(), '\n'), 57);  // with the note on a partial export
}

}  // namespace
