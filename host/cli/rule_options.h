// Options about rules, shared by several commands.
#pragma once

#include <string>
#include <vector>

#include "host/cli/command.h"
#include "host/query/findings.h"
#include "host/query/rule_set.h"

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
void addRuleOptions(Command& command, RawRules& raw);
// --ignore-file, --rule-timeout and --force.
void addFindingsOptions(Command& command, RawRules& raw);

// Both throw UsageError for malformed values.
RuleOptions ruleOptionsOf(const RawRules& raw);
FindingsOptions findingsOptionsOf(const RawRules& raw, const std::string& database);

// Whether the options select all built-in rules of the profile.
bool isEverything(const RuleOptions& options);

}  // namespace host
