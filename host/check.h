// The command "check".
#pragma once

#include "host/options.h"
#include "host/output.h"

namespace host {

// Reads metabase files and tells what is odd about them; writes nothing. Gives the exit status: 0 nothing
// odd, 1 odd places, 2 something that is no metabase or can't be read.
int check(const CheckOptions& options, Output& output);

}  // namespace host
