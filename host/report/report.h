// The command "report".
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "host/console/output.h"
#include "host/query/findings.h"

namespace host {

struct ReportOptions {
  std::string database;
  inventory::Access access;
  std::vector<std::string> servers;  // all if empty
  std::filesystem::path output;      // absolute; empty for the standard output
  std::string at = {};               // a time in UTC; empty for the current collections
  std::string profile = {};          // of the rules; empty if rules were named
  std::vector<Rule> rules = {};
  FindingsOptions findings = {};
};

// Writes one self-contained HTML page about servers. A file is written completely or not changed. Throws
// inventory::Error if the inventory cannot be read, std::runtime_error if the page cannot be written,
// RuleError for a rule that fails, and UsageError for an unknown server.
void report(const ReportOptions& options, Output& output);

}  // namespace host
