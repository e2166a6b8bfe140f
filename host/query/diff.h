// The command "diff".
#pragma once

#include <string>
#include <vector>

#include "host/console/listing.h"
#include "host/console/output.h"
#include "inventory/inventory.h"

namespace host {

struct DiffOptions {
  std::string old;
  std::string other;                 // empty to compare within one database
  inventory::Access access;          // to both databases
  std::vector<std::string> servers;  // names or patterns; all if empty
  std::string against;               // another server of the same database, to compare the only one with
  std::string since;                 // a time in UTC: compare with the collections that were current then
  std::vector<std::string> ignored;  // columns
  Format format = Format::kTable;
  bool forExcel = false;  // see PrintOptions
};

// Compares two states of servers, or two servers. Returns the exit status: 0 equal, 1 different. Throws
// inventory::Error, and UsageError for an unknown server.
int diff(const DiffOptions& options, Output& output);

}  // namespace host
