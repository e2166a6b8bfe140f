// Selects the rules to evaluate.
#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/query/rule.h"

namespace host {

struct RuleOptions {
  std::vector<std::filesystem::path> files;  // the user's rules, or directories of them
  bool withBuiltin = true;
  std::vector<std::string> ids;  // with wildcards; empty for all of the profile
  std::vector<std::string> categories;
  Severity minSeverity = Severity::kInfo;
  std::string profile;  // the name of a built-in one or a file; empty for "default"
};

// Returns the rules that the options select, the most severe first, with the severities and parameters of the
// profile. A user's rule is selected unless `ids` or a given profile exclude it. Throws RuleError for a
// malformed rule, UsageError for an unknown rule or profile, std::runtime_error for a file that cannot be
// read.
std::vector<Rule> chooseRules(const RuleOptions& options);

// Returns the content of a text file, without a byte order mark. Throws std::runtime_error.
std::string readTextFile(const std::filesystem::path& path);

// The names of the built-in profiles.
std::vector<std::string> builtinProfiles();

}  // namespace host
