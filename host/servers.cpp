#include "host/servers.h"

#include <algorithm>

#include "automation/text.h"
#include "host/nearest.h"
#include "host/options.h"
#include "inventory/names.h"

namespace host {

std::vector<std::string> chosenServers(inventory::Snapshot& snapshot, const std::vector<std::string>& names) {
  if (snapshot.tableNames().empty()) throw UsageError("the database has none of an inventory's tables");
  std::vector<std::string> there = snapshot.servers();
  const auto is = [](const std::string& server) {
    return [&server](const std::string& name) { return inventory::sameName(name, server); };
  };
  for (const std::string& name : names) {
    if (std::ranges::any_of(there, is(name))) continue;
    throw UsageError("there is no server '" + name + "' in the database" + didYouMean(name, there));
  }
  if (names.empty()) return there;
  std::erase_if(there, [&](const std::string& server) { return std::ranges::none_of(names, is(server)); });
  return there;
}

std::string chosenServer(inventory::Snapshot& snapshot, const std::string& name) {
  if (!name.empty()) return chosenServers(snapshot, {name}).front();
  const std::vector<std::string> there = chosenServers(snapshot, {});
  if (there.empty()) throw UsageError("there is no server in the database");
  if (there.size() > 1) {
    throw UsageError("there are " + std::to_string(there.size()) +
                     " servers in the database; --server says which one is meant");
  }
  return there.front();
}

std::optional<std::string> whyNoName(const std::string& name) {
  if (name.empty()) return "it is empty";
  if (automation::toUtf8(automation::fromUtf8(name)) != name) return "it is not UTF-8";
  if (name.front() == ' ' || name.back() == ' ') return "it begins or ends in a blank";
  for (const char c : name) {
    if (c == '/' || c == '\\') return "it holds a slash";
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) return "it holds a control character";
  }
  return std::nullopt;
}

}  // namespace host
