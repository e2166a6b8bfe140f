// Lists files and what becomes of them.
#pragma once

#include "host/console/listing.h"
#include "host/sources/sources.h"

namespace host {

// Prints a table of all files, and the problems. Returns the exit status.
int listSources(const Sources& sources, Format format, Output& output);

}  // namespace host
