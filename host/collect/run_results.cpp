#include "host/collect/run_results.h"

#include <algorithm>

#include "host/collect/server_collection.h"

namespace host {

std::vector<std::string> RunResults::namesOf(PublishState state, std::span<const Server> all) const {
  std::vector<std::string> names;
  for (std::size_t at = 0; at < all.size(); ++at) {
    if (servers[at].state == state) names.push_back(all[at].name);
  }
  return names;
}

std::size_t RunResults::count(PublishState state) const {
  return static_cast<std::size_t>(std::ranges::count(servers, state, &ServerResult::state));
}

std::size_t RunResults::collectedCount() const {
  return static_cast<std::size_t>(std::ranges::count(servers, true, &ServerResult::isCollected));
}

ProblemGroups RunResults::groups(std::span<const Server> all) const {
  ProblemGroups groups;
  for (std::size_t at = 0; at < all.size(); ++at) groups.add(all[at].name, servers[at].groups);
  return groups;
}

inventory::RowCounts RunResults::rows() const {
  inventory::RowCounts rows(inventory::tables().size(), 0);
  for (const ServerResult& server : servers) {
    if (server.state != PublishState::kPublished) continue;
    std::ranges::transform(rows, server.rows, rows.begin(), std::plus<>());
  }
  return rows;
}

void RunResults::add(std::size_t place, const std::string& name, const Outcome& outcome,
                     const inventory::RowCounts& rows, const Selection& selection) {
  ServerResult& server = servers[place];
  server.isCollected = true;
  server.rows = rows;
  server.remarks = outcome.remarks;
  const auto items = [&](Side side, std::string_view list, bool isSelected,
                         const std::vector<std::string>& found) -> std::optional<std::int64_t> {
    if (!selection.needsList(side)) return std::nullopt;
    if (!isSelected) return rows[inventory::findTable(list)];
    return static_cast<std::int64_t>(std::set(found.begin(), found.end()).size());
  };
  server.sites = items(Side::kFtp, "tblFTPSiteInfo", !selection.sites.empty(), outcome.foundSites);
  server.pools = items(Side::kPools, "tblAppPoolInfo", !selection.pools.empty(), outcome.foundPools);
  foundSites.insert(outcome.foundSites.begin(), outcome.foundSites.end());
  foundPools.insert(outcome.foundPools.begin(), outcome.foundPools.end());
  for (const inventory::Problem& problem : outcome.collected.problems) server.groups.add(name, problem);
}

}  // namespace host
