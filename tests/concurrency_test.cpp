// Parallel collections.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/collection.h"
#include "tests/support/process.h"

namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;
using test::Arguments;
using test::Program;

class Concurrency : public testing::Test {
 protected:
  // A metabase whose sites, trees and pools differ from those of other seeds.
  std::string generate(int seed) const {
    test::MetabaseOptions options = test::optionsForSites(10 + 3 * seed);
    options.seed = static_cast<std::uint64_t>(seed);
    const std::string server = test::generateMetabase(folder_, std::to_string(seed), options);
    return server.substr(server.find('=') + 1);
  }

  std::unique_ptr<Program> collect(const fs::path& database, Arguments arguments,
                                   const std::function<void()>& prepare = {}) const {
    arguments.insert(arguments.begin(), {"collect", "--wait", "100000", "--database", database.string()});
    return std::make_unique<Program>(folder_, arguments, prepare);
  }

  Strings collectAlone(const std::string& server) const {
    const fs::path database = folder_ / "alone.db";
    fs::remove(database);
    EXPECT_EQ(collect(database, {server})->wait().status, 0);
    const Strings rows = test::readAllRows(database);
    EXPECT_GT(rows.size(), 150U);
    return rows;
  }

  const test::Folder folder_;
};

TEST_F(Concurrency, ParallelRunsPublishEachServerAtomically) {
  const Strings servers = {"ONE=" + generate(1), "ONE=" + generate(2), "TWO=" + generate(3)};
  const Strings expected[] = {collectAlone(servers[0]), collectAlone(servers[1]), collectAlone(servers[2])};
  for (int round = 0; round < 8; ++round) {
    // The first rounds race for creating the file, the later ones for replacing its rows.
    const fs::path database = folder_.folder(std::to_string(std::min(round, 4))) / "inventory.db";
    std::vector<std::unique_ptr<Program>> programs;
    for (const std::string& server : servers) programs.push_back(collect(database, {server}));
    const auto checkRows = [&] {
      const Strings rows = test::readAllRows(database);
      const Strings one = test::selectServer("ONE", rows);
      const Strings two = test::selectServer("TWO", rows);
      EXPECT_TRUE(one.empty() || one == expected[0] || one == expected[1]) << one.size();
      EXPECT_TRUE(two.empty() || two == expected[2]) << two.size();
      return !one.empty() && !two.empty() && one.size() + two.size() == rows.size();
    };
    const auto isRunning = [](const auto& program) { return program->isRunning(); };
    while (std::any_of(programs.begin(), programs.end(), isRunning)) checkRows();
    for (const auto& program : programs) EXPECT_EQ(program->wait().status, 0);
    EXPECT_TRUE(checkRows());
  }
}

TEST_F(Concurrency, ParallelJobsPublishTheSameRowsAsOneJob) {
  Arguments arguments = {"GONE=" + (folder_ / "gone.xml").string(), "LARGE=" + generate(100), "--jobs", "1"};
  const std::string small = generate(0);
  for (int at = 0; at < 50; ++at) arguments.push_back("SRV" + std::to_string(at) + "=" + small);
  const fs::path sequential = folder_ / "turn.db";
  EXPECT_EQ(collect(sequential, arguments)->wait().status, 1);
  const Strings expected = test::readAllRows(sequential);
  EXPECT_EQ(test::selectServer("SRV49", expected).size(), test::selectServer("SRV0", expected).size());

  arguments[3] = "200";
  const fs::path parallel = folder_ / "side.db";
  const auto limitFiles = [] {
    const rlimit few{64, 64};
    if (::setrlimit(RLIMIT_NOFILE, &few) != 0) throw std::runtime_error("no limit");
  };
  for (int round = 0; round < 2; ++round) {
    const test::Result result = collect(parallel, arguments, limitFiles)->wait();
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.out.find("at most 64 files"), std::string::npos) << result.out;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_EQ(test::readAllRows(parallel), expected);
  }
}

}  // namespace
