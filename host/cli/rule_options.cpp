#include "host/cli/rule_options.h"

#include "host/cli/command_options.h"

namespace host {
namespace {

constexpr double kMaxSeconds = 1e6;

}  // namespace

void addRuleOptions(Command& command, RawRules& raw) {
  command.list("--rules", raw.files, "PATH", "Also these rules: a file or a folder (repeatable)");
  command.flag("--no-builtin", raw.noBuiltin, "Leave the built-in rules out");
  command.list("--rule", raw.ids, "ID", "Only this rule, with * and ? (repeatable)");
  command.list("--category", raw.categories, "CATEGORY", "Only this category (repeatable)");
  command.option("--min-severity", raw.minSeverity, "SEVERITY", "Only rules of this severity or above");
  command.option("--profile", raw.profile, "PROFILE", "Rules to use, a name or a file (default: default)");
}

void addFindingsOptions(Command& command, RawRules& raw) {
  command.option("--ignore-file", raw.ignoreFile, "FILE", "Findings to ignore");
  command.number("--rule-timeout", raw.timeout, 0.001, kMaxSeconds, "SECONDS",
                 "Seconds that a query may take (default: 10)");
  command.flag("--force", raw.force, "Use --rules even as a privileged database role");
}

RuleOptions ruleOptionsOf(const RawRules& raw) {
  RuleOptions options;
  refuseEmpty("--rules", raw.files);
  refuseEmpty("--rule", raw.ids);
  refuseEmpty("--category", raw.categories);
  for (const std::string& file : raw.files) options.files.emplace_back(file);
  options.withBuiltin = !raw.noBuiltin;
  options.ids = commaSeparated(raw.ids);
  options.categories = commaSeparated(raw.categories);
  options.profile = raw.profile;
  if (!raw.minSeverity.empty()) {
    const auto severity = severityOf(raw.minSeverity);
    if (!severity)
      throw UsageError("--min-severity: no severity '" + raw.minSeverity +
                       "' (info, low, medium, high, critical)");
    options.minSeverity = *severity;
  }
  if (raw.noBuiltin && raw.files.empty()) throw UsageError("--no-builtin needs --rules");
  return options;
}

FindingsOptions findingsOptionsOf(const RawRules& raw, const std::string& database) {
  FindingsOptions options;
  options.evaluation.timeout = std::chrono::milliseconds(static_cast<std::int64_t>(raw.timeout * 1000));
  options.usesUserRules = !raw.files.empty();
  options.force = raw.force;
  std::error_code error;
  if (!raw.ignoreFile.empty()) {
    options.ignoreFile = wholePath("--ignore-file", raw.ignoreFile);
  } else if (!inventory::isOnServer(database) && std::filesystem::exists(database + ".ignore", error)) {
    options.ignoreFile = database + ".ignore";
  }
  return options;
}

bool isEverything(const RuleOptions& options) {
  return options.withBuiltin && options.ids.empty() && options.categories.empty() &&
         options.profile.empty() && options.minSeverity == Severity::kInfo;
}

}  // namespace host
