// Which of an inventory's servers are meant.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "inventory/inventory.h"

namespace host {

// The servers that are named, as the inventory spells them, in its order; all of them where none is named.
// Throws UsageError for a name that there is nothing of, and
// for a database that has none of an inventory's tables.
std::vector<std::string> chosenServers(inventory::Snapshot& snapshot, const std::vector<std::string>& names);

// The one that is named; the only one there is where the name is empty. Throws UsageError.
std::string chosenServer(inventory::Snapshot& snapshot, const std::string& name);

// Why a text can't be a server's name, or nothing.
std::optional<std::string> whyNoName(const std::string& name);

}  // namespace host
