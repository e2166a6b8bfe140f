#include "host/query/servers.h"

#include <fmt/core.h>

#include <algorithm>
#include <iterator>

#include "host/console/output.h"
#include "host/console/suggestion.h"
#include "host/query/pattern.h"
#include "host/usage_error.h"
#include "inventory/names.h"

namespace host {

using inventory::CollectionInfo;
using Strings = std::vector<std::string>;

Strings matchServers(const Strings& known, const std::string& wanted) {
  Strings matches;
  for (const std::string& name : known) {
    if (inventory::sameName(name, wanted)) return {name};
    if (matchesPattern(name, wanted)) matches.push_back(name);
  }
  return matches;
}

Strings selectServers(const Strings& known, const Strings& wanted) {
  Strings selected;
  for (const std::string& each : wanted) {
    const Strings matches = matchServers(known, each);
    if (matches.empty())
      throw UsageError(fmt::format("no server '{}' in the database{}", each, didYouMean(each, known)));
    std::ranges::copy_if(matches, std::back_inserter(selected), [&](const std::string& name) {
      return std::ranges::find(selected, name) == selected.end();
    });
  }
  return selected;
}

std::vector<CollectionInfo> chosenServers(inventory::Reader& reader, const Strings& names,
                                          const std::string& at) {
  std::vector<CollectionInfo> found;
  if (names.empty()) {
    found = reader.collections({{}, at});
    if (found.empty())
      throw UsageError(at.empty() ? "no servers in the database" : "no collections at " + at);
    return found;
  }
  const Strings known = reader.serverNames();
  for (const std::string& name : names) {
    const auto matches = reader.collections({selectServers(known, {name}), at});
    if (matches.empty()) throw UsageError(fmt::format("no collection of server '{}' at {}", name, at));
    found.insert(found.end(), matches.begin(), matches.end());
  }
  std::ranges::sort(found, {}, &CollectionInfo::serverKey);
  const auto repeated = std::ranges::unique(found, {}, &CollectionInfo::serverKey);
  found.erase(repeated.begin(), repeated.end());
  return found;
}

void reportSuccessor(const CollectionInfo& deleted) {
  printError(deleted.server + " was collected again meanwhile; showing the new collection");
}

}  // namespace host
