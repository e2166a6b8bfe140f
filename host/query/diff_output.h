// Prints the result of a comparison.
#pragma once

#include "host/console/output.h"
#include "host/query/comparison.h"
#include "host/query/diff.h"

namespace host {

// Prints differences in the format of the options.
void printDifferences(const DiffOptions& options, Differences& differences, Output& output);

}  // namespace host
