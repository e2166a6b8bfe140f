// Collections that are ended at random moments, and what is left of them. --gtest_random_seed gives other
// moments.

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/collection.h"
#include "tests/support/process.h"

namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;
using std::chrono::nanoseconds;
using std::chrono::steady_clock;
using test::Program;

const Strings kServers = {"WEB01", "WEB02"};

std::ptrdiff_t countOf(const fs::path& folder) {
  return std::distance(fs::directory_iterator(folder), {});
}

void nap() {
  std::this_thread::sleep_for(std::chrono::microseconds(100));
}

class SuddenDeath : public testing::Test {
 protected:
  SuddenDeath() : random_(static_cast<unsigned>(GTEST_FLAG_GET(random_seed))) {
    std::cout << "seed " << GTEST_FLAG_GET(random_seed) << "\n";
    for (int state = 0; state < 2; ++state) {
      for (const std::string& name : kServers) {
        test::MetabaseOptions options = test::inProportion(name == "WEB01" ? 20 : 150);
        options.seed = static_cast<std::uint64_t>(state + 1);
        test::generated(folder_, name + std::to_string(state), options);
      }
      const auto start = steady_clock::now();
      EXPECT_EQ(collect(state)->end().status, 0);
      duration_ = steady_clock::now() - start;
      const Strings rows = test::everyRow(database_);
      for (const std::string& name : kServers) rows_[state].push_back(test::rowsOf(name, rows));
      EXPECT_NE(rows_[state][0], rows_[0][1]);
    }
  }

  // Collects one of the two states of both servers.
  std::unique_ptr<Program> collect(int state) const {
    test::Arguments arguments = {"collect", "--quiet", "--jobs", "2", "--database", database_.string()};
    for (const std::string& name : kServers) {
      arguments.push_back(name + "=" + (folder_ / (name + std::to_string(state) + ".xml")).string());
    }
    return std::make_unique<Program>(folder_, arguments);
  }

  // Ends a run at a random moment: of all, or of those in which it publishes. About half of the runs come to
  // their own end before.
  test::Result end(Program& program, bool publishing, int signal) {
    const fs::path awaited = publishing ? journal_ : fs::path("/");
    while (!fs::exists(awaited) && program.runs()) nap();
    const nanoseconds longest = publishing ? duration_ / 10 : duration_;
    const auto wait = std::uniform_int_distribution<std::int64_t>(0, longest.count())(random_);
    std::this_thread::sleep_for(nanoseconds(wait));
    kill(program.id(), signal);
    test::Result result = program.end();
    duration_ = duration_ * (result.status == 0 ? 9 : 11) / 10;
    return result;
  }

  void expectIntact() const {
    sqlite::Database database(database_, sqlite::Database::Mode::kReadOnly, {});
    EXPECT_EQ(database.value("pragma integrity_check"), "ok");
  }

  const test::Folder folder_;
  const fs::path database_ = folder_ / "inventory.db";
  const fs::path journal_ = folder_ / "inventory.db-journal";
  const fs::path temporary_ = folder_ / "temporary";
  nanoseconds duration_{};
  std::vector<Strings> rows_[3] = {{}, {}, {{}, {}}};  // by state and server; of the last there is nothing
  std::mt19937_64 random_;
};

TEST_F(SuddenDeath, LeavesEachServerOldOrNew) {
  constexpr int kRounds = 120;
  std::vector<int> stands = {1, 1};  // the state of each server in the inventory
  int ended = 0, interrupted = 0, changed = 0;
  for (int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE(round);
    const int signal = round % 4 == 3 ? SIGINT : SIGKILL;
    // Now and then there is nothing old.
    if (round % 6 == 5) {
      fs::remove(database_);
      stands = {2, 2};
    }
    const std::ptrdiff_t leftovers = countOf(temporary_);
    const auto program = collect(round % 2);
    const test::Result result = end(*program, round % 3 > 0, signal);
    EXPECT_TRUE(result.status == -signal || result.status == 0) << result.status;
    EXPECT_TRUE(signal == SIGKILL || countOf(temporary_) <= leftovers) << "a private folder has stayed";
    ended += result.status != 0;
    // Too early it ends by the signal alone.
    const bool isReported = result.err.find("ended by a signal") != std::string::npos;
    interrupted += isReported;
    if (fs::exists(database_)) expectIntact();
    const Strings all = test::everyRow(database_);
    for (std::size_t at = 0; at < kServers.size(); ++at) {
      const Strings rows = test::rowsOf(kServers[at], all);
      const bool isNew = rows == rows_[round % 2][at];
      EXPECT_TRUE(isNew || rows == rows_[stands[at]][at]) << kServers[at] << " has " << rows.size();
      EXPECT_TRUE(isNew || result.status != 0);
      if (isReported && stands[at] != round % 2) {
        EXPECT_EQ(result.err.find(kServers[at]) < result.err.find("; not published: "), isNew) << result.err;
      }
      changed += isNew && stands[at] != round % 2;
      if (isNew) stands[at] = round % 2;
    }
  }
  std::cout << kRounds << " rounds, " << ended << " ended, " << interrupted << " of them with a word; "
            << changed << " servers changed\n";
  EXPECT_GE(ended, kRounds / 4);
  EXPECT_GE(interrupted, 1);
  EXPECT_GE(changed, 1);
}

TEST_F(SuddenDeath, IsClearedUpAfterByTheNextUser) {
  const auto program = collect(0);
  while (program->runs() && (!fs::exists(temporary_) || fs::is_empty(temporary_))) nap();
  kill(program->id(), SIGKILL);
  program->end();
  EXPECT_FALSE(fs::is_empty(temporary_));
  fs::create_directory(temporary_ / "iisinventory-private-early");  // of a run that came to no more
  EXPECT_EQ(collect(1)->end().status, 0);
  EXPECT_TRUE(fs::is_empty(temporary_));

  // A half change that stands in the file already.
  const Strings before = test::everyRow(database_);
  for (const bool shows : {true, false}) {
    test::endOf(test::inChild([&] {
      sqlite::Database database(database_, sqlite::Database::Mode::kReadWrite, {});
      database.execute(
          "pragma cache_size = 1; begin; delete from tblvirtualDirectory; delete from tblGeneral");
      kill(getpid(), SIGKILL);
    }));
    ASSERT_NE(test::contents(journal_)[0], '\0');
    if (shows) {
      fs::permissions(database_.parent_path(), fs::perms::owner_read | fs::perms::owner_exec);
      test::runExpecting(folder_, {"show", "--database", database_.string()}, 2, "has been killed",
                         test::withoutRights);
      fs::permissions(database_.parent_path(), fs::perms::owner_all);
      const auto shown = test::run(folder_, {"show", "tblGeneral", "--database", database_.string()});
      EXPECT_EQ(std::count(shown.out.begin(), shown.out.end(), '\n'), 2 + 170 + 8) << shown.err;
      EXPECT_EQ(test::everyRow(database_), before);
    } else {
      EXPECT_EQ(collect(1)->end().status, 0);
    }
    EXPECT_FALSE(fs::exists(journal_));
    expectIntact();
  }
  EXPECT_EQ(test::everyRow(database_), before);
}

}  // namespace
