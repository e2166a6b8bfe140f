// The command "collect".
#pragma once

#include "host/options.h"
#include "host/output.h"

namespace host {

// Collects the servers and tells what has come of it. Gives the exit status: 0 all well, 1 collected with
// problems, 2 nothing could be collected.
int collect(const CollectOptions& options, Output& output);

}  // namespace host
