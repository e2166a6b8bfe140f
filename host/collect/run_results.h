// Results of a run.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "host/collect/problem_groups.h"
#include "host/console/listing.h"
#include "host/sources/sources.h"
#include "inventory/inventory.h"

namespace host {

enum class PublishState : char { kOpen, kPublished, kFailed, kUnknown };

// How many servers a line names.
inline constexpr std::size_t kMostNames = 20;

// In a dry run, what would be published counts as published.
struct RunResults {
  explicit RunResults(std::size_t servers)
      : rows(inventory::tables().size(), 0), states(servers, PublishState::kOpen) {}

  std::vector<std::string> namesOf(PublishState state, std::span<const Server> servers) const {
    std::vector<std::string> names;
    for (std::size_t at = 0; at < servers.size(); ++at) {
      if (states[at] == state) names.push_back(servers[at].name);
    }
    return names;
  }

  std::int64_t collectedCount = 0;
  std::int64_t errorCount = 0;  // lines on the standard error output
  ProblemGroups groups;
  inventory::RowCounts rows;
  std::map<std::string, std::vector<std::string>> remarks;  // with the servers
  std::map<std::size_t, Row> dryRunRows;                    // by the server's index
  std::int64_t replacedRows = 0;
  std::vector<std::string> replaced;  // servers with replaced rows
  std::vector<PublishState> states;   // by the server's index
  std::string workerError;            // why a thread ended
  std::set<std::string> foundSites;
  std::set<std::string> foundPools;
};

}  // namespace host
