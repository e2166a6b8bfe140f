// Selects the servers that a command reads.
#pragma once

#include <string>
#include <vector>

#include "inventory/inventory.h"

namespace host {

// Returns the known servers that a name, or a pattern with * and ?, selects. A server of exactly this name is
// selected alone, whatever characters the name has.
std::vector<std::string> matchServers(const std::vector<std::string>& known, const std::string& wanted);

// Returns the known servers that any of the names or patterns selects. Throws UsageError for one that selects
// none.
std::vector<std::string> selectServers(const std::vector<std::string>& known,
                                       const std::vector<std::string>& wanted);

// Returns the collections of the servers that the names or patterns select, or of all if `names` is empty,
// sorted by server name: those that were current at the time `at`, or the current ones if it is empty. Throws
// UsageError for a name or pattern without such a collection, and for an inventory without servers.
std::vector<inventory::CollectionInfo> chosenServers(inventory::Reader& reader,
                                                     const std::vector<std::string>& names,
                                                     const std::string& at = {});

// Callback of inventory::Reader: prints a note that a server was collected again while it was read.
void reportSuccessor(const inventory::CollectionInfo& deleted);

}  // namespace host
