// The PostgreSQL driver with a real server that hangs, ends connections, or has none left.

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <functional>
#include <string>

#include "inventory/driver.h"
#include "inventory/postgres/connection.h"
#include "tests/support/folder.h"
#include "tests/support/postgres.h"
#include "tests/support/proxy.h"

namespace {

using inventory::Access;
using inventory::Change;
using inventory::Driver;
using inventory::Session;
using std::chrono::milliseconds;
using test::Proxy;
using Action = Proxy::Action;

constexpr milliseconds kLong{1000000};

class PostgresDriver : public testing::Test {
 protected:
  PostgresDriver() {
    server_.run("create role writer login");
    server_.run("create database fleet owner writer");
    std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755));
  }

  static Access access(milliseconds wait = kLong, milliseconds serverTimeout = kLong) {
    Access access;
    access.wait = wait;
    access.serverTimeout = serverTimeout;
    return access;
  }
  std::unique_ptr<Driver> open(const Access& access) const {
    return inventory::openPostgres(server_.address("writer", "fleet"), access);
  }

  // A change that adds a row and then calls `more`.
  static Change adding(const std::function<void(Session&)>& more = {}) {
    Change change;
    change.serverKeys = {"a", "b"};
    change.subject = "A";
    change.prepare = [](Session& session, bool mayChange) {
      if (mayChange) session.execute("create table t (n bigint, r float8, b boolean, t text)");
      return !session.value("select 1 from pg_tables where schemaname = current_schema()").empty();
    };
    change.work = [more](Session& session) {
      session.execute("insert into t (n) values ($1)", {std::int64_t{1}});
      if (more) more(session);
    };
    return change;
  }

  template <typename Expected>
  static std::string failure(const std::function<void()>& work) {
    try {
      work();
    } catch (const Expected& error) {
      return error.what();
    } catch (const std::exception& error) {
      ADD_FAILURE() << "unexpected: " << error.what();
    }
    return "";
  }
  std::string rowCount() const { return server_.run("select count(*) from iis_inventory.t", "fleet"); }

  const test::Folder folder_;
  test::PostgresServer server_{std::make_unique<test::Folder>(),
                               {"log_min_messages=log", "log_statement=all", "log_connections=on"}};
};

TEST_F(PostgresDriver, ReadsBackWhatItWrites) {
  const auto driver = open(access());
  const std::string text = "\u00C4 'x' \\ \t\n", large(std::size_t{1} << 20, 'x');
  driver->change(adding([&](Session& session) {
    const inventory::InsertColumn columns[] = {{"n", inventory::Type::kInteger},
                                               {"r", inventory::Type::kReal},
                                               {"b", inventory::Type::kBoolean},
                                               {"t", inventory::Type::kText}};
    const auto rows = session.insertInto("t", columns);
    const double reals[] = {1, 0.1, 1e20, -2.5e-7};
    for (std::int64_t row = 0; row < 4; ++row) {
      rows->integer((row + 2) << 40);
      rows->real(reals[row]);
      rows->boolean(row % 2 == 0);
      row == 0 ? rows->text(text) : row == 1 ? rows->null() : rows->text(large);
      rows->endRow();
    }
    rows->finish();
  }));
  const auto session = driver->read();
  const auto rows = session->query("select * from t where n > $1 or t = $2 order by n",
                                   {std::int64_t{1}, std::monostate()});
  std::string all;
  EXPECT_EQ(rows->columnCount(), 4U);
  while (rows->next()) {
    EXPECT_EQ(rows->cell(3).has_value(), rows->number(0) != std::int64_t{3} << 40);
    all += rows->text(1) + " " + rows->text(2) + (rows->text(3) == large ? "" : rows->text(3)) + "|";
  }
  EXPECT_EQ(all, "1.0 1" + text + "|0.1 0|1.0e+20 1|-2.5e-07 0|");
  // A partly read result leaves the session usable.
  EXPECT_TRUE(session->query("select generate_series(1, 100000)")->next());
  EXPECT_EQ(session->value("select sum(n) from t where n = $1", {std::int64_t{1}}), "1");
}

TEST_F(PostgresDriver, ReportsAServerThatStopsAnswering) {
  const auto driver = open(access(milliseconds(100), milliseconds(300)));
  std::unique_ptr<Session> session;
  int backend = 0;
  // A busy machine may need more than the 0.3 s for a regular answer.
  for (int attempt = 0; attempt < 100 && backend == 0; ++attempt) {
    failure<inventory::Unreachable>([&] {
      session = driver->read();
      backend = std::stoi(session->value("select pg_backend_pid()"));
    });
  }
  ASSERT_NE(backend, 0);
  ::kill(backend, SIGSTOP);
  const std::string words = failure<inventory::Unreachable>([&] { session->value("select 1"); });
  EXPECT_NE(words.find("for 0.4 s (use --server-timeout"), std::string::npos) << words;
  ::kill(server_.id(), SIGSTOP);
  EXPECT_NE(failure<inventory::Unreachable>([&] { driver->read(); }).find("for 0.3 s"), std::string::npos);
  ::kill(server_.id(), SIGCONT);
  ::kill(backend, SIGCONT);
}

TEST_F(PostgresDriver, WaitsForLocksNoLongerThanAllowed) {
  open(access())->change(adding());
  inventory::postgres::Connection other(server_.address("writer", "fleet"));
  other.run("begin; lock table iis_inventory.t");
  // Waiting for a lock does not count as server timeout.
  const auto driver = open(access(milliseconds(500), milliseconds(250)));
  const std::function<void()> works[] = {[&] { driver->read()->value("select n from iis_inventory.t"); },
                                         [&] { driver->change(adding()); }};
  for (const auto& work : works) {
    std::string words;
    // A busy machine may need more than the 0.25 s for a regular answer.
    for (int attempt = 0; attempt < 20 && words.empty(); ++attempt) {
      try {
        work();
      } catch (const inventory::Locked& error) {
        words = error.what();
      } catch (const inventory::Unreachable&) {
      }
    }
    EXPECT_NE(words.find("--wait"), std::string::npos) << words;
  }
  other.run("rollback");
}

TEST_F(PostgresDriver, ResolvesTheOutcomeOfALostCommit) {
  open(access())->change(adding());
  // Disturbs the first statement that contains `sql`; returns how often the change was executed.
  const auto runLosing = [&](const std::string& sql, Action action, const std::function<void()>& more = {}) {
    std::atomic<bool> isDone = false;
    const Proxy proxy(folder_.path().string(), server_.socket(), [&](std::string& bytes, bool toServer) {
      const bool isThis = toServer && bytes.find(sql) != bytes.npos;
      if (!isThis || isDone.exchange(true)) return Action::kPass;
      if (more) more();
      return action;
    });
    int runs = 0;
    const auto change = adding([&](Session&) { ++runs; });
    inventory::openPostgres("postgresql://writer@/fleet?host=" + folder_.path().string(), access())
        ->change(change);
    return runs;
  };
  EXPECT_EQ(runLosing("pg_try_advisory", Action::kDropAnswer), 1);
  EXPECT_EQ(runLosing("insert into", Action::kDropAnswer), 1);
  EXPECT_EQ(rowCount(), "3");
  // The death of one backend restarts the server, which forgets the transaction number.
  EXPECT_EQ(
      runLosing(std::string("commit\0", 7), Action::kDrop,
                [&] {
                  ::kill(std::stoi(server_.run("select pid from pg_stat_activity where usename = 'writer'")),
                         SIGKILL);
                }),
      2);
  EXPECT_EQ(rowCount(), "4");
}

TEST_F(PostgresDriver, FailsIfNoConnectionIsLeft) {
  server_.run("alter role writer connection limit 2");
  const auto driver = open(access());
  const auto one = driver->read(), two = driver->read();
  EXPECT_NE(failure<inventory::Error>([&] { open(access())->change(adding()); }), "");
}

}  // namespace
