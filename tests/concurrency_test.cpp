// Several collections at the same time.

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
  // A file with other sites, trees and pools than those of other seeds.
  std::string file(int seed) const {
    test::MetabaseOptions options = test::inProportion(10 + 3 * seed);
    options.seed = static_cast<std::uint64_t>(seed);
    const std::string server = test::generated(folder_, std::to_string(seed), options);
    return server.substr(server.find('=') + 1);
  }

  std::unique_ptr<Program> collect(const fs::path& database, Arguments arguments,
                                   const std::function<void()>& prepare = {}) const {
    arguments.insert(arguments.begin(), {"collect", "--wait", "100000", "--database", database.string()});
    return std::make_unique<Program>(folder_, arguments, prepare);
  }

  // The rows of a server that is collected alone.
  Strings alone(const std::string& server) const {
    const fs::path database = folder_ / "alone.db";
    fs::remove(database);
    EXPECT_EQ(collect(database, {server})->end().status, 0);
    const Strings rows = test::everyRow(database);
    EXPECT_GT(rows.size(), 150U);
    return rows;
  }

  const test::Folder folder_;
};

TEST_F(Concurrency, RunsAtOnceLeaveOneInventoryOfEachServerAndAReaderNeverSeesHalfOfOne) {
  const Strings servers = {"ONE=" + file(1), "ONE=" + file(2), "TWO=" + file(3)};
  const Strings expected[] = {alone(servers[0]), alone(servers[1]), alone(servers[2])};
  for (int round = 0; round < 8; ++round) {
    // The first rounds race for making the file, the later ones for what stands in it.
    const fs::path database = folder_.folder(std::to_string(std::min(round, 4))) / "inventory.db";
    std::vector<std::unique_ptr<Program>> programs;
    for (const std::string& server : servers) programs.push_back(collect(database, {server}));
    const auto look = [&] {
      const Strings rows = test::everyRow(database);
      const Strings one = test::rowsOf("ONE", rows);
      const Strings two = test::rowsOf("TWO", rows);
      EXPECT_TRUE(one.empty() || one == expected[0] || one == expected[1]) << one.size();
      EXPECT_TRUE(two.empty() || two == expected[2]) << two.size();
      return !one.empty() && !two.empty() && one.size() + two.size() == rows.size();
    };
    const auto isRunning = [](const auto& program) { return program->runs(); };
    while (std::any_of(programs.begin(), programs.end(), isRunning)) look();
    for (const auto& program : programs) EXPECT_EQ(program->end().status, 0);
    EXPECT_TRUE(look());
  }
}

TEST_F(Concurrency, ServersSideBySideGiveTheRowsOfServersInTurn) {
  Arguments arguments = {"GONE=" + (folder_ / "gone.xml").string(), "LARGE=" + file(100), "--jobs", "1"};
  const std::string small = file(0);
  for (int at = 0; at < 50; ++at) arguments.push_back("SRV" + std::to_string(at) + "=" + small);
  const fs::path inTurn = folder_ / "turn.db";
  EXPECT_EQ(collect(inTurn, arguments)->end().status, 1);
  const Strings expected = test::everyRow(inTurn);
  EXPECT_EQ(test::rowsOf("SRV49", expected).size(), test::rowsOf("SRV0", expected).size());

  arguments[3] = "200";
  const fs::path sideBySide = folder_ / "side.db";
  const auto limitFiles = [] {
    const rlimit few{64, 64};
    if (::setrlimit(RLIMIT_NOFILE, &few) != 0) throw std::runtime_error("no limit");
  };
  for (int round = 0; round < 2; ++round) {
    const test::Result result = collect(sideBySide, arguments, limitFiles)->end();
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.out.find("at most 64 files"), std::string::npos) << result.out;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_EQ(test::everyRow(sideBySide), expected);
  }
}

}  // namespace
