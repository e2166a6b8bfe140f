// Selects the servers that a command reads.
#pragma once

#include <string>
#include <vector>

#include "inventory/inventory.h"

namespace host {

// Returns the collections of the named servers, or of all if `names` is empty, sorted by server name: those
// that were current at the time `at`, or the current ones if it is empty. Throws UsageError for a server
// without such a collection, and for an inventory without servers.
std::vector<inventory::CollectionInfo> chosenServers(inventory::Reader& reader,
                                                     const std::vector<std::string>& names,
                                                     const std::string& at = {});

// Callback of inventory::Reader: prints a note that a server was collected again while it was read.
void reportSuccessor(const inventory::CollectionInfo& deleted);

}  // namespace host
