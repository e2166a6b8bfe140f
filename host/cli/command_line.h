// The command line.
#pragma once

#include <functional>
#include <string>

#include "host/console/output.h"

namespace host {

// Parses the command line. Returns the action of the command, which returns the exit status. Throws
// UsageError.
std::function<int(Output&)> parseCommandLine(int argumentCount, const char* const* arguments);

// The help of the program as a whole.
std::string programHelp();

}  // namespace host
