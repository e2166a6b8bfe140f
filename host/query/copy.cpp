#include "host/query/copy.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "host/console/terminal_text.h"
#include "host/console/text.h"
#include "host/query/retry.h"
#include "host/query/server_commands.h"
#include "host/query/servers.h"
#include "inventory/inventory.h"

namespace host {
namespace {

struct CopyResult {
  std::vector<std::string> servers;  // as the source spells them
  std::vector<std::string> missing;
  inventory::Published rows;
};

void addNew(std::vector<std::string>& names, const std::string& name) {
  if (std::ranges::find(names, name) == names.end()) names.push_back(name);
}

CopyResult copyServers(const CopyOptions& options) {
  const auto source = inventory::openForReading(options.from, options.access);
  CopyResult copied;
  const std::vector<std::string> known = source->read().serverNames();
  if (options.servers.empty()) copied.servers = known;
  for (const std::string& wanted : options.servers) {
    const std::vector<std::string> matches = matchServers(known, wanted);
    if (matches.empty()) addNew(copied.missing, wanted);
    for (const std::string& name : matches) addNew(copied.servers, name);
  }
  if (copied.servers.empty()) return copied;
  const auto target = inventory::openForPublishing(options.to, options.access);
  copied.rows = target->copyFrom(*source, copied.servers);
  try {
    target->finishPublishing();
  } catch (const inventory::Error& error) {
    // The servers are copied: statistics only make later commands faster.
    printError(error.what());
  }
  return copied;
}

}  // namespace

int copy(const CopyOptions& options, Output& output) {
  const CopyResult copied = retryOnDisconnect([&] { return copyServers(options); });
  const std::string from = inventory::shownName(options.from);
  for (const std::string& name : copied.missing) printError(fmt::format("no server '{}' in {}", name, from));
  if (copied.servers.empty()) {
    printError("nothing copied: no server to copy in " + from);
    return 2;
  }
  for (const inventory::Problem& problem : copied.rows.problems)
    printError(fmt::format("{} {}: {}", problem.table, problem.item, problem.message));
  const std::int64_t replaced = inventory::sumOf(copied.rows.replaced);
  const std::string done =
      fmt::format("copied {} into {}: {}{}",
                  pluralize(static_cast<std::int64_t>(copied.servers.size()), "server", "servers"),
                  escapeForTerminal(inventory::shownName(options.to)),
                  pluralize(inventory::sumOf(copied.rows.added), "row", "rows"),
                  replaced > 0 ? fmt::format(" (replaced {})", replaced) : "");
  return reportChange(output, done, copied.missing.empty() && copied.rows.problems.empty() ? 0 : 1);
}

}  // namespace host
