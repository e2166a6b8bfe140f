// Collections that are killed at random moments, and what is left of them. --gtest_random_seed gives other
// moments.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <random>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "host/tables.h"
#include "platform/metabase/servers.h"
#include "tests/support/collection.h"
#include "tests/support/process.h"

namespace {

namespace fs = std::filesystem;
using platform::store::Access;
using platform::store::Database;
using std::chrono::nanoseconds;
using std::chrono::steady_clock;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kRounds = 25;
#else
constexpr int kRounds = 100;
#endif

// The extensions get their status in a second pass of the same call.
std::string withoutStatus(const std::string& row) {
  static const std::regex status("\\|(Allowed|Prohibited|Custom)\\|");
  return std::regex_replace(row, status, "||", std::regex_constants::format_first_only);
}

std::vector<std::vector<std::string>> intactRows(const fs::path& file, Access access) {
  Database database = Database::openExisting(file, access);
  auto check = database.prepare("pragma integrity_check");
  EXPECT_TRUE(check.step() && check.columnText(0) == "ok");
  return test::rowsOf(database);
}

class SuddenDeath : public testing::Test {
 protected:
  SuddenDeath() {
    bench::MetabaseOptions options = bench::inProportion(40);
    options.pools = 4;
    server_ = directory_.server("WEB01", options);
    random_.seed(static_cast<unsigned>(GTEST_FLAG_GET(random_seed)));
    std::cout << "seed " << GTEST_FLAG_GET(random_seed) << "\n";
    EXPECT_EQ(runProgram(directory_ / "whole.db"), 0);
    expected_ = test::everyRow(directory_ / "whole.db");
  }

  nanoseconds momentBefore(nanoseconds end) {
    return nanoseconds(std::uniform_int_distribution<std::int64_t>(0, end.count())(random_));
  }

  int runProgram(const fs::path& database) const {
    return test::endOf(test::startCollect(database, server_));
  }

  test::Directory directory_;
  std::string server_;
  std::vector<std::string> expected_;
  std::mt19937_64 random_;
};

TEST_F(SuddenDeath, AKilledCollectionKeepsTheRowsOfFinishedCallsAndTearsNone) {
  test::registerEverything();
  platform::metabase::mapServer(u"WEB01",
                                platform::metabase::Metabase::load(server_.substr(server_.find('=') + 1)));
  // A clean run: behind each call the time and the rows of each table.
  std::vector<nanoseconds> reached{nanoseconds(0)};
  std::vector<std::vector<std::vector<std::string>>> rowsBehind;
  test::createDatabase(directory_ / "empty.db");
  fs::copy_file(directory_ / "empty.db", directory_ / "clean.db");
  {
    Database database = Database::openExisting(directory_ / "clean.db", Access::kReadOnly);
    rowsBehind.push_back(test::rowsOf(database));
    auto begin = steady_clock::now();
    test::collectEverything("WEB01", directory_ / "clean.db", directory_.folder("logs"), [&] {
      reached.push_back(reached.back() + (steady_clock::now() - begin));
      rowsBehind.push_back(test::rowsOf(database));
      begin = steady_clock::now();
    });
  }
  const std::size_t calls = rowsBehind.size() - 1;
  ASSERT_GT(calls, 150U);

  int midway = 0;
  int insideCalls = 0;
  for (int round = 0; round < kRounds; ++round) {
    const fs::path place = directory_.folder("round");
    const fs::path file = place / "inventory.db";
    fs::copy_file(directory_ / "empty.db", file);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = test::inChild([&] {
      test::collectEverything("WEB01", file, place, [&] {
        if (write(ends[1], "x", 1) != 1) _exit(2);
      });
    });
    close(ends[1]);

    // The moment is one of the clean run, so that a busy machine doesn't shift it.
    const nanoseconds moment = momentBefore(reached.back());
    const auto before = static_cast<std::size_t>(std::upper_bound(reached.begin(), reached.end(), moment) -
                                                 reached.begin() - 1);
    std::size_t finished = 0;
    char byte = 0;
    while (finished < before && read(ends[0], &byte, 1) == 1) ++finished;
    std::this_thread::sleep_for(moment - reached[before]);
    kill(child, SIGKILL);
    const int status = test::endOf(child);
    while (read(ends[0], &byte, 1) == 1) ++finished;
    close(ends[0]);

    SCOPED_TRACE("round " + std::to_string(round) + ", killed behind call " + std::to_string(finished));
    ASSERT_LE(finished, calls);
    EXPECT_TRUE(status == -SIGKILL || (status == 0 && finished == calls)) << status;
    bool insideCall = false;
    const auto tables = intactRows(file, Access::kReadWrite);
    for (std::size_t at = 0; at < tables.size(); ++at) {
      SCOPED_TRACE(host::tables()[at].name);
      const std::size_t least = rowsBehind[finished][at].size();
      const std::size_t most = rowsBehind[std::min(finished + 1, calls)][at].size();
      ASSERT_TRUE(tables[at].size() >= least && tables[at].size() <= most) << tables[at].size();
      for (std::size_t row = 0; row < tables[at].size(); ++row) {
        const std::string& clean = rowsBehind.back()[at][row];
        const bool early = row >= least && tables[at][row] == withoutStatus(clean);
        EXPECT_TRUE(early || tables[at][row] == clean) << tables[at][row] << "\n" << clean;
      }
      insideCall = insideCall || (tables[at].size() > least && tables[at].size() < most);
    }
    midway += finished > 0 && finished < calls;
    insideCalls += insideCall;
    if (round % 4 == 0) {
      EXPECT_EQ(runProgram(file), 0);
      EXPECT_EQ(test::everyRow(file), expected_);
    }
    fs::remove_all(place);
  }
  std::cout << kRounds << " rounds, " << midway << " killed between the first and the last of " << calls
            << " calls, " << insideCalls << " with a part of a call's rows\n";
  EXPECT_GE(midway, kRounds / 10);
  EXPECT_GE(insideCalls, 1);
}

TEST_F(SuddenDeath, AKilledProgramCanBeRunAgain) {
  const auto start = steady_clock::now();
  ASSERT_EQ(runProgram(directory_ / "timed.db"), 0);
  const nanoseconds duration = steady_clock::now() - start;
  int killed = 0;
  for (int round = 0; round < kRounds * 2 / 5; ++round) {
    SCOPED_TRACE(round);
    const fs::path place = directory_.folder("round");
    const fs::path file = place / "inventory.db";
    const pid_t program = test::startCollect(file, server_);
    // Every other time while the file is being set up.
    const bool early = round % 2 == 0;
    const auto patience = steady_clock::now() + duration;
    while (early && !fs::exists(file) && steady_clock::now() < patience) std::this_thread::yield();
    std::this_thread::sleep_for(momentBefore(early ? duration / 8 : duration));
    kill(program, SIGKILL);
    const int status = test::endOf(program);
    EXPECT_TRUE(status == -SIGKILL || status == 0) << status;
    killed += status != 0;
    if (fs::exists(file)) intactRows(file, Access::kReadOnly);  // a reader may come first
    EXPECT_EQ(runProgram(file), 0);
    EXPECT_EQ(test::everyRow(file), expected_);
    fs::remove_all(place);
  }
  std::cout << kRounds * 2 / 5 << " rounds, " << killed << " killed\n";
  EXPECT_GE(killed, kRounds / 20);
}

}  // namespace
