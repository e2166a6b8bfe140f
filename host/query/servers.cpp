#include "host/query/servers.h"

#include <algorithm>

#include "host/console/output.h"
#include "host/console/suggestion.h"
#include "host/usage_error.h"
#include "inventory/names.h"

namespace host {

std::vector<inventory::CollectionInfo> chosenServers(inventory::Reader& reader,
                                                     const std::vector<std::string>& names,
                                                     const std::string& at) {
  std::vector<inventory::CollectionInfo> found = reader.collections({names, at});
  const auto isFound = [&](const std::string& name) {
    return std::ranges::find(found, inventory::folded(name), &inventory::CollectionInfo::serverKey) !=
           found.end();
  };
  for (const std::string& name : names) {
    if (isFound(name)) continue;
    const std::vector<std::string> servers = reader.serverNames();
    if (std::ranges::any_of(servers,
                            [&](const std::string& each) { return inventory::sameName(each, name); }))
      throw UsageError("no collection of server '" + name + "' at " + at);
    throw UsageError("no server '" + name + "' in the database" + didYouMean(name, servers));
  }
  if (found.empty()) throw UsageError(at.empty() ? "no servers in the database" : "no collections at " + at);
  return found;
}

void reportSuccessor(const inventory::CollectionInfo& deleted) {
  printError(deleted.server + " was collected again meanwhile; showing the new collection");
}

}  // namespace host
