// The command "diff".
#pragma once

#include "host/options.h"
#include "host/output.h"

namespace host {

// Compares two states of servers, or two servers. Returns the exit status: 0 alike, 1 different. Throws
// inventory::Error, and UsageError for a server that isn't there.
int diff(const DiffOptions& options, Output& output);

}  // namespace host
