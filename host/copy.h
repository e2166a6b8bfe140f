// Inventories from one database to another.
#pragma once

#include "host/options.h"
#include "host/output.h"

namespace host {

// Copies what stands of servers, and gives the exit status. Throws inventory::Error where nothing was copied.
int copy(const CopyOptions& options, Output& output);

}  // namespace host
