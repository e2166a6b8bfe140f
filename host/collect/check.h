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
  bool json = false;                   // a JSON document
};

// Collects metabase files and prints the problems that a collection would record; publishes nothing. Returns
// the exit status: 0 no problems, 1 problems, 2 a file cannot be collected.
int check(const CheckOptions& options, Output& output);

}  // namespace host
