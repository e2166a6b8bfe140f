// The command "report".
#pragma once

#include <filesystem>

#include "host/options.h"
#include "host/output.h"

namespace host {

// Writes one self-contained HTML page about servers, to the standard output if no file is named. A file is
// written whole or stays as it was. Throws inventory::Error, std::runtime_error, and UsageError for a server
// that isn't there.
void report(const ReportOptions& options, Output& output);

}  // namespace host
