// The command "show".
#pragma once

#include "host/options.h"
#include "host/output.h"

namespace host {

// Prints tables and views of the inventory, or its tables and their row counts. Throws inventory::Error if it
// can't be read and UsageError for a table, column or server that it lacks.
void show(const ShowOptions& options, Output& output);

}  // namespace host
