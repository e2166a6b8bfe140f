// Copies servers from one inventory to another.
#pragma once

#include "host/options.h"
#include "host/output.h"

namespace host {

// Copies all kept collections of servers and gives the exit status. Throws inventory::Error if nothing was
// copied.
int copy(const CopyOptions& options, Output& output);

}  // namespace host
