// The command "report".
#pragma once

#include <cstddef>
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
  bool isDirectory = false;          // the output: it gets a page for each server, and an index
  std::string at = {};               // a time in UTC; empty for the current collections
  std::string profile = {};          // of the rules; empty if rules were named
  std::vector<Rule> rules = {};
  FindingsOptions findings = {};
  std::size_t maxBytes = 50'000'000;  // of a single page: browsers take long to open a larger one
};

// Writes one self-contained HTML page about servers, or a directory of such pages, the index at last. A file
// is written completely or not changed. Throws inventory::Error if the inventory cannot be read,
// std::runtime_error if a page cannot be written or a single page is too large, RuleError for a rule that
// fails, and UsageError for an unknown server.
void report(const ReportOptions& options, Output& output);

}  // namespace host
