// An inventory on a PostgreSQL server: what an SQLite one holds, whoever is at it and whatever is killed.
// --gtest_random_seed gives other moments.

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
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "inventory/inventory.h"
#include "inventory/postgres/connection.h"
#include "sqlite/database.h"
#include "tests/support/few_rows.h"
#include "tests/support/postgres.h"
#include "tests/support/process.h"
#include "tests/support/proxy.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;
using test::Arguments;
using test::FewRows;
using test::Program;
using test::Result;
using Strings = std::vector<std::string>;
using Tables = std::map<std::string, Strings>;

const std::string kSamples = SAMPLES_DIRECTORY;

class Postgres : public testing::Test {
 protected:
  Postgres() {
    server_.run("create role writer login");
    server_.run("create role reader login");
    server_.run("create database fleet owner writer");
    fs::permissions(folder_.path(), fs::perms(0755));
  }

  // Every row in order, by table, as "value|value" with "-" for null; without what two collections of one
  // thing always differ in, unless told otherwise.
  static Tables everything(const std::string& database, bool andTimes = false) {
    const auto inventory = inventory::openForReading(database, {});
    const auto snapshot = inventory->snapshot();
    const std::string shown = inventory::shownName(database);
    Tables all;
    for (const std::string& table : snapshot->tableNames()) {
      const Strings columns = snapshot->columnNames(table);
      Strings& rows = all[table];
      snapshot->forEach(table, [&](std::span<const inventory::Cell> row) {
        std::string& text = rows.emplace_back();
        for (std::size_t at = 0; at < row.size(); ++at) {
          if (isOwn(table, columns[at], andTimes)) text.append(row[at].value_or("-")).append("|");
        }
        // Messages may name the database.
        if (const std::size_t at = text.find("'" + shown + "'"); at != text.npos)
          text.erase(at, shown.size() + 2);
      });
    }
    return all;
  }

  Result run(Arguments arguments, int status = 0, const std::string& words = "",
             const std::function<void()>& prepare = {}) const {
    const fs::path logs = folder_.folder("logs");
    const Result result = test::run(folder_, arguments, [&] {
      fs::current_path(logs);
      if (prepare) prepare();
    });
    EXPECT_EQ(result.status, status) << testing::PrintToString(arguments) << result.out << result.err;
    EXPECT_NE((result.out + result.err).find(words), std::string::npos) << words << result.out << result.err;
    return result;
  }

  // Collects into both kinds, and expects the same.
  void collectBoth(Arguments arguments, int status = 0) const {
    arguments.insert(arguments.begin(), "collect");
    for (const std::string& database : {file_, fleet_}) {
      Arguments all = arguments;
      all.insert(all.end(), {"--database", database, "--log-dir", folder_.folder("logs").string()});
      run(all, status);
    }
    expectEqual(file_, fleet_);
    EXPECT_EQ(run({"findings", "--format", "json", "--database", fleet_}).out,
              run({"findings", "--format", "json", "--database", file_}).out);
    for (const char* name : {"ftp_site", "ftp_directory", "ftp_access", "app_pool", "web_extension",
                             "application", "collection", "problem"}) {
      const Strings rows = view(file_, name);
      EXPECT_EQ(view(fleet_, name), rows) << name;
      EXPECT_FALSE(rows.empty() && std::string(name) != "problem") << name;
    }
  }
  static void expectEqual(const std::string& one, const std::string& other, bool andTimes = false) {
    const Tables expected = everything(one, andTimes), found = everything(other, andTimes);
    ASSERT_EQ(found.size(), expected.size());
    for (const auto& [table, rows] : expected) EXPECT_EQ(found.at(table), rows) << table;
  }

  // The rows of a view, without times that differ; numbers, truth values and times as SQLite has them.
  static Strings view(const std::string& database, const std::string& name) {
    const std::string without = name == "collection" ? "started published seconds"
                                : name == "problem"  ? "time"
                                                     : "";
    Strings rows;
    const auto add = [&](std::string_view column, std::string_view value) {
      if (without.find(column) == std::string::npos) rows.back().append(value).append("|");
    };
    if (!inventory::isOnServer(database)) {
      sqlite::Database file(database, sqlite::Database::Mode::kReadOnly, {});
      auto found = file.prepare("select * from " + name);
      while (found.step()) {
        rows.emplace_back();
        for (int at = 0; at < found.columnCount(); ++at)
          add(found.columnName(at), found.text(at).value_or("-"));
      }
    } else {
      inventory::postgres::Connection connection(database);
      connection.execute("set timezone = 'UTC'");
      const auto found = connection.run("select * from iis_inventory." + name);
      for (int row = 0; row < found.rows(); ++row) {
        rows.emplace_back();
        for (int at = 0; at < PQnfields(found.raw()); ++at) {
          std::string value(found.text(row, at).value_or("-"));
          constexpr Oid kTruth = 16, kTime = 1184;
          if (PQftype(found.raw(), at) == kTruth && value != "-") value = value == "t" ? "1" : "0";
          if (PQftype(found.raw(), at) == kTime && value != "-") {
            value = value.replace(10, 1, "T").substr(0, value.size() - 3);
            if (value.size() == 19) value += ".";
            value = value.append(23 - value.size(), '0') + "Z";
          }
          add(PQfname(found.raw(), at), value);
        }
      }
    }
    std::sort(rows.begin(), rows.end());
    return rows;
  }

  std::string generated(const std::string& server, int sites, int seed = 1) const {
    test::MetabaseOptions options = test::inProportion(sites);
    options.seed = static_cast<std::uint64_t>(seed);
    return test::generated(folder_, server, options);
  }

  const test::Folder folder_;
  test::PostgresServer server_;
  const std::string file_ = (folder_ / "inventory.db").string();
  const std::string fleet_ = server_.address("writer", "fleet");

 private:
  static bool isOwn(const std::string& table, const std::string& column, bool andTimes) {
    if (column == "Still current" || column == "Rows without a path") return false;
    return andTimes || (column != "Started" && column != "Published" && column != "Seconds" &&
                        (table != "Problems" || column != "Time"));
  }
};

TEST_F(Postgres, HoldsWhatAnSqliteFileHolds) {
  const std::string web = kSamples + "/WEB01/MetaBase.xml", legacy = kSamples + "/LEGACY/MetaBase.xml";
  collectBoth({web, legacy, generated("LARGE", 1000)}, 1);
  // There and back.
  const std::string there = server_.address("writer", "copies"), back = (folder_ / "back.db").string();
  server_.run("create database copies owner writer");
  const Arguments dry = {"collect", "--dry-run", web, "--database", there};
  EXPECT_NE(run(dry).out.find(" never "), std::string::npos);
  run({"copy", "--from", file_, "--to", there}, 0, "copied 3 servers");
  EXPECT_EQ(run(dry).out.find(" never "), std::string::npos);
  run({"copy", "--from", there, "--to", back}, 0, "copied 3 servers");
  expectEqual(file_, there, true);
  expectEqual(file_, back, true);
  // Parts of it, from a state that has other things.
  const std::string small = generated("LARGE", 20, 2);
  collectBoth({small, "--only", "General"});
  collectBoth({small, "--site", "3", "--pool", "pool 1"});
  collectBoth({"web01=" + web, "--pool", "\u00FCBERSICHT", "--site", "2"});
  collectBoth({"web01=" + legacy, "--only", "Virtual Directories", "--site", "1"}, 1);
  run({"copy", "--from", file_, "--to", back, "--server", "web01", "--server", "legacy", "--server", "none"},
      1, "no server 'none'");
  run({"copy", "--from", fleet_, "--to", there}, 0, "replaced ");
  expectEqual(fleet_, there, true);
  // What is known of former publications comes with them.
  for (const std::string& database : {there, back}) {
    run({"collect", "web01=" + web, "--only", "General", "--database", database});
    run({"collect", "Legacy=" + legacy, "--database", database}, 1);
  }
  const Tables first = everything(there), second = everything(back);
  for (const auto& [table, rows] : second) {
    for (const std::string& row : rows) {
      if (row.find("LARGE") == std::string::npos) {
        EXPECT_NE(std::count(first.at(table).begin(), first.at(table).end(), row), 0) << table << row;
      }
    }
  }
  collectBoth({"Legacy=" + legacy}, 1);
  collectBoth({small});
}

TEST_F(Postgres, HasViewsOfPlainTypes) {
  collectBoth({kSamples + "/WEB01/MetaBase.xml", kSamples + "/LEGACY/MetaBase.xml"}, 1);
  const auto asked = [&](const std::string& select) {
    return server_.run("select concat_ws(',', " + select, "fleet");
  };
  server_.run("alter database fleet set search_path = iis_inventory");
  EXPECT_EQ(
      asked("tcp_port + 1, not may_write, only_anonymous, log_cookie, denied_addresses) from ftp_site where "
            "server = 'WEB01' and identifier = 8"),
      "22,t,f,f,192.168.40.0 (255.255.255.0), 192.168.41.12, 10.128.0.0 (255.128.0.0)");
  EXPECT_EQ(asked("recycle_times, recycle_minutes / 2, recycles_by_requests, worker_processes, pinging) from "
                  "app_pool "
                  "where name = 'reportsPOOL'"),
            "06:00, 12:30, 23:45,30,f,4,t");
  EXPECT_EQ(asked("count(*), bool_and(published >= started), sum(rows)) from collection"), "2,t,241");
}

TEST_F(Postgres, HasNullInItsViewsForWhatIsNotKnownAndNowhereElse) {
  const Arguments collect = {"collect",   kSamples + "/WEB01/MetaBase.xml", kSamples + "/LEGACY/MetaBase.xml",
                             "--log-dir", folder_.folder("logs").string(),  "--database",
                             file_};
  run(collect, 1);
  const char* const names[] = {"ftp_site", "ftp_directory", "ftp_access",
                               "app_pool", "web_extension", "application"};
  std::map<std::string, std::map<std::string, std::map<std::string, std::string>>> before;
  const auto forEachCell = [&](const auto& handle) {
    sqlite::Database file(file_, sqlite::Database::Mode::kReadOnly, {});
    for (const std::string name : names) {
      auto rows = file.prepare("select * from " + name);
      for (int row = 0; rows.step(); ++row) {
        std::string what = name;
        for (int at = 0; at < rows.columnCount(); ++at) {
          const std::string column(rows.columnName(at));
          const std::string value(rows.text(at).value_or("-"));
          if (column == "server" || column == "identifier" || column == "site_identifier" ||
              (column == "name" && name != "ftp_site")) {
            what += " " + value;
          }
          handle(what, name + std::to_string(row), column, value);
        }
      }
    }
  };
  forEachCell([&](const std::string&, const std::string& row, const std::string& column,
                  const std::string& value) { before[row][column]["value"] = value; });
  const auto addProblem = [](const std::string& server, const std::string& table, const std::string& kind,
                             const std::string& item, const std::string& node, const std::string& property,
                             const std::string& number = "0x5E", const std::string& sort = "problem") {
    return "insert into Problems (\"Server name\", Kind, \"Table\", \"Item kind\", Item, Node, Property, "
           "Number, "
           "Message) values ('" +
           server + "','" + sort + "','" + table + "','" + kind + "','" + item + "','" + node + "','" +
           property + "','" + number + "','why');";
  };
  const std::string root = "IIS://WEB01/MSFTPSVC/1/ROOT", web = "IIS://WEB01/W3SVC/";
  sqlite::Database(file_, sqlite::Database::Mode::kReadWrite, {})
      .execute(
          addProblem("web01", "tblHomeDirectorySetting", "site", "1", root, "accesswrite") +
          addProblem("WEB01", "tblDirectorySecuritySetting", "site", "3", "", "IPSecurity") +
          addProblem("WEB01", "tblGeneral", "pool", "1", "", "") +
          addProblem("WEB01", "tblFTPSiteInfo", "site", "12", "", "ServerComment") +
          addProblem("WEB01", "tblvirtualDirectory", "site", "1", root + "/PUB/releases", "") +
          addProblem("WEB01", "tblvirtualDirSecurity", "site", "1", root + "/closed", "IPSecurity") +
          addProblem("WEB01", "tblHealth", "pool", "IdleSpare", "", "", "0x0", "note") +
          addProblem("WEB01", "tblPerformance", "pool", "IdleSpare", "", "CPULimit") +
          addProblem("WEB01", "tblAppliedObject", "pool", "Intranet Pool", web + "2/ROOT/Shop", "Path") +
          addProblem("WEB01", "tblAppliedObject", "pool", "reportsPOOL", web + "4", "ServerBindings", "0x9") +
          addProblem("WEB01", "tblWSExtension", "", "", "", "", "0x9") +
          addProblem("LEGACY", "tblMessageSetting", "", "", "", ""));
  Strings lost;
  forEachCell([&](const std::string& what, const std::string& row, const std::string& column,
                  const std::string& value) {
    if (value != before[row][column]["value"]) {
      EXPECT_EQ(value, "-");
      lost.push_back(what + ": " + column);
    }
  });
  const Strings sites = {"1", "4", "7"},
                directory = {"content_source", "path", "may_read", "may_write", "logs_visits"},
                access = {"grants_others", "is_granted", "address", "mask"};
  Strings expected = {"ftp_site WEB01 1: may_write",
                      "ftp_site WEB01 3: grants_others",
                      "ftp_site WEB01 3: granted_addresses",
                      "ftp_site WEB01 12: name",
                      "ftp_directory WEB01 1 closed: grants_others",
                      "ftp_access WEB01 1 closed: grants_others",
                      "app_pool WEB01 IdleSpare: monitors_cpu",
                      "app_pool WEB01 IdleSpare: cpu_percent",
                      "application WEB01 shop: path"};
  for (const std::string& site : sites) {
    for (const char* message : {"welcome", "exit", "maximum_connections"})
      expected.push_back("ftp_site LEGACY " + site + ": " + message + "_message");
  }
  for (const std::string& column : directory) expected.push_back("ftp_directory WEB01 1 releases: " + column);
  for (const std::string& column : access) expected.push_back("ftp_access WEB01 3 -: " + column);
  std::sort(expected.begin(), expected.end());
  std::sort(lost.begin(), lost.end());
  EXPECT_EQ(lost, expected);

  run({"copy", "--from", file_, "--to", fleet_});
  for (const std::string name : names) EXPECT_EQ(view(fleet_, name), view(file_, name)) << name;
}

TEST_F(Postgres, TakesNamesOfEveryKind) {
  const std::string names[] = {"it's \"so\"", "100%s;%n", "$1 {a,b} #x", "\u00C4rger\u4E2D\U0001F600",
                               "two  blanks ."};
  std::string text = test::contents(kSamples + "/WEB01/MetaBase.xml");
  const auto replace = [&](const std::string& what, const std::string& with) {
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size())
      text.replace(at, what.size(), with);
  };
  replace("Partner exchange", "it&apos;s &quot;so&quot;&#10;%d\\N $1 \u00DF\u0130\U0001F600");
  replace("Intranet Pool", "Pool ' &quot; %s \\. \u00C4");
  replace("D:\\Sales", "D:\\&apos;\\&quot;\\%\\\u4E2D&#9;x");
  const std::string file = folder_.file("names.xml", text);
  Arguments arguments;
  for (const std::string& name : names) arguments.push_back(name + "=" + file);
  // The component itself puts the names of servers into its SQL texts.
  collectBoth(arguments, 1);
  collectBoth({"\u00C4RGER\u4E2D\U0001F600=" + file, "--pool", "pool ' \" %s \\. \u00E4"});
  collectBoth({"\u00E4rger\u4E2D\U0001F600=" + file});
  EXPECT_EQ(server_.run("select count(*) from iis_inventory.server_key", "fleet"), "5");
}

TEST_F(Postgres, TellsWhatNoInventoryHoldsAndKeepsTheRest) {
  const std::string large(std::size_t{33} << 20, 'x');
  using namespace std::string_view_literals;
  const FewRows rows("tblMessageSetting",
                     {{"A", "one", "1", "a\0b"sv, "half \xED\xA0\x80 a pair", large, "\u00FCbrig"},
                      {"A", "two", "2", "", std::nullopt, "fine"}});
  for (const std::string& database : {file_, fleet_}) {
    EXPECT_EQ(test::publish(database, {{"A", &rows}}).at(0).problems.size(), 3U);
    const Tables all = everything(database);
    EXPECT_EQ(
        all.at("tblMessageSetting"),
        (Strings{"A|one|1|a\uFFFDb|half \uFFFD\uFFFD\uFFFD a pair|-|\u00FCbrig|", "A|two|2||-|fine|-|"}));
    ASSERT_EQ(all.at("Problems").size(), 3U);
    EXPECT_EQ(
        all.at("Problems")[2].find("A|problem|tblMessageSetting|site|1||Banner Message|||the value of "), 0U);
  }
  expectEqual(file_, fleet_);
}

TEST_F(Postgres, KeepsTheFormerInventoryWhereTheServerHasNoRoom) {
  const test::PostgresServer small(std::make_unique<test::Folder>(), {}, 12);
  const std::string database = small.address("master", "postgres");
  FewRows rows("tblMessageSetting");
  std::mt19937 random;
  std::vector<std::string> texts(400);
  for (const std::size_t size : {std::size_t{10}, std::size_t{40000}, std::size_t{20}}) {
    // What can't be made shorter.
    for (std::string& text : texts) {
      text.clear();
      while (text.size() < size) text += static_cast<char>(' ' + random() % 95);
    }
    const Tables before = size == 10 ? Tables() : everything(database, true);
    rows.cells.clear();
    for (const std::string& text : texts) rows.cells.push_back({"A", "one", "1", text});
    if (size < 100) {
      EXPECT_EQ(
          test::publish(database, {{"A", &rows}}).at(0).added.at(inventory::tableIndex("tblMessageSetting")),
          400);
      continue;
    }
    try {
      test::publish(database, {{"A", &rows}});
      ADD_FAILURE() << "there was room";
    } catch (const inventory::Error& error) {
      EXPECT_NE(std::string(error.what()).find("File too large"), std::string::npos) << error.what();
    }
    EXPECT_EQ(everything(database, true), before);
  }
}

TEST_F(Postgres, KnowsWhoseARowWithoutAPathIs) {
  const std::string table = "tblvirtualDirectory";
  const FewRows rows(table, {{"", "1", "a"}, {"IIS://A/MSFTPSVC/1/ROOT", "1", "b"}, {"", "2", "c"}});
  const FewRows fewer(table, {{"", "1", "a"}}), none(table);
  test::publish(file_, {{"A", &rows}, {"b", &fewer}});
  const std::string back = (folder_ / "back.db").string();
  run({"copy", "--from", file_, "--to", fleet_});
  run({"copy", "--from", fleet_, "--to", back});
  run({"copy", "--from", file_, "--to", (folder_ / "b.db").string(), "--server", "B"}, 0, "1 server into");
  for (const std::string& database : {file_, fleet_, back}) {
    EXPECT_EQ(everything(database).at(table).size(), 4U) << database;
    run({"rename", "A", "C", "--database", database});
    test::publish(database, {{"c", &fewer}});
    test::publish(database, {{"B", &none}});
    EXPECT_EQ(everything(database).at(table), Strings{"|1|a|-|-|-|-|-|"}) << database;
  }
  EXPECT_EQ(everything((folder_ / "b.db").string()).at(table), Strings{"|1|a|-|-|-|-|-|"});
}

TEST_F(Postgres, RenamesAndRemovesServers) {
  const std::string web = kSamples + "/WEB01/MetaBase.xml", legacy = kSamples + "/LEGACY/MetaBase.xml";
  const std::string straight = (folder_ / "straight.db").string();
  collectBoth({"\u00C4rger=" + legacy, "one=" + web}, 1);
  run({"collect", "it's=" + legacy, "One=" + web, "--database", straight}, 1);
  for (const std::string& database : {file_, fleet_}) {
    const Tables before = everything(database, true);
    run({"rename", "one", "\u00E4RGER", "--database", database}, 2, "already");
    run({"rename", "on", "two", "--database", database}, 2, "did you mean 'one'?");
    run({"remove", "one", "two", "--database", database}, 2, "no server 'two'");
    EXPECT_EQ(everything(database, true), before);
    run({"rename", "\u00E4RGER", "it's", "--database", database});
    run({"rename", "ONE", "One", "--database", database});
    expectEqual(straight, database);
    // What comes next takes the place of all of it.
    run({"collect", "IT'S=" + legacy, "--database", database, "--only", "Virtual Directories"}, 1);
    run({"collect", "IT'S=" + legacy, "--database", database}, 1, "replaced");
    run({"collect", "\u00C4RGER=" + legacy, "--database", database}, 1);
    run({"remove", "It's", "one", "--database", database}, 0, "removed 2 servers");
    for (const auto& [table, rows] : everything(database)) {
      for (const std::string& row : rows) EXPECT_NE(row.find("\u00C4RGER"), row.npos) << table << row;
    }
  }
  expectEqual(file_, fleet_);
  for (const std::string& database : {file_, fleet_})
    run({"servers", "--database", database, "--format", "csv"}, 0, "Z,31,5,0," + legacy);
}

TEST_F(Postgres, SaysWhatToDoWhereItCantBeUsed) {
  server_.run("create role secret login password 'pass/geheim@1'");
  server_.run("create database ascii owner writer encoding 'SQL_ASCII' locale 'C' template template0");
  server_.run("create role stranger login; alter role reader set default_transaction_read_only = on");
  server_.run(
      "create schema theirs; create table theirs.orders (n int); grant all on schema theirs to writer; "
      "grant all on theirs.orders to writer",
      "fleet");
  const std::string web = kSamples + "/WEB01/MetaBase.xml";
  const auto refused = [&](const std::string& database, const std::string& words, Arguments more = {}) {
    Arguments arguments = {"collect", web, "--database", database};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Result result = run(arguments, 2, words, [] { ::unsetenv("PGPASSWORD"); });
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_EQ((result.out + result.err).find("geheim"), std::string::npos) << result.err;
  };
  const auto address = [&](const std::string& role, const std::string& database) {
    return server_.address(role, database);
  };
  refused(server_.address("secret", "fleet", "wrong%2Fgeheim"), "comes from PGPASSWORD");
  refused("postgresql://secret:pass/geheim@1@/fleet", "write '%2F' and '%40'");
  refused("postgresql://secret:%zzgeheim@/fleet", "can't be understood");
  refused("service=nobody password=geheim", "one service");
  refused(address("writer", "nowhere"), "create database");
  refused(address("stranger", "fleet"), "create schema \"iis_inventory\" authorization stranger");
  refused(address("reader", "fleet"), "default_transaction_read_only");
  refused(address("writer", "ascii"), "encoding is SQL_ASCII");
  refused(fleet_, "--schema NAME", {"--schema", "theirs"});
  refused("postgresql:///fleet?host=" + folder_.path().string(), "Is the server running");
  run({"show", "--database", fleet_}, 2, "no schema 'iis_inventory'");
  EXPECT_EQ(server_.run("select count(*) from pg_tables where tablename like 'tbl%'", "fleet"), "0");

  run({"collect", web, "--database", fleet_, "--schema", "theirs", "--force", "--quiet"});
  server_.run("alter table theirs.\"tblHealth\" rename \"Enable pinging\" to pings", "fleet");
  refused(fleet_, "theirs.tblHealth has no column 'Enable pinging'", {"--schema", "theirs"});
  // What the README tells to set up.
  server_.run(
      "create schema shared authorization writer; grant usage on schema shared to reader; "
      "alter default privileges for role writer in schema shared grant select on tables to reader",
      "fleet");
  run({"collect", web, "--database", fleet_, "--schema", "shared"});
  const std::string shown = run({"show", "tblHealth", "--database", fleet_, "--schema", "shared"}).out;
  EXPECT_EQ(run({"show", "tblHealth", "--database", address("reader", "fleet"), "--schema", "shared"}).out,
            shown);
  server_.run("alter role reader reset default_transaction_read_only");
  refused(address("reader", "fleet"), "grant select, insert, update, delete", {"--schema", "shared"});
  run({"show", "--database", address("stranger", "fleet"), "--schema", "shared"}, 2, "grant usage on schema");
}

TEST_F(Postgres, RefusesAServerThatIsTooOld) {
  const std::string name("server_version\0", 15);
  const test::Proxy proxy(folder_.path().string(), server_.socket(), [&](std::string& bytes, bool) {
    if (const std::size_t at = bytes.find(name); at != bytes.npos) bytes.replace(at + name.size(), 2, "12");
    return test::Proxy::Action::kPass;
  });
  run({"collect", kSamples + "/WEB01/MetaBase.xml", "--database",
       "postgresql://writer@/fleet?host=" + folder_.path().string()},
      2, "version 13 or later");
}

TEST_F(Postgres, TriesALostConnectionOnceMoreAndKnowsWhatHasBeenMade) {
  const auto runLosing = [&](Arguments arguments, const std::string& word) {
    std::atomic<bool> isLost = false;
    const test::Proxy proxy(folder_.path().string(), server_.socket(),
                            [&](std::string& bytes, bool toServer) {
                              if (!toServer || isLost || bytes.find(word) == std::string::npos)
                                return test::Proxy::Action::kPass;
                              isLost = true;
                              return test::Proxy::Action::kDropAnswer;
                            });
    arguments.insert(arguments.end(),
                     {"--database", "postgresql://writer@/fleet?host=" + folder_.path().string()});
    return run(arguments).out;
  };
  const Arguments collect = {"collect", generated("A", 5)};
  const std::string commit("\0commit\0", 8);
  EXPECT_EQ(runLosing(collect, "pg_try_advisory").find("replaced"), std::string::npos);
  EXPECT_NE(runLosing(collect, commit).find("replaced"), std::string::npos);
  // Never what it has published itself a moment ago.
  EXPECT_EQ(server_.run("select count(*) from iis_inventory.still_current", "fleet"), "1");
  EXPECT_EQ(server_.run("select last_value from iis_inventory.publication_number", "fleet"), "3");
  EXPECT_EQ(runLosing({"rename", "A", "B"}, commit).find("renamed A to B"), 0U);
  EXPECT_NE(runLosing({"remove", "B"}, commit).find(" rows"), std::string::npos);
}

TEST_F(Postgres, TakesPasswordsWithoutTellingThem) {
  const std::string password = "geheim%2F\u00DF%40word";
  server_.run(
      "create role secret login password 'geheim/\u00DF@word'; grant writer to secret; "
      "alter role secret set role writer");
  const fs::path logs = folder_.folder("quiet");
  const std::string address = server_.address("secret", "fleet", password);
  Result result =
      run({"collect", kSamples + "/LEGACY/MetaBase.xml", "--database", address, "--log-dir", logs.string()},
          1, "into postgresql://secret@/fleet");
  std::string all = result.out + result.err;
  for (const auto& log : fs::directory_iterator(logs)) all += test::contents(log.path());
  for (const auto& [table, rows] : everything(fleet_))
    for (const std::string& row : rows) all += row;
  all += server_.run("select string_agg(application_name || query, ' ') from pg_stat_activity");
  for (const char* part : {"geheim", "@word", "%40word"})
    EXPECT_EQ(all.find(part), std::string::npos) << part;
  // By the environment, and by a service file.
  const auto given = [] { ::setenv("PGPASSWORD", "geheim/\u00DF@word", 1); };
  run({"show", "--database", server_.address("secret", "fleet")}, 0, "tblGeneral", given);
  const std::string services =
      folder_.file("services", "[fleet]\nhost=" + server_.socket() + "\ndbname=fleet\nuser=writer\n");
  run({"show", "--database", "service=fleet"}, 0, "tblGeneral",
      [&] { ::setenv("PGSERVICEFILE", services.c_str(), 1); });
  run({"show", "--database", "./service=fleet"}, 2, "service=fleet'");
}

TEST_F(Postgres, HasOneInventoryOfEachServerHoweverManyCollect) {
  const Strings states = {generated("ONE", 5, 1), generated("ONE", 5, 1)};
  const auto collect = [&](const std::string& server, const std::string& wait) {
    return std::make_unique<Program>(
        folder_, Arguments{"collect", "--quiet", server, "--database", fleet_, "--wait", wait, "--log-dir",
                           folder_.folder("logs").string()});
  };
  EXPECT_EQ(collect(states[0], "5")->end().status, 0);
  const Tables one = everything(fleet_);
  std::vector<std::unique_ptr<Program>> programs;
  for (int number = 0; number < 4; ++number) {
    programs.push_back(collect(states[0], "1000"));
    programs.push_back(collect(generated("OTHER" + std::to_string(number), 5, number + 2), "1000"));
  }
  const auto anyRuns = [&] {
    return std::any_of(programs.begin(), programs.end(), [](const auto& program) { return program->runs(); });
  };
  int looks = 0;
  do {
    const Tables all = everything(fleet_);
    for (const auto& [table, rows] : one) {
      if (table == "Collections" || table.starts_with("tblv")) continue;
      EXPECT_EQ(
          std::count_if(rows.begin(), rows.end(), [](const auto& row) { return row.starts_with("ONE|"); }),
          std::count_if(all.at(table).begin(), all.at(table).end(),
                        [](const auto& row) { return row.starts_with("ONE|"); }))
          << table;
    }
    ++looks;
  } while (anyRuns());
  for (const auto& program : programs) EXPECT_EQ(program->end().status, 0);
  std::cout << looks << " looks\n";
  EXPECT_EQ(everything(fleet_).at("Collections").size(), 5U);

  // Who publishes a server keeps others from it, and from nothing else.
  inventory::postgres::Connection other(fleet_);
  other.execute("begin");
  server_.run(
      "create function pause() returns trigger language plpgsql as $$ begin if new.\"Server name\" = "
      "'SLOW' then perform pg_advisory_xact_lock(7); end if; return new; end $$; create trigger pauses "
      "before insert on iis_inventory.\"tblHealth\" for each row execute function pause()",
      "fleet");
  other.run("select pg_advisory_xact_lock(7)");
  const std::string slow = generated("SLOW", 5);
  const auto holding = collect(slow, "1000");
  while (server_.run("select count(*) from pg_locks where locktype = 'advisory' and not granted") == "0") {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_EQ(collect(states[1], "0.01")->end().status, 0);
  Result result = collect("slow" + slow.substr(4), "0.05")->end();
  EXPECT_EQ(result.status, 2);
  EXPECT_NE(result.err.find("somebody else publishes slow"), std::string::npos) << result.err;
  // Others that come with it are published all the same.
  run({"collect", "--quiet", "SLOW" + slow.substr(4), states[0], "--database", fleet_, "--wait", "0.05"}, 1,
      "SLOW: not published: somebody else publishes SLOW");
  const auto patient = collect(slow, "1000"), interrupted = collect(slow, "100000");
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  ::kill(interrupted->id(), SIGTERM);
  EXPECT_EQ(interrupted->end().status, -SIGTERM);
  EXPECT_TRUE(patient->runs() && holding->runs());
  other.execute("commit");
  EXPECT_EQ(holding->end().status, 0);
  EXPECT_EQ(patient->end().status, 0);

  // Many connections of one program.
  Arguments many = {"collect", "--jobs", "12", "--quiet", "--database", fleet_};
  for (int number = 0; number < 40; ++number) many.push_back(generated("M" + std::to_string(number), 3));
  run(many);
  EXPECT_EQ(server_.run("select count(*) from iis_inventory.\"Collections\"", "fleet"), "46");
}

TEST_F(Postgres, LeavesEachServerOldOrNewWhateverIsKilled) {
  constexpr int kRounds = 100;
  std::mt19937_64 random(static_cast<unsigned>(GTEST_FLAG_GET(random_seed)));
  std::cout << "seed " << GTEST_FLAG_GET(random_seed) << "\n";
  Strings files[2];
  std::vector<Tables> states;
  steady_clock::duration longest{};
  for (int state = 0; state < 2; ++state) {
    // Twice the same name, so copies of the files.
    for (const char* name : {"WEB01", "WEB02"}) {
      const std::string file = generated(name, state == 0 ? 20 : 12, state + 1).substr(6);
      files[state].push_back(std::string(name) + "=" +
                             folder_.file(name + std::to_string(state), test::contents(file)));
    }
    Arguments first = {"collect", "--quiet", "--database", fleet_};
    first.insert(first.end(), files[state].begin(), files[state].end());
    const auto start = steady_clock::now();
    run(first);
    longest = steady_clock::now() - start;
    states.push_back(everything(fleet_));
  }
  const auto ofServer = [](const Tables& all, const std::string& name) {
    Strings rows;
    for (const auto& [table, each] : all) {
      for (const std::string& row : each) {
        if (table != "Collections" && row.find(name) != std::string::npos) rows.push_back(table + row);
      }
    }
    return rows;
  };
  int stands[] = {1, 1}, ended = 0, changed = 0, again = 0;
  for (int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE(round);
    const int state = round % 2, kind = round % 5;
    Arguments arguments = {"collect", "--quiet",    "--jobs", "2",         "--wait",
                           "60",      "--database", fleet_,   "--log-dir", folder_.folder("logs").string()};
    arguments.insert(arguments.end(), files[state].begin(), files[state].end());
    Program program(folder_, arguments);
    std::this_thread::sleep_for(std::chrono::nanoseconds(
        std::uniform_int_distribution<std::int64_t>(0, std::chrono::nanoseconds(longest).count())(random)));
    if (kind < 2) {
      ::kill(program.id(), kind == 0 ? SIGKILL : SIGINT);
    } else if (kind < 4) {
      const std::string backends = server_.run(
          "select pid from pg_stat_activity where application_name = 'iisinventory' and pid <> "
          "pg_backend_pid()");
      // The second brings down all others, and the server starts again by itself.
      if (!backends.empty()) {
        const std::string backend = backends.substr(0, backends.find('\n'));
        ::kill(std::stoi(backend), kind == 2 ? SIGTERM : SIGKILL);
        server_.awaitEnd(backend);
      }
    } else {
      server_.fallAndRise();
    }
    const Result result = program.end();
    ended += result.status != 0;
    // Whoever lost his connection has another one; only the second loss, or the first contact, is told.
    if (kind >= 2 && result.status != 0) {
      EXPECT_EQ(result.status, 2) << result.err;
      EXPECT_NE(result.err.find("the database 'postgresql://"), std::string::npos) << result.err;
    }
    if (kind >= 2 && result.status == 0) ++again;
    const Tables all = everything(fleet_);
    for (const int at : {0, 1}) {
      const std::string name = at == 0 ? "WEB01" : "WEB02";
      const Strings rows = ofServer(all, name);
      const bool isNew = rows == ofServer(states[static_cast<std::size_t>(state)], name);
      EXPECT_TRUE(isNew || rows == ofServer(states[static_cast<std::size_t>(stands[at])], name))
          << rows.size();
      EXPECT_TRUE(isNew || result.status != 0);
      changed += isNew && stands[at] != state;
      if (isNew) stands[at] = state;
    }
    EXPECT_EQ(all.at("Collections").size(), 2U);
  }
  std::cout << kRounds << " rounds, " << ended << " ended, " << again << " went on; " << changed
            << " servers changed\n";
  EXPECT_GE(ended, kRounds / 10);
  EXPECT_GE(again, kRounds / 10);
  EXPECT_GE(changed, 1);
}

}  // namespace
