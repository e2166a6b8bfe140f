#include "host/servers.h"

#include <algorithm>

#include "automation/text.h"
#include "host/nearest.h"
#include "host/options.h"
#include "host/output.h"
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
  complain(deleted.server + " was collected again meanwhile; showing the new collection");
}

std::optional<std::string> serverNameError(const std::string& name) {
  if (name.empty()) return "it is empty";
  if (automation::toUtf8(automation::fromUtf8(name)) != name) return "it is not UTF-8";
  if (name.front() == ' ' || name.back() == ' ') return "it begins or ends with a blank";
  for (const char c : name) {
    if (c == '/' || c == '\\') return "it contains a slash";
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) return "it contains a control character";
  }
  return std::nullopt;
}

}  // namespace host
