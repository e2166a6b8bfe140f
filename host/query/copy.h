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
  inventory::Access access;          // to both databases
};

// Copies all stored collections of servers. Returns the exit status: 0 all copied, 1 some, 2 none. Throws
// inventory::Error if nothing was copied.
int copy(const CopyOptions& options, Output& output);

}  // namespace host
