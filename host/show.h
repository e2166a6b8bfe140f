// The command "show".
#pragma once

#include "host/options.h"
#include "host/output.h"

namespace host {

// Prints a table of the database, or its tables and their row counts. Throws automation::Failure for a
// database that can't be read and UsageError for a table that it doesn't have.
void show(const ShowOptions& options, Output& output);

}  // namespace host
