// The rules that a run evaluates.
#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/query/rule.h"

namespace host {

struct RuleOptions {
  std::vector<std::filesystem::path> files;  // the user's: rules, or folders of them
  bool withBuiltin = true;
  std::vector<std::string> ids;  // with wildcards; none for all of the profile
  std::vector<std::string> categories;
  Severity minSeverity = Severity::kInfo;
  std::string profile;  // a built-in one's name or a file; empty for "default"
};

// The rules that the options choose, the most severe first, with the profile's severities and parameters. A
// rule of the user's is chosen unless `ids` or a given profile leave it out. Each is checked. Throws
// RuleError for a malformed one, UsageError for a rule or profile that doesn't exist, std::runtime_error for
// a file that cannot be read.
std::vector<Rule> chooseRules(const RuleOptions& options);

// Whether a text is like a pattern with * and ?, without regard to case.
bool matchesPattern(std::string_view text, std::string_view pattern);

// A text file as a whole. Throws std::runtime_error.
std::string readTextFile(const std::filesystem::path& path);

// The names of the built-in profiles.
std::vector<std::string> builtinProfiles();

}  // namespace host
