// Copies servers from one inventory to another.
#pragma once

#include <string>
#include <vector>

#include "host/console/output.h"
#include "inventory/inventory.h"

namespace host {

struct CopyOptions {
  std::string from;
  std::string to;
  std::vector<std::string> servers;  // all if empty
  inventory::Access access;          // of both
};

// Copies all kept collections of servers. Returns the exit status. Throws inventory::Error if nothing was
// copied.
int copy(const CopyOptions& options, Output& output);

}  // namespace host
