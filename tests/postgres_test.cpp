// An inventory on a PostgreSQL server: equality with SQLite, concurrency, lost connections, random kills.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "inventory/catalog/views.h"
#include "inventory/inventory.h"
#include "inventory/postgres/connection.h"
#include "tests/support/postgres.h"
#include "tests/support/process.h"
#include "tests/support/proxy.h"
#include "tests/support/table_row_source.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;
using test::Arguments;
using test::Program;
using test::Proxy;
using test::Result;
using Strings = std::vector<std::string>;
using Tables = std::map<std::string, Strings, std::less<>>;

const std::string kSamples = SAMPLES_DIRECTORY;
const std::string kWeb = kSamples + "/WEB01/MetaBase.xml", kLegacy = kSamples + "/LEGACY/MetaBase.xml";
// The commit statement as sent to the server.
const std::string kCommit("commit\0", 7);

// Columns that differ between two collections of one file.
const std::set<std::string_view> kTimes = {"Started", "Published", "Seconds", "Time"};

int count(const std::string& text, const std::string& word) {
  int found = 0;
  for (std::size_t at = 0; (at = text.find(word, at)) != text.npos; at += word.size()) ++found;
  return found;
}

Arguments operator+(Arguments arguments, const Arguments& more) {
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

std::string numberOf(std::int64_t id) {
  return std::to_string(id & 0xFFFFFFFF);
}

class Postgres : public testing::Test {
 protected:
  Postgres() {
    server_.run("create role writer login; create role reader login");
    server_.run("create database fleet owner writer");
    fs::permissions(folder_.path(), fs::perms(0755));
  }

  // Every row of all kept collections in order, by table, as "SERVER#NUMBER*|value|value": the collection's
  // number among its server's, "*" for the current one, "-" for null and "?" after an unknown value.
  static Tables readInventory(const std::string& database, bool andTimes = false) {
    const auto inventory = inventory::openForReading(database, {});
    inventory::Reader reader = inventory->read();
    const auto history = reader.history();
    const std::string shown = "'" + inventory::shownName(database) + "'";
    std::map<std::string, int> counts;
    std::map<std::int64_t, std::string> names;
    for (const auto& each : history)
      names[each.id] =
          each.server + "#" + std::to_string(++counts[each.server]) + (each.isCurrent ? "*|" : "|");
    Tables all;
    const auto addTable = [&](const inventory::Table& table) {
      Strings& rows = all[std::string(table.name)];
      reader.forEachRow(table, history, [&](const inventory::TableRow& row) {
        std::string& text = rows.emplace_back(names.at(row.collection().id));
        for (std::size_t at = 0; at < table.columns.size(); ++at) {
          const std::string_view name = table.columns[at].name;
          const bool isOwn = table.kinds[0] == inventory::ObjectKind::kNone;
          if (isOwn && (name == "id" || name.ends_with("_id") || (!andTimes && kTimes.contains(name))))
            continue;
          text.append(row.cell(at).value_or("-")).append(row.isUnknown(at) ? "?|" : "|");
        }
        text = test::replaced(text, shown, "");  // in messages
      });
    };
    for (const inventory::Table& table : inventory::tables()) addTable(table);
    addTable(inventory::collectionsTable());
    addTable(inventory::problemsTable());
    Strings& objects = all["objects"];
    reader.forEach(history, [&](std::unique_ptr<inventory::ServerData> data) {
      for (const inventory::ObjectInfo& object : data->objects()) {
        objects.push_back(names.at(data->info().id) + numberOf(object.id) + "|" +
                          std::string(inventory::wordFor(object.kind)) + "|" + object.key + "|" +
                          numberOf(object.parent) + "|" + object.node() + "|" + std::to_string(object.line) +
                          object.incomplete);
      }
      for (std::size_t at = 0; at < data->problems().size(); ++at)
        objects.push_back(names.at(data->info().id) + "problem of " + numberOf(data->problemObject(at)));
    });
    return all;
  }

  Result run(const Arguments& arguments, int status = 0, const std::string& words = "",
             const std::function<void()>& prepare = {}) const {
    return test::runExpecting(folder_, arguments, status, words, [&] {
      fs::current_path(folder_.folder("logs"));
      if (prepare) prepare();
    });
  }

  // Runs a command on both kinds and expects equal inventories.
  void runBoth(const Arguments& arguments, int status = 0, const std::string& words = "") const {
    for (const std::string& database : {file_, fleet_})
      run(arguments + Arguments{"--database", database}, status, words);
    expectEqual(file_, fleet_);
  }
  void collectBoth(const Arguments& arguments, int status = 0, const std::string& words = "") const {
    runBoth(Arguments{"collect", "--log-dir", folder_.folder("logs").string()} + arguments, status, words);
  }
  static void expectEqual(const std::string& one, const std::string& other, bool andTimes = false) {
    const Tables expected = readInventory(one, andTimes), found = readInventory(other, andTimes);
    ASSERT_EQ(found.size(), expected.size());
    for (const auto& [table, rows] : expected) EXPECT_EQ(found.at(table), rows) << table;
  }
  // The stored views must select what commands select with the views' definitions.
  static void expectSameViews(const std::string& database) {
    const auto inventory = inventory::openForReading(database, {});
    const auto session = inventory->driver().read();
    const auto select = [&](const std::string& sql) {
      return session->value(inventory::withViews(session->dialect(), inventory::selectCurrent(), sql));
    };
    for (const inventory::View& view : allViews()) {
      const std::string stored = (session->dialect().isPostgres() ? "iis_inventory." : "main.") + view.name;
      EXPECT_EQ(select("select count(*) from " + view.name),
                session->value("select count(*) from " + stored));
      EXPECT_EQ(select("select count(*) from (select * from " + view.name + " except select * from " +
                       stored + ") x"),
                "0");
    }
  }
  static std::vector<inventory::View> allViews() {
    return inventory::views(inventory::Dialect(inventory::Dialect::Kind::kSqlite), "");
  }

  std::string generateMetabase(const std::string& server, int sites, int seed = 1) const {
    test::MetabaseOptions options = test::optionsForSites(sites);
    options.seed = static_cast<std::uint64_t>(seed);
    return test::generateMetabase(folder_, server, options);
  }
  Arguments collecting(const Strings& servers, const Arguments& options, const std::string& database) const {
    return Arguments{"collect", "--log-dir", folder_.folder("logs").string(), "--database", database} +
           options + servers;
  }
  std::unique_ptr<Program> start(const Strings& servers, const Arguments& options = {}) const {
    return std::make_unique<Program>(folder_, collecting(servers, options + Arguments{"--quiet"}, fleet_));
  }

  // Executes a statement before each insert of a row of a server called SLOW...
  void delayInserts(const std::string& statement) const {
    server_.run(
        "create or replace function hold_up() returns trigger language plpgsql as $$ begin if new.\"Server "
        "name\" like 'SLOW%' then " +
            statement +
            "; end if; return new; end $$; create or replace trigger holds_up before insert on "
            "iis_inventory.\"tblHealth\" for each row execute function hold_up()",
        "fleet");
  }
  // The backend process of a session of the program; "-" for none.
  std::string findSession(const std::string& condition) const {
    return server_.run(
        "select min(pid) from pg_stat_activity where application_name = 'iisinventory' and pid <> "
        "pg_backend_pid() and " +
        condition);
  }
  // Waits until a session of a program waits for an event.
  int waitForSession(const Program& program, const std::string& event) const {
    std::string backend;
    while ((backend = findSession("wait_event = '" + event + "'")) == "-") {
      if (!program.isRunning()) throw std::runtime_error("the program has ended");
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return std::stoi(backend);
  }
  std::string collectionCount() const {
    return server_.run("select concat(count(*), ' ', max(collection_id)) from iis_inventory.\"Collections\"",
                       "fleet");
  }

  const test::Folder folder_;
  test::PostgresServer server_{std::make_unique<test::Folder>(),
                               {"log_min_messages=error", "log_connections=on"}};
  const std::string file_ = (folder_ / "inventory.db").string();
  const std::string fleet_ = server_.address("writer", "fleet");
  const std::string proxied_ = "postgresql://writer@/fleet?host=" + folder_.path().string();
};

TEST_F(Postgres, StoresTheSameRowsAsSqlite) {
  collectBoth({kWeb, kLegacy, generateMetabase("LARGE", 200)}, 1);
  const std::string there = server_.address("writer", "copies"), back = (folder_ / "back.db").string();
  server_.run("create database copies owner writer");
  const Arguments dry = {"collect", "--dry-run", kWeb, "--database", there};
  run(dry, 0, " never ");
  const auto expectCopied = [&] {
    expectEqual(file_, there, true);
    expectEqual(file_, back, true);
    run({"diff", file_, back});
    run({"diff", fleet_, there});
    const auto listed = [&](const std::string& database) {
      return run({"servers", "--history", "--format", "json", "--database", database}).out;
    };
    EXPECT_EQ(listed(there), listed(file_));
    EXPECT_EQ(listed(back), listed(file_));
  };
  run({"copy", "--from", file_, "--to", there}, 0, "copied 3 servers");
  EXPECT_EQ(run(dry).out.find(" never "), std::string::npos);
  run({"copy", "--from", there, "--to", back}, 0, "copied 3 servers");
  expectCopied();
  runBoth({"servers", "--set-keep", "3"}, 0, "keeps 3 collections");
  const std::string small = generateMetabase("LARGE", 20, 2);
  collectBoth({small});
  collectBoth({small, "--only", "General", "--replace"});
  for (const std::string& database : {file_, fleet_}) expectSameViews(database);
  collectBoth({small, "--site", "3"}, 2, "--replace");
  collectBoth({small, "--site", "3", "--pool", "pool 1", "--replace"});
  collectBoth({"web01=" + kWeb, "--pool", "\u00DCBERSICHT", "--site", "2", "--replace"});
  collectBoth({"web01=" + kLegacy, "--only", "Virtual Directories", "--site", "1", "--replace"}, 1);
  run({"copy", "--from", file_, "--to", there}, 0, "replaced ");
  run({"copy", "--from", there, "--to", back}, 0, "replaced ");
  expectCopied();
  EXPECT_EQ(readInventory(back).at("Collections").back().find("web01#3*|web01|"), 0U);
  const std::string one = (folder_ / "one.db").string();
  run({"collect", generateMetabase("OTHER", 3), "--database", one});
  run({"copy", "--from", there, "--to", one, "--server", "WEB01", "--server", "none"}, 1, "no server 'none'");
  run({"remove", "OTHER", "--database", one});
  run({"remove", "LARGE", "LEGACY", "--database", back});
  expectEqual(back, one, true);
  for (const std::string& database : {there, back, one})
    run({"verify", "--database", database}, 0, "no problems found");
  server_.run(
      "delete from iis_inventory.objects where (collection_id << 32) + number in (select min(id) from "
      "iis_inventory.\"tblHealth\"); delete from iis_inventory.\"tblFTPSiteInfo\"",
      "copies");
  run({"verify", there}, 1, "1 rows in tblHealth about no object");
  run({"verify", there}, 1, "of WEB01 has 0 rows in tblFTPSiteInfo, expected");
}

TEST_F(Postgres, PrintsTheSameAsForSqlite) {
  run({"collect", kWeb, kLegacy, "--database", file_}, 1);
  run({"servers", "--set-keep", "2", "--database", file_});
  run({"collect", "LEGACY=" + kWeb, "--database", file_});
  run({"copy", "--from", file_, "--to", fleet_}, 0, "copied 2 servers");
  Arguments show = {"show", "Collections", "Problems"};
  for (const inventory::Table& table : inventory::tables()) show.emplace_back(table.name);
  for (const inventory::View& view : allViews()) show.push_back(view.name);
  for (const Arguments& command : {show, {"servers", "--history"}}) {
    const auto printed = [&](const std::string& database) {
      return run(command + Arguments{"--format", "json", "--database", database}).out;
    };
    EXPECT_EQ(printed(fleet_), printed(file_));
  }
  EXPECT_EQ(run({"diff", fleet_, "--format", "json"}, 1).out,
            run({"diff", file_, "--format", "json"}, 1).out);
  const auto page = [&](const std::string& database) {
    run({"report", "--database", database, "--output", (folder_ / "report.html").string()});
    return test::replaced(test::contents(folder_ / "report.html"), inventory::shownName(database), "");
  };
  EXPECT_EQ(page(file_), page(fleet_));
  const auto query = [&](const std::string& select) {
    return server_.run("set search_path = iis_inventory; select concat_ws(',', " + select, "fleet");
  };
  EXPECT_EQ(query("tcp_port + 1, not may_write, denied_addresses) from ftp_site where server = 'WEB01' and "
                  "identifier = 8"),
            "22,t,192.168.40.0 (255.255.255.0), 192.168.41.12, 10.128.0.0 (255.128.0.0)");
  EXPECT_EQ(query("count(*), bool_and(published >= started)) from collection"), "2,t");
}

TEST_F(Postgres, EvaluatesRulesAsOnSqlite) {
  // The collation of the database doesn't matter.
  server_.run("drop database fleet");
  server_.run("create database fleet owner writer template template0 locale_provider icu icu_locale 'en-US'");
  run({"collect", kWeb, kLegacy, generateMetabase("MANY", 30), "--database", file_}, 1);
  run({"copy", "--from", file_, "--to", fleet_}, 0, "copied 3 servers");
  server_.run(
      "grant usage on schema iis_inventory to reader; grant select on all tables in schema iis_inventory to "
      "reader",
      "fleet");
  const std::string header =
      "-- title: T\n-- severity: low\n-- category: security\n-- why: W\n-- fix: F\n-- requires: "
      "app_pool.state";
  const std::string functions = folder_.file("functions.sql", header + R"_(
-- columns: a text, b integer, c boolean, d text, e integer, f text, g boolean
-- param: least integer -1
-- param: prefix text ÜB
-- param: yes boolean true
select object_id, :yes and length(name) > :least as holds,
  fold(name) || '|' || max(name) over (partition by server) || '|' || fold('ÅЖΩ') as a,
  strpos(name, 'Pool') + coalesce(abs(idle_minutes), 0) * 7 / 2 as b,
  starts_with(fold(name), fold(:prefix)) or fold(name) between 'a' and 'd' as c,
  ltrim(rtrim(replace(substr(name, 2, 5), 'o', '')), 'a')
    || lag(name) over (partition by server order by fold(name), object_id) as d,
  row_number() over (partition by server order by name desc, object_id)
    + (select count(distinct state) + sum(length(state)) from app_pool) as e,
  (select string_agg(x.state, ', ') from ftp_site x where x.server = p.server and x.state = 'Stopped')
    || nullif(name, :prefix) as f,
  (select bool_or(may_write) and not bool_and(logs_visits) from ftp_site x where x.server = p.server) as g
from app_pool p
)_");
  const std::string reader = server_.address("reader", "fleet");
  const auto json = [&](const std::string& database) {
    return run({"findings", "--rule", "*", "--rules", functions, "--format", "json", "--database", database})
        .out;
  };
  const std::string found = json(file_);
  EXPECT_EQ(json(reader), found);
  EXPECT_GT(count(found, "\"rule\":\"functions\""), 5);

  const std::string slow = folder_.file(
      "slow.sql",
      header +
          "\nselect a.object_id, count(*) > 0 as holds from object a, object b, object c, object d, object "
          "e, object f group by a.object_id");
  run({"findings", "--rules", slow, "--rule", "slow,stopped", "--rule-timeout", "0.3", "--database", reader},
      2, "slow.sql:7: the query took too long");
  EXPECT_NE(server_.log().find("statement timeout"), std::string::npos);
  // A rule that only PostgreSQL refuses does not affect others.
  const std::string refused =
      folder_.file("refused.sql", header + "\nselect object_id, name = 1 as holds from app_pool");
  const Result mixed =
      run({"findings", "--rules", refused, "--rule", "refused,stopped", "--database", reader}, 2,
          "refused.sql:7: ");
  EXPECT_NE(mixed.out.find("[stopped]"), std::string::npos) << mixed.out;

  server_.run("create role may_read login in role pg_read_server_files; grant writer to may_read");
  for (const char* role : {"master", "may_read"}) {
    const Arguments findings = {"findings", "--database", server_.address(role, "fleet")};
    run(findings);
    run(findings + Arguments{"--rules", functions}, 2, "the database role may read files or run programs");
    run(findings + Arguments{"--rules", functions, "--force"}, 0, "[functions]");
  }
}

TEST_F(Postgres, AcceptsNamesWithAnyCharacters) {
  std::string text = test::replaced(test::contents(kWeb), "Partner exchange",
                                    "it&apos;s &quot;so&quot;&#10;%d\\N $1 \u00DF\u0130\U0001F600");
  text = test::replaced(text, "Intranet Pool", "Pool ' &quot; %s \\. \u00C4");
  text = test::replaced(text, "D:\\Sales", "D:\\&apos;\\&quot;\\%\\\u4E2D&#9;x");
  const std::string file = folder_.file("names.xml", text);
  // The component inserts server names into SQL without escaping.
  collectBoth({"it's \"so\"=" + file, "100%s;%n=" + file, "$1 {a,b} #x=" + file,
               "\u00C4rger\u4E2D\U0001F600=" + file, "two  blanks .=" + file},
              1);
  collectBoth({"\u00C4RGER\u4E2D\U0001F600=" + file, "--pool", "pool ' \" %s \\. \u00E4", "--replace"});
  collectBoth({"\u00E4rger\u4E2D\U0001F600=" + file});
  EXPECT_EQ(server_.run("select count(*) from iis_inventory.servers", "fleet"), "5");
}

TEST_F(Postgres, ReportsUnstorableValuesAndKeepsTheRest) {
  const std::string large(std::size_t{33} << 20, 'x');
  using namespace std::string_view_literals;
  const test::TableRowSource rows(
      "tblMessageSetting", {{"A", "one", "1", "a\0b"sv, "half \xED\xA0\x80 a pair", large, "\u00FCbrig"},
                            {"A", "two", "2", "", std::nullopt, "fine"}});
  for (const std::string& database : {file_, fleet_})
    EXPECT_EQ(test::publish(database, {{"A", &rows}}).at(0).problems.size(), 3U);
  const Tables all = readInventory(fleet_);
  EXPECT_EQ(all.at("tblMessageSetting"),
            (Strings{"A#1*|A|one|1|a\uFFFDb|half \uFFFD\uFFFD\uFFFD a pair|-|\u00FCbrig|",
                     "A#1*|A|two|2||-|fine|-|"}));
  EXPECT_EQ(all.at("Problems")
                .at(2)
                .find("A#1*|A|problem|tblMessageSetting|site|1||Banner Message|||the value of "),
            0U);
  expectEqual(file_, fleet_);
}

TEST_F(Postgres, KeepsThePreviousInventoryIfTheServerIsFull) {
  const test::PostgresServer small(std::make_unique<test::Folder>(), {"log_min_messages=error"}, 12);
  const std::string database = small.address("master", "postgres");
  std::mt19937 random;
  const auto publish = [&](std::size_t size) {
    test::TableRowSource rows("tblMessageSetting");
    std::vector<std::string> texts(400);
    for (std::string& text : texts) {
      while (text.size() < size) text += static_cast<char>(' ' + random() % 95);
      rows.cells.push_back({"A", "one", "1", text});
    }
    return test::publish(database, {{"A", &rows}}).at(0).added.at(inventory::table("tblMessageSetting"));
  };
  EXPECT_EQ(publish(10), 400);
  const Tables before = readInventory(database, true);
  EXPECT_THROW(publish(40000), inventory::Error);
  EXPECT_NE(small.log().find("File too large"), std::string::npos);
  EXPECT_EQ(readInventory(database, true), before);
  EXPECT_EQ(publish(20), 400);
}

TEST_F(Postgres, RenamesAndRemovesServers) {
  const std::string straight = (folder_ / "straight.db").string();
  collectBoth({"\u00C4rger=" + kLegacy, "one=" + kWeb}, 1);
  run({"collect", "it's=" + kLegacy, "One=" + kWeb, "--database", straight}, 1);
  runBoth({"rename", "one", "\u00E4RGER"}, 2, "already");
  runBoth({"rename", "on", "two"}, 2, "did you mean 'one'?");
  runBoth({"remove", "one", "two"}, 2, "no server 'two'");
  runBoth({"rename", "\u00E4RGER", "it's"});
  runBoth({"rename", "ONE", "One"});
  expectEqual(straight, fleet_);
  // A new collection replaces all rows, and older collections can be removed by time.
  runBoth({"servers", "--set-keep", "2"});
  collectBoth({"IT'S=" + kLegacy}, 1);
  collectBoth({"\u00C4RGER=" + kLegacy}, 1);
  runBoth({"remove", "it's", "--before", "2000-01-01"}, 0, ": 0 rows");
  runBoth({"remove", "it's", "--before", "2999-01-01"}, 0, "rows");
  EXPECT_EQ(readInventory(fleet_).at("Collections").size(), 3U);
  runBoth({"remove", "It's", "one"}, 0, "removed 2 servers");
  for (const auto& [table, rows] : readInventory(fleet_)) {
    for (const std::string& row : rows) EXPECT_EQ(row.find("\u00C4RGER#1*"), 0U) << table << row;
  }
}

TEST_F(Postgres, ReportsConnectionErrorsWithHints) {
  server_.run(
      "create role secret login password 'pass/geheim@1'; create role stranger login; "
      "alter role reader set default_transaction_read_only = on");
  server_.run("create database ascii owner writer encoding 'SQL_ASCII' locale 'C' template template0");
  server_.run(
      "create schema theirs; create table theirs.orders (n int); grant all on schema theirs to writer; "
      "grant all on theirs.orders to writer",
      "fleet");
  Strings many;
  for (int number = 0; number < 40; ++number) many.push_back("S" + std::to_string(number) + "=" + kWeb);
  const auto refused = [&](const std::string& database, const std::string& words,
                           const Arguments& more = {}) {
    const std::string before = server_.log();
    const Result result = run(collecting(many, more, database), 2, words, [] { ::unsetenv("PGPASSWORD"); });
    EXPECT_EQ(count(result.err, "\n"), 1) << result.err;
    EXPECT_EQ(count(result.out + result.err, "geheim") + count(result.err, "LOCATION"), 0) << result.err;
    EXPECT_LE(count(server_.log().substr(before.size()), "connection received"), 1) << words;
  };
  refused(server_.address("secret", "fleet", "wrong%2Fgeheim"), "set a password in PGPASSWORD");
  run({"show", "--database", server_.address("secret", "fleet", "wrong")}, 2, "PGPASSWORD");
  refused("postgresql://secret:pass/geheim@1@/fleet", "write '%2F' and '%40'");
  refused("postgresql://secret:%zzgeheim@/fleet", "cannot parse the database's address");
  for (const char* const pairs : {"host=db1 pass=geheim", "host=db1 password=my geheim", "password='geheim",
                                  "Server=db1;User Id=sa;Password=geheim"})
    refused(pairs, "(write postgresql://USER@HOST:PORT/NAME)");
  refused(fleet_ + "&sslmode=never", "sslmode");
  refused(server_.address("writer", "nowhere"), "create database");
  refused(server_.address("stranger", "fleet"), "create schema \"iis_inventory\" authorization stranger");
  refused(server_.address("reader", "fleet"), "default_transaction_read_only");
  refused(server_.address("writer", "ascii"), "encoding is SQL_ASCII");
  refused(fleet_, "--schema NAME", {"--schema", "theirs"});
  refused("postgresql:///fleet?host=" + folder_.path().string(), "Is the server running");
  const std::string name("server_version\0", 15);
  const Proxy proxy(folder_.path().string(), server_.socket(), [&](std::string& bytes, bool) {
    if (const std::size_t at = bytes.find(name); at != bytes.npos) bytes.replace(at + name.size(), 2, "12");
    return Proxy::Action::kPass;
  });
  refused(proxied_, "version 13 or later");
  run({"show", "--database", fleet_}, 2, "no inventory");
  EXPECT_EQ(server_.run("select count(*) from pg_tables where tablename like 'tbl%'", "fleet"), "0");

  run(collecting({kWeb}, {"--schema", "theirs", "--force"}, fleet_));
  server_.run(
      "create schema shared authorization writer; grant usage on schema shared to reader; "
      "alter default privileges for role writer in schema shared grant select on tables to reader",
      "fleet");
  run(collecting({kWeb}, {"--schema", "shared"}, fleet_));
  const auto shown = [&](const std::string& database) {
    return run({"show", "tblHealth", "--schema", "shared", "--database", database}).out;
  };
  EXPECT_EQ(shown(server_.address("reader", "fleet")), shown(fleet_));
  server_.run("alter role reader reset default_transaction_read_only");
  refused(server_.address("reader", "fleet"), "grant select, insert, update, delete", {"--schema", "shared"});
  run({"show", "--database", server_.address("stranger", "fleet"), "--schema", "shared"}, 2,
      "grant usage on schema");
}

TEST_F(Postgres, ExecutesChangesOnceAfterLostConnections) {
  const auto runLosing = [&](const Arguments& arguments, const std::string& word, Proxy::Action action,
                             int status, const std::string& words) {
    std::atomic<bool> isLost = false;
    const Proxy proxy(folder_.path().string(), server_.socket(), [&](std::string& bytes, bool toServer) {
      return toServer && bytes.find(word) != bytes.npos && !isLost.exchange(true) ? action
                                                                                  : Proxy::Action::kPass;
    });
    const Result result = run(arguments + Arguments{proxied_}, status, words);
    EXPECT_TRUE(isLost);
    EXPECT_EQ(count(result.err, "\n"), status == 2) << result.err;
    EXPECT_EQ(count(result.err, "outcome unknown"), status == 2) << result.err;
  };
  using enum Proxy::Action;
  const std::string server = generateMetabase("A", 5);
  const Arguments collect = {"collect", server, "--wait", "60", "--database"};
  run({"collect", server, generateMetabase("B", 3), "--database", file_});
  run({"collect", server, "--database", fleet_});
  runLosing(collect, kCommit, kDropAnswer, 0, "replaced");
  EXPECT_EQ(collectionCount(), "1 2");
  // Rolled back by the server, and executed again.
  runLosing(collect, kCommit, kDrop, 0, "replaced");
  EXPECT_EQ(collectionCount(), "1 4");
  const Arguments copy = {"copy", "--from", file_, "--to"};
  runLosing(copy, kCommit, kDropAnswer, 0, "copied 2 servers");
  EXPECT_EQ(collectionCount(), "2 6");
  runLosing({"rename", "A", "C", "--database"}, kCommit, kDropAnswer, 0, "renamed A to C");
  runLosing({"remove", "B", "--database"}, kCommit, kDropAnswer, 0, "removed B");
  EXPECT_EQ(readInventory(fleet_).at("Collections").at(0).find("C#1*|C|"), 0U);
  EXPECT_EQ(collectionCount(), "1 5");
  const Arguments unknown[] = {{"collect", server, "--quiet", "--wait", "0.1", "--database"},
                               {"copy", "--from", file_, "--wait", "0.1", "--server", "A", "--to"},
                               {"rename", "A", "D", "--wait", "0.1", "--database"},
                               {"remove", "D", "--wait", "0.1", "--database"}};
  for (const Arguments& arguments : unknown) runLosing(arguments, kCommit, kEnd, 2, " may or may not have ");
  EXPECT_EQ(server_.run("select string_agg(name, ' ') from iis_inventory.servers", "fleet"), "C");
}

TEST_F(Postgres, NeverShowsPasswords) {
  server_.run(
      "create role secret login password 'geheim/\u00DF@word'; grant writer to secret; "
      "alter role secret set role writer");
  const fs::path logs = folder_.folder("quiet");
  const std::string pairs =
      "host=" + server_.socket() + " dbname=fleet user=secret password='geheim/\u00DF@word'";
  std::string all;
  for (const std::string& address : {server_.address("secret", "fleet", "geheim%2F\u00DF%40word"), pairs}) {
    const Result result = run({"collect", kLegacy, "--database", address, "--log-dir", logs.string()}, 1,
                              "into postgresql://secret@/fleet");
    all += result.out + result.err;
  }
  for (const auto& log : fs::directory_iterator(logs)) all += test::contents(log.path());
  for (const auto& [table, rows] : readInventory(fleet_))
    for (const std::string& row : rows) all += row;
  all += server_.run("select string_agg(application_name || query, ' ') from pg_stat_activity");
  for (const char* part : {"geheim", "@word", "%40word"})
    EXPECT_EQ(all.find(part), std::string::npos) << part;
  // Through the environment, and through a service file.
  run({"show", "--database", server_.address("secret", "fleet")}, 0, "tblGeneral",
      [] { ::setenv("PGPASSWORD", "geheim/\u00DF@word", 1); });
  const std::string services =
      folder_.file("services", "[fleet]\nhost=" + server_.socket() + "\ndbname=fleet\nuser=writer\n");
  run({"show", "--database", "service=fleet"}, 0, "tblGeneral",
      [&] { ::setenv("PGSERVICEFILE", services.c_str(), 1); });
  run({"show", "--database", "./service=fleet"}, 2, "service=fleet'");
  folder_.file("logs/host=db1", "a file of that name");
  run({"show", "--database", "host=db1"}, 2, "host=db1'");
}

TEST_F(Postgres, PublishesEachServerOnceWithManyWriters) {
  const Strings states = {generateMetabase("ONE", 5, 1), generateMetabase("ONE", 5, 1)};
  EXPECT_EQ(start({states[0]})->wait().status, 0);
  const Tables one = readInventory(fleet_);
  std::vector<std::unique_ptr<Program>> programs;
  for (int number = 0; number < 4; ++number) {
    programs.push_back(start({states[0]}, {"--wait", "1000"}));
    programs.push_back(
        start({generateMetabase("OTHER" + std::to_string(number), 5, number + 2)}, {"--wait", "1000"}));
  }
  const auto isOne = [](const std::string& row) { return row.starts_with("ONE#"); };
  do {
    const Tables all = readInventory(fleet_);
    for (const auto& [table, rows] : one)
      EXPECT_EQ(std::ranges::count_if(rows, isOne), std::ranges::count_if(all.at(table), isOne)) << table;
  } while (std::ranges::any_of(programs, [](const auto& program) { return program->isRunning(); }));
  for (const auto& program : programs) EXPECT_EQ(program->wait().status, 0);
  EXPECT_EQ(readInventory(fleet_).at("Collections").size(), 5U);

  // Publishing a server locks out other publishers of that server only.
  inventory::postgres::Connection other(fleet_);
  other.run("begin; select pg_advisory_xact_lock(7)");
  delayInserts("perform pg_advisory_xact_lock(7)");
  const std::string slow = generateMetabase("SLOW", 5);
  const auto holding = start({slow}, {"--wait", "1000"});
  waitForSession(*holding, "advisory");
  EXPECT_EQ(start({states[1]}, {"--wait", "0.01"})->wait().status, 0);
  run(collecting({"slow" + slow.substr(4)}, {"--wait", "0.05"}, fleet_), 2,
      "another process is publishing slow");
  // Other servers of the same run are published.
  run(collecting({"SLOW" + slow.substr(4), states[0]}, {"--wait", "0.05"}, fleet_), 1,
      "SLOW: not published: another process is publishing SLOW");
  const auto patient = start({slow}, {"--wait", "1000"}), interrupted = start({slow}, {"--wait", "100000"});
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  ::kill(interrupted->id(), SIGTERM);
  EXPECT_EQ(interrupted->wait().status, -SIGTERM);
  EXPECT_TRUE(patient->isRunning() && holding->isRunning());
  other.run("commit");
  EXPECT_EQ(holding->wait().status, 0);
  EXPECT_EQ(patient->wait().status, 0);
}

TEST_F(Postgres, WaitsNoLongerThanAllowed) {
  const std::string slow = generateMetabase("SLOW", 5);
  run(collecting({slow}, {}, fleet_));
  Strings many = {slow};
  for (int number = 0; number < 99; ++number) many.push_back("S" + std::to_string(number) + slow.substr(4));
  // A lock on shared tables is waited for once.
  inventory::postgres::Connection other(fleet_);
  other.run("begin; lock table iis_inventory.\"tblHealth\"");
  run({"show", "tblHealth", "--wait", "0.2", "--database", fleet_}, 2, "use --wait to wait longer");
  const auto expectFailed = [&](const std::string& words, const std::string& database) {
    const Result result = run(collecting(many, {"--wait", "0.2"}, database), 2, words);
    EXPECT_EQ(count(result.err, words), 1) << result.err;
    EXPECT_LE(count(result.err, "\n"), 3) << result.err;
  };
  const std::string before = server_.log();
  expectFailed("cannot lock a table", fleet_);
  EXPECT_EQ(count(server_.log().substr(before.size()), "lock timeout"), 1);
  other.run("rollback");
  delayInserts("raise insufficient_privilege");
  expectFailed("grant usage", fleet_);
  const Proxy proxy(folder_.path().string(), server_.socket(), [&](const std::string& bytes, bool toServer) {
    return toServer && bytes.find("copy ") != bytes.npos ? Proxy::Action::kEnd : Proxy::Action::kPass;
  });
  expectFailed("cannot connect to", proxied_);
  EXPECT_EQ(collectionCount(), "1 1");

  // A server that hangs, and signals in the meantime.
  delayInserts("perform pg_sleep(100000)");
  const Arguments patience[] = {{"--wait", "0.1", "--server-timeout", "3"}, {}, {}, {}, {}};
  const int ends[] = {2, -SIGTERM, -SIGINT, -SIGINT, -SIGTERM};
  const char* const words[] = {"has not ended its session", "not published: SLOW", "not published: SLOW",
                               "not published: SLOW", "outcome unknown: SLOW"};
  for (std::size_t at = 0; at < std::size(ends); ++at) {
    SCOPED_TRACE(at);
    if (at == 3) {
      // During the commit.
      server_.run(
          "drop trigger holds_up on iis_inventory.\"tblHealth\"; create constraint trigger holds_up after "
          "insert on iis_inventory.\"tblHealth\" deferrable initially deferred for each row execute function "
          "hold_up()",
          "fleet");
    }
    const auto program = start({slow}, patience[at]);
    const int backend = waitForSession(*program, "PgSleep");
    if (at % 2 == 0) ::kill(backend, SIGSTOP);
    if (ends[at] < 0) ::kill(program->id(), -ends[at]);
    const Result result = program->wait();
    EXPECT_EQ(result.status, ends[at]) << result.err;
    EXPECT_EQ(count(result.err, words[at]), 1) << result.err;
    EXPECT_EQ(count(result.err, "\n"), ends[at] < 0 ? 1 : 2) << result.err;
    ::kill(backend, SIGCONT);
    server_.run("select pg_terminate_backend(" + std::to_string(backend) + ")");
    server_.waitForBackendExit(std::to_string(backend));
    EXPECT_EQ(collectionCount(), "1 1");
  }
}

TEST_F(Postgres, WorksWithFewConnections) {
  const std::string slow = generateMetabase("SLOW", 2);
  run(collecting({slow}, {}, fleet_));
  delayInserts("perform pg_advisory_xact_lock(7)");
  server_.run("alter role writer connection limit 2");
  // More than two transactions take, however fast they are collected.
  Strings many = {slow};
  for (int number = 0; number < 299; ++number)
    many.push_back("SLOW" + std::to_string(number) + slow.substr(4));
  inventory::postgres::Connection other(fleet_);
  other.run("begin; select pg_advisory_xact_lock(7)");
  Program program(folder_, collecting(many, {"--jobs", "8", "--wait", "1000"}, fleet_));
  while (server_.log().find("too many connections for role") == std::string::npos) {
    ASSERT_TRUE(program.isRunning());
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  other.run("commit");
  const Result result = program.wait();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(count(result.out, "using fewer connections"), 1) << result.out;
  EXPECT_EQ(server_.run("select count(*) from iis_inventory.\"Collections\"", "fleet"), "300");
}

TEST_F(Postgres, KeepsEachServerCompletelyOldOrNewAfterKills) {
  const int rounds = test::killRounds();
  std::mt19937_64 random(static_cast<unsigned>(GTEST_FLAG_GET(random_seed)));
  std::cout << "seed " << GTEST_FLAG_GET(random_seed) << "\n";
  Strings files[2];
  std::vector<Tables> states;
  steady_clock::duration longest{};
  for (int state = 0; state < 2; ++state) {
    for (const std::string name : {"WEB01", "WEB02"}) {
      const std::string file = name + std::to_string(state);
      files[state].push_back(name +
                             generateMetabase(file, state == 0 ? 20 : 12, state + 1).substr(file.size()));
    }
    const auto begin = steady_clock::now();
    EXPECT_EQ(start(files[state])->wait().status, 0);
    longest = steady_clock::now() - begin;
    states.push_back(readInventory(fleet_));
  }
  const auto ofServer = [](const Tables& all, const std::string& name) {
    Strings rows;
    for (const auto& [table, each] : all) {
      for (const std::string& row : each) {
        if (row.starts_with(name)) rows.push_back(table + row);
      }
    }
    return rows;
  };
  int current[] = {1, 1}, ended = 0, changed = 0, again = 0;
  // Continues until each outcome has occurred, however fast the machine is.
  const auto isComplete = [&] { return ended > 0 && again > 0 && changed > 0; };
  for (int round = 0; round < rounds || (!isComplete() && round < 10 * rounds); ++round) {
    SCOPED_TRACE(round);
    const int state = round % 2, kind = round % 5;
    const auto program = start(files[state], {"--jobs", "2", "--wait", "60"});
    std::this_thread::sleep_for(std::chrono::nanoseconds(
        std::uniform_int_distribution<std::int64_t>(0, std::chrono::nanoseconds(longest).count())(random)));
    if (kind < 2) {
      ::kill(program->id(), kind == 0 ? SIGKILL : SIGINT);
    } else if (kind < 4) {
      const std::string backend = findSession("true");
      // SIGKILL makes the server end all sessions and restart.
      if (backend != "-") {
        ::kill(std::stoi(backend), kind == 2 ? SIGTERM : SIGKILL);
        server_.waitForBackendExit(backend);
      }
    } else {
      server_.crashAndRestart();
    }
    const Result result = program->wait();
    ended += result.status != 0;
    longest = longest * (result.status == 0 ? 9 : 11) / 10;
    // Only a failed first connection, a second loss and an unknown outcome are reported.
    EXPECT_TRUE(kind < 2 || (result.status > 0) == (count(result.err, "'postgresql://") > 0)) << result.err;
    again += kind >= 2 && result.status == 0;
    const Tables all = readInventory(fleet_);
    for (const int at : {0, 1}) {
      const std::string name = at == 0 ? "WEB01" : "WEB02";
      const Strings rows = ofServer(all, name);
      const bool isNew = rows == ofServer(states[static_cast<std::size_t>(state)], name);
      EXPECT_TRUE(isNew || rows == ofServer(states[static_cast<std::size_t>(current[at])], name))
          << rows.size();
      EXPECT_TRUE(isNew || result.status != 0);
      if (!isNew || current[at] == state) continue;
      EXPECT_TRUE(result.status != 2 || count(result.err, "outcome unknown") > 0) << result.err;
      ++changed;
      current[at] = state;
    }
    EXPECT_EQ(all.at("Collections").size(), 2U);
  }
  run({"verify", fleet_}, 0, "no problems found");
  EXPECT_TRUE(isComplete());
}

TEST_F(Postgres, ReadsAnyNumberOfServersWithTheSameStatements) {
  server_.run("alter role writer set log_statement = 'all'; alter role writer set log_min_messages = log");
  const Arguments commands[] = {
      {"servers"}, {"show", "tblGeneral"}, {"show", "ftp_site"}, {"findings"}, {"report"}};
  const auto statements = [&](std::size_t servers) {
    Strings all;
    for (std::size_t at = 0; at < servers; ++at) all.push_back("S" + std::to_string(at) + "=" + kLegacy);
    EXPECT_LT(test::run(folder_, collecting(all, {"--quiet"}, fleet_)).status, 2);
    std::vector<int> counts;
    for (const Arguments& command : commands) {
      const std::string before = server_.log();
      run(command + Arguments{"--database", fleet_});
      const std::string log = server_.log().substr(before.size());
      counts.push_back(count(log, "LOG:  statement: ") + count(log, "LOG:  execute "));
    }
    return counts;
  };
  const auto few = statements(2);
  EXPECT_GT(few.front(), 0);
  EXPECT_EQ(statements(20), few);
}

TEST_F(Postgres, QueriesOneServerThroughIndexes) {
  const std::string files[] = {generateMetabase("S", 1).substr(2), kLegacy};
  Strings many;
  for (std::size_t number = 0; number < 1000; ++number)
    many.push_back("S" + std::to_string(number) + "=" + files[number % 2]);
  run(collecting(many, {}, fleet_), 1);
  // So many rows bring the statistics up to date.
  EXPECT_NE(server_.run("select count(*) from pg_stats where schemaname = 'iis_inventory'", "fleet"), "0");
  server_.run("analyze", "fleet");
  const auto inventory = inventory::openForReading(fleet_, {});
  const auto session = inventory->driver().read();
  const inventory::Dialect& dialect = session->dialect();
  for (const inventory::View& view : allViews()) {
    const std::string selects[] = {
        "select * from " + view.name + " where server = 'S77'",
        inventory::withViews(dialect, inventory::selectCurrent() + " and server_key = 's77'",
                             "select * from " + view.name)};
    for (const std::string& select : selects) {
      std::string plan;
      const auto lines = session->query("explain " + select);
      while (lines->next()) plan += lines->text(0) + "\n";
      for (const std::string table : {"\"tbl", "objects", "\"Problems"})
        EXPECT_EQ(plan.find("Seq Scan on " + table), std::string::npos) << view.name << "\n" << plan;
    }
  }
}

}  // namespace
