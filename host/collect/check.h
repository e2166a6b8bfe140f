// The command "check".
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/console/output.h"

namespace host {

struct CheckOptions {
  std::vector<std::string> metabases;  // as given
  std::uint64_t maxSize = 0;           // of a metabase in an archive or stream, in bytes
};

// Reads metabase files and prints the warnings about them; writes nothing. Returns the exit status: 0 no
// warnings, 1 warnings, 2 a file is no metabase or cannot be read.
int check(const CheckOptions& options, Output& output);

}  // namespace host
