// Several collections at the same time into one database.

#include <gtest/gtest.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "automation/text.h"
#include "platform/metabase/servers.h"
#include "tests/support/collection.h"
#include "tests/support/process.h"

namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

class Company : public testing::Test {
 protected:
  // Makes so many servers, each with other sites, trees and pools, and collects each alone into a database of
  // its own for the rows to expect.
  void makeServers(int count) {
    for (int at = 1; at <= count; ++at) {
      bench::MetabaseOptions options = bench::inProportion(10 + 3 * at);
      options.seed = static_cast<std::uint64_t>(at);
      servers_.push_back(directory_.server("SRV" + std::to_string(at), options));
      const fs::path database = directory_.folder("alone") / (std::to_string(at) + ".db");
      EXPECT_EQ(test::endOf(test::startCollect(database, servers_.back())), 0);
      const Strings rows = test::everyRow(database);
      EXPECT_GT(rows.size(), 150U);
      expected_.insert(expected_.end(), rows.begin(), rows.end());
    }
    std::sort(expected_.begin(), expected_.end());
  }

  test::Directory directory_;
  Strings servers_;
  Strings expected_;
};

TEST_F(Company, TwoProcessesLeaveTheRowsOfBoth) {
  makeServers(2);
  for (int round = 0; round < 10; ++round) {
    // The first rounds race for making the file, the later ones for clearing and filling it.
    const fs::path database = directory_.folder(std::to_string(std::min(round, 5))) / "inventory.db";
    const pid_t first = test::startCollect(database, servers_[0]);
    const pid_t second = test::startCollect(database, servers_[1]);
    EXPECT_EQ(test::endOf(first), 0);
    EXPECT_EQ(test::endOf(second), 0);
    ASSERT_EQ(test::everyRow(database), expected_) << round;
  }
}

TEST_F(Company, EightThreadsWithObjectsOfTheirOwnLeaveTheRowsOfAll) {
  makeServers(8);
  test::registerEverything();
  const fs::path database = directory_ / "inventory.db";
  const fs::path logs = directory_.folder("logs");
  test::createDatabase(database);
  Strings failures(servers_.size());
  std::vector<std::thread> threads;
  for (std::size_t at = 0; at < servers_.size(); ++at) {
    threads.emplace_back([&, at] {
      try {
        const std::string name = servers_[at].substr(0, servers_[at].find('='));
        platform::metabase::mapServer(automation::fromUtf8(name), platform::metabase::Metabase::load(
                                                                      servers_[at].substr(name.size() + 1)));
        test::collectEverything(name, database, logs);
        platform::metabase::unmapServer(automation::fromUtf8(name));
      } catch (const std::exception& failure) {
        failures[at] = failure.what();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, Strings(servers_.size()));
  EXPECT_TRUE(fs::is_empty(logs));
  EXPECT_EQ(test::everyRow(database), expected_);
  EXPECT_FALSE(fs::exists(database.string() + "-wal"));
}

}  // namespace
