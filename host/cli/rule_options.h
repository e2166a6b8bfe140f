// Options about rules, shared by several commands.
#pragma once

#include <string>
#include <vector>

#include "host/query/findings.h"
#include "host/query/rule_set.h"

namespace CLI {
class App;
}

namespace host {

// The unchecked values of the options.
struct RawRules {
  std::vector<std::string> files, ids, categories;
  std::string minSeverity, profile, ignoreFile;
  bool noBuiltin = false;
  bool force = false;
  double timeout = 10;
};

// --rules, --no-builtin, --rule, --category, --min-severity and --profile.
void addRuleOptions(CLI::App& command, RawRules& raw);
// --ignore-file, --rule-timeout and --force.
void addFindingsOptions(CLI::App& command, RawRules& raw);

// Both throw UsageError for malformed values.
RuleOptions ruleOptionsOf(const RawRules& raw);
FindingsOptions findingsOptionsOf(const RawRules& raw, const std::string& database);

// Whether the options select all built-in rules of the profile.
bool isEverything(const RuleOptions& options);

// The items of comma-separated lists.
std::vector<std::string> commaSeparated(const std::vector<std::string>& lists);

}  // namespace host
