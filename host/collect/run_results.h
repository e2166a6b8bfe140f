// Results of a run.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "host/collect/problem_groups.h"
#include "host/sections.h"
#include "host/sources/sources.h"
#include "inventory/inventory.h"

namespace host {

enum class PublishState : char { kOpen, kPublished, kFailed, kUnknown };

// How many servers a line names.
inline constexpr std::size_t kMostNames = 20;

struct Outcome;

// In a dry run, what would be published counts as published.
struct ServerResult {
  PublishState state = PublishState::kOpen;
  bool isCollected = false;
  inventory::RowCounts rows;      // by table, if it was collected
  std::int64_t replacedRows = 0;  // of previous collections
  std::optional<std::int64_t> sites;
  std::optional<std::int64_t> pools;
  std::vector<std::string> remarks;  // what it lacks, as a phrase after "has"
  std::vector<std::string> errors;
  ProblemGroups groups;
};

struct RunResults {
  explicit RunResults(std::size_t serverCount) : servers(serverCount) {}

  std::vector<std::string> namesOf(PublishState state, std::span<const Server> all) const;
  std::size_t count(PublishState state) const;
  std::size_t collectedCount() const;
  // Of all servers, whose names are given.
  ProblemGroups groups(std::span<const Server> all) const;
  // Of what was published.
  inventory::RowCounts rows() const;

  // Adds what was collected of a server.
  void add(std::size_t place, const std::string& name, const Outcome& outcome,
           const inventory::RowCounts& rows, const Selection& selection);

  std::vector<ServerResult> servers;  // by the server's index
  std::vector<std::string> errors;    // that concern no server of the run
  std::string workerError;            // why a thread ended
  std::set<std::string> foundSites;
  std::set<std::string> foundPools;
};

}  // namespace host
