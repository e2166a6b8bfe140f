#include "host/copy.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "automation/text.h"
#include "host/problem_groups.h"
#include "host/terminal_text.h"
#include "inventory/inventory.h"

namespace host {
namespace {

bool sameServer(const std::string& left, const std::string& right) {
  return automation::equalsIgnoringCase(automation::fromUtf8(left), automation::fromUtf8(right));
}

std::string rows(const inventory::RowCounts& counts) {
  const std::int64_t rows = std::accumulate(counts.begin(), counts.end(), std::int64_t{0});
  return counted(rows, "row", "rows");
}

int copyOnce(const CopyOptions& options, Output& output) {
  const auto source = inventory::openForReading(options.from, options.access);
  const auto snapshot = source->snapshot();
  std::vector<std::string> servers = snapshot->servers();
  int status = 0;
  if (!options.servers.empty()) {
    const std::vector<std::string> there = std::exchange(servers, {});
    for (const std::string& wanted : options.servers) {
      const auto found =
          std::ranges::find_if(there, [&](const std::string& server) { return sameServer(server, wanted); });
      if (found == there.end()) {
        complain("there is no server '" + wanted + "' in " + inventory::shownName(options.from));
        status = 1;
      } else if (std::ranges::find(servers, *found) == servers.end()) {
        servers.push_back(*found);
      }
    }
  }
  if (servers.empty()) {
    complain("nothing was copied: there is no server to copy in " + inventory::shownName(options.from));
    return 2;
  }
  const auto target = inventory::openForPublishing(options.to, options.access);
  const inventory::Published taken = target->take(*snapshot, servers);
  if (std::ranges::any_of(taken.replaced, [](std::int64_t count) { return count > 0; })) {
    output.write("replaced " + rows(taken.replaced) + " of them\n");
  }
  output.write("copied " + counted(static_cast<std::int64_t>(servers.size()), "server", "servers") +
               " into " + harmless(inventory::shownName(options.to)) + ": " + rows(taken.added) + "\n");
  for (const inventory::Problem& problem : taken.problems) {
    complain(problem.table + " " + problem.item + ": " + problem.message);
    status = 1;
  }
  output.flush();
  return status;
}

}  // namespace

int copy(const CopyOptions& options, Output& output) {
  try {
    return copyOnce(options, output);
  } catch (const inventory::Unreachable&) {
    // Once more, as a whole.
    return copyOnce(options, output);
  }
}

}  // namespace host
