// Collections killed at random moments. --gtest_random_seed varies the moments.

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
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
using sqlite::Database;
using std::chrono::nanoseconds;
using std::chrono::steady_clock;
using test::Program;

const Strings kServers = {"WEB01", "WEB02"};

std::ptrdiff_t countEntries(const fs::path& folder) {
  return std::distance(fs::directory_iterator(folder), {});
}

void pause() {
  std::this_thread::sleep_for(std::chrono::microseconds(100));
}

class SuddenDeath : public testing::Test {
 protected:
  SuddenDeath() : random_(static_cast<unsigned>(GTEST_FLAG_GET(random_seed))) {
    std::cout << "seed " << GTEST_FLAG_GET(random_seed) << "\n";
    for (int state = 0; state < 2; ++state) {
      for (const std::string& name : kServers) {
        test::MetabaseOptions options = test::optionsForSites(name == "WEB01" ? 20 : 150);
        options.seed = static_cast<std::uint64_t>(state + 1);
        test::generateMetabase(folder_, name + std::to_string(state), options);
      }
      const auto start = steady_clock::now();
      EXPECT_EQ(collect(state)->wait().status, 0);
      duration_ = steady_clock::now() - start;
      const Strings rows = test::readAllRows(database_);
      for (const std::string& name : kServers) rows_[state].push_back(test::selectServer(name, rows));
      EXPECT_NE(rows_[state][0], rows_[0][1]);
    }
  }

  std::unique_ptr<Program> collect(int state, const char* wait = "60") const {
    test::Arguments arguments = {"collect", "--quiet", "--jobs",     "2",
                                 "--wait",  wait,      "--database", database_.string()};
    for (const std::string& name : kServers)
      arguments.push_back(name + "=" + (folder_ / (name + std::to_string(state) + ".xml")).string());
    return std::make_unique<Program>(folder_, arguments);
  }

  // Ends a run at a random moment of the run or of its publication. About half of the runs finish before.
  test::Result end(Program& program, bool publishing, int signal) {
    const fs::path awaited = publishing ? journal_ : fs::path("/");
    while (!fs::exists(awaited) && program.isRunning()) pause();
    const nanoseconds longest = publishing ? duration_ / 10 : duration_;
    const auto wait = std::uniform_int_distribution<std::int64_t>(0, longest.count())(random_);
    std::this_thread::sleep_for(nanoseconds(wait));
    kill(program.id(), signal);
    test::Result result = program.wait();
    duration_ = duration_ * (result.status == 0 ? 9 : 11) / 10;
    return result;
  }

  void expectIntact() const {
    Database database(database_, Database::Mode::kReadOnly, {});
    EXPECT_EQ(database.value("pragma integrity_check"), "ok");
  }

  const test::Folder folder_;
  const fs::path database_ = folder_ / "inventory.db";
  const fs::path journal_ = folder_ / "inventory.db-journal";
  const fs::path temporary_ = folder_ / "temporary";
  nanoseconds duration_{};
  std::vector<Strings> rows_[3] = {
      {}, {}, {{}, {}}};  // by state and server; the last state is an empty inventory
  std::mt19937_64 random_;
};

TEST_F(SuddenDeath, KeepsEachServerCompletelyOldOrNew) {
  const int rounds = test::killRounds();
  std::vector<int> current = {1, 1};  // the state of each server in the inventory
  int ended = 0, interrupted = 0, changed = 0;
  // Continues until each outcome has occurred, however fast the machine is.
  const auto isComplete = [&] { return ended >= rounds / 10 + 1 && interrupted > 0 && changed > 0; };
  int round = 0;
  for (; round < rounds || (!isComplete() && round < 10 * rounds); ++round) {
    SCOPED_TRACE(round);
    const int signal = round % 4 == 3 ? SIGINT : SIGKILL;
    if (round % 6 == 5) {
      fs::remove(database_);
      current = {2, 2};
    }
    const std::ptrdiff_t leftovers = countEntries(temporary_);
    const auto program = collect(round % 2);
    const test::Result result = end(*program, round % 3 > 0, signal);
    EXPECT_TRUE(result.status == -signal || result.status == 0) << result.status;
    EXPECT_TRUE(signal == SIGKILL || countEntries(temporary_) <= leftovers) << "a private folder is left";
    ended += result.status != 0;
    // Before its handler is installed, the signal ends the program silently.
    const bool isReported = result.err.find("ended by a signal") != std::string::npos;
    interrupted += isReported;
    if (fs::exists(database_)) expectIntact();
    const Strings all = test::readAllRows(database_);
    for (std::size_t at = 0; at < kServers.size(); ++at) {
      const Strings rows = test::selectServer(kServers[at], all);
      const bool isNew = rows == rows_[round % 2][at];
      EXPECT_TRUE(isNew || rows == rows_[current[at]][at]) << kServers[at] << " has " << rows.size();
      EXPECT_TRUE(isNew || result.status != 0);
      if (isReported && current[at] != round % 2) {
        EXPECT_EQ(result.err.find(kServers[at]) < result.err.find("; not published: "), isNew) << result.err;
      }
      changed += isNew && current[at] != round % 2;
      if (isNew) current[at] = round % 2;
    }
  }
  std::cout << round << " rounds, " << ended << " ended, " << interrupted << " of them reported; " << changed
            << " servers changed\n";
  EXPECT_TRUE(isComplete());
}

TEST_F(SuddenDeath, IsCleanedUpByTheNextRun) {
  constexpr const char* kMark = "mark-of-a-private-folder";
  {
    // The lock keeps the program from finishing.
    Database locking(database_, Database::Mode::kReadWrite, {});
    const sqlite::Transaction lock(locking);
    const auto program = collect(0, "100000");
    const auto hasMark = [&] {
      std::error_code error;
      const fs::directory_iterator folder(temporary_, error);
      return folder != fs::directory_iterator() && fs::exists(folder->path() / kMark, error);
    };
    while (program->isRunning() && !hasMark()) pause();
    kill(program->id(), SIGKILL);
    EXPECT_EQ(program->wait().status, -SIGKILL);
  }
  const fs::path left = fs::directory_iterator(temporary_)->path();
  // In whatever order the file system lists them, the mark is between them.
  const fs::path mark = left / kMark;
  for (int file = 0; file < 30; ++file) {
    if (file == 15 && fs::remove(mark)) std::ofstream(mark).flush();
    fs::create_directory(left / std::to_string(file));
  }
  fs::create_directory(temporary_ / "iisinventory-private-early");  // of a run that was killed early
  const int removals = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  ASSERT_GT(::inotify_add_watch(removals, left.c_str(), IN_DELETE), 0);
  EXPECT_EQ(collect(1)->wait().status, 0);
  EXPECT_TRUE(fs::is_empty(temporary_));
  // If that run had been killed too, the next one would have recognised the rest by the mark.
  alignas(inotify_event) char events[1 << 16];
  std::string last;
  for (ssize_t size = ::read(removals, events, sizeof events), at = 0; at < size;) {
    const auto* const event = reinterpret_cast<const inotify_event*>(events + at);
    if ((event->mask & IN_DELETE) != 0) last = event->name;
    at += static_cast<ssize_t>(sizeof *event + event->len);
  }
  EXPECT_EQ(last, mark.filename());
  ::close(removals);

  // A partial change that is already in the file.
  const Strings before = test::readAllRows(database_);
  for (const bool shows : {true, false}) {
    test::waitFor(test::runInChild([&] {
      Database database(database_, Database::Mode::kReadWrite, {});
      database.execute(
          "pragma cache_size = 1; begin; delete from tblvirtualDirectory; delete from tblGeneral");
      kill(getpid(), SIGKILL);
    }));
    ASSERT_NE(test::contents(journal_)[0], '\0');
    if (shows) {
      fs::permissions(database_.parent_path(), fs::perms::owner_read | fs::perms::owner_exec);
      test::runExpecting(folder_, {"show", "--database", database_.string()}, 2, "an interrupted write",
                         test::dropFileCapabilities);
      fs::permissions(database_.parent_path(), fs::perms::owner_all);
      const auto shown = test::run(folder_, {"show", "tblGeneral", "--database", database_.string()});
      EXPECT_EQ(std::count(shown.out.begin(), shown.out.end(), '\n'), 2 + 170 + 8) << shown.err;
      EXPECT_EQ(test::readAllRows(database_), before);
    } else {
      EXPECT_EQ(collect(1)->wait().status, 0);
    }
    EXPECT_FALSE(fs::exists(journal_));
    expectIntact();
  }
  EXPECT_EQ(test::readAllRows(database_), before);
}

}  // namespace
