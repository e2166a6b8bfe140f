// Servers that a command names.
#pragma once

#include <string>
#include <vector>

#include "inventory/inventory.h"

namespace host {

// The collections that a command reads: of the named servers, or of all where none is named, as they were at
// a time, or the current ones where it is empty. In the order of the servers' names. Throws UsageError for a
// server that the inventory lacks, or lacked then, and for an inventory without servers.
std::vector<inventory::CollectionInfo> chosenServers(inventory::Reader& reader,
                                                     const std::vector<std::string>& names,
                                                     const std::string& at = {});

// A reader's callback: prints that a server was collected again while it was read.
void reportSuccessor(const inventory::CollectionInfo& deleted);

}  // namespace host
