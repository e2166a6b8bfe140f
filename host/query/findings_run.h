// The command "findings".
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/console/output.h"
#include "host/query/findings.h"
#include "host/query/findings_output.h"

namespace host {

// A condition of --fail-on: a severity, or a pattern of rule ids.
struct FailOn {
  static constexpr std::string_view kAny = "any";  // matches every rule

  bool matches(const Rule& rule) const;

  std::string text;
  std::optional<Severity> severity;
};

struct FindingsRequest {
  std::string database;
  inventory::Access access;
  std::vector<std::string> servers;  // all if empty
  std::string at;                    // a time in UTC; empty for the current collections
  std::vector<Rule> rules;
  FindingsOptions options;
  bool isComplete = false;  // includes all servers and rules
  std::vector<FailOn> failOn;
  bool strict = false;  // failOn also matches what was not collected
  bool showSuppressed = false;
  std::optional<FindingsFormat> printedFormat;  // on the standard output
  std::vector<std::filesystem::path> outputs;   // their extensions are their formats
  bool forExcel = false;                        // of csv: see PrintOptions
  std::filesystem::path writeIgnore;            // empty for none

  bool writes(FindingsFormat format) const;
};

// Evaluates rules, prints and writes the findings. Returns the exit status: 1 if `failOn` matches, 2 if a
// rule failed. Throws inventory::Error, and UsageError for an unknown server.
int runFindings(const FindingsRequest& request, Output& output);

}  // namespace host
