// The command "collect".
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "host/console/output.h"
#include "host/sections.h"
#include "inventory/inventory.h"

namespace host {

struct CollectOptions {
  std::vector<std::string> metabases;  // as given
  std::uint64_t maxSize = 0;           // of a metabase in an archive or stream, in bytes
  bool listOnly = false;
  bool dryRun = false;   // writes neither rows nor logs
  std::string database;  // absolute path of a file, or address on a server
  inventory::Access access;
  std::filesystem::path logDirectory;
  Selection selection;
  bool replace = false;  // also replaces a collection that covers more
  unsigned jobs = 1;
  bool quiet = false;
  bool verbose = false;            // a line for each server
  bool json = false;               // a JSON document in place of the summary
  bool failOnUnpublished = false;  // problems do not change the status
};

// Collects servers and prints a summary. Returns the exit status: 0 complete, 1 with problems, 2 nothing was
// published. Throws UsageError, inventory::Error.
int collect(const CollectOptions& options, Output& output);

}  // namespace host
