#include "host/query/rule_set.h"

#include <fmt/core.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>

#include "host/console/suggestion.h"
#include "host/query/builtin_rules.h"
#include "host/query/pattern.h"
#include "host/usage_error.h"
#include "inventory/names.h"

namespace host {
namespace {

namespace fs = std::filesystem;

std::vector<Rule> builtinRules() {
  std::vector<Rule> rules;
  for (const BuiltinText& each : kBuiltinRules)
    rules.push_back(Rule::parse(std::string(each.name), "rules/" + std::string(each.name) + ".sql",
                                std::string(each.text)));
  return rules;
}

void addRule(const fs::path& file, std::vector<Rule>& rules) {
  rules.push_back(Rule::parse(file.stem().string(), file.string(), readTextFile(file)));
}

// Adds the rule of a file, or those of a directory in the order of their file names.
void addRules(const fs::path& path, std::vector<Rule>& rules) {
  std::error_code error;
  if (!fs::is_directory(path, error)) return addRule(path, rules);
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(path, error)) {
    if (entry.path().extension() == ".sql") files.push_back(entry.path());
  }
  if (error) throw std::runtime_error(fmt::format("cannot read '{}': {}", path.string(), error.message()));
  if (files.empty())
    throw std::runtime_error(fmt::format("cannot use '{}': it contains no *.sql file", path.string()));
  std::ranges::sort(files);
  for (const fs::path& file : files) addRule(file, rules);
}

// A line of a profile: settings of the rules that match a pattern.
struct ProfileEntry {
  std::string pattern;
  std::optional<Severity> severity;
  std::vector<std::pair<std::string, std::string>> parameters;
};

// Reads lines "ID [severity=SEVERITY] [PARAMETER=VALUE]..."; "#" begins a comment.
std::vector<ProfileEntry> parseProfile(const std::string& name, const std::string& text) {
  std::vector<ProfileEntry> entries;
  std::istringstream lines(text);
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    std::istringstream words(line.substr(0, line.find('#')));
    ProfileEntry entry;
    if (!(words >> entry.pattern)) continue;
    for (std::string word; words >> word;) {
      const std::size_t equals = word.find('=');
      const std::string value = equals == word.npos ? "" : word.substr(equals + 1);
      const auto fail = [&](const std::string& why) {
        throw RuleError(fmt::format("{}:{}: {}", name, number, why));
      };
      if (value.empty()) fail(fmt::format("'{}' is not severity=SEVERITY or PARAMETER=VALUE", word));
      if (!word.starts_with("severity=")) {
        entry.parameters.emplace_back(word.substr(0, equals), value);
      } else if (!(entry.severity = severityOf(value))) {
        fail(fmt::format("unknown severity '{}' (use info, low, medium, high or critical)", value));
      }
    }
    entries.push_back(std::move(entry));
  }
  return entries;
}

std::vector<ProfileEntry> loadProfile(const std::string& name) {
  for (const BuiltinText& each : kBuiltinProfiles) {
    if (each.name == name) return parseProfile(name, std::string(each.text));
  }
  if (name.find('/') != name.npos || fs::exists(name)) return parseProfile(name, readTextFile(name));
  throw UsageError(fmt::format("no profile '{}'{}", name, didYouMean(name, builtinProfiles())));
}

// Removes the rules that a profile does not list, except the user's if `keepsUserRules`. Sets the profile's
// severities and parameters.
void applyProfile(const std::string& name, std::size_t builtinCount, bool keepsUserRules,
                  std::vector<Rule>& rules) {
  const std::vector<ProfileEntry> entries = loadProfile(name);
  std::vector<bool> isListed(rules.size());
  for (const ProfileEntry& entry : entries) {
    bool matches = false;
    for (std::size_t at = 0; at < rules.size(); ++at) {
      if (!matchesPattern(rules[at].id, entry.pattern)) continue;
      matches = isListed[at] = true;
      if (entry.severity) rules[at].severity = *entry.severity;
      for (const auto& [parameter, value] : entry.parameters) rules[at].setParameter(parameter, value);
    }
    // If the built-in rules are excluded, a built-in profile lists rules that are missing.
    if (!matches && builtinCount > 0)
      throw UsageError(fmt::format("the profile {}: no rule '{}'", name, entry.pattern));
  }
  std::vector<Rule> kept;
  for (std::size_t at = 0; at < rules.size(); ++at) {
    if (isListed[at] || (keepsUserRules && at >= builtinCount)) kept.push_back(std::move(rules[at]));
  }
  rules = std::move(kept);
}

void requireMatches(const std::vector<std::string>& patterns, const std::vector<Rule>& rules) {
  std::vector<std::string> ids;
  for (const Rule& rule : rules) ids.push_back(rule.id);
  for (const std::string& pattern : patterns) {
    if (std::ranges::none_of(ids, [&](const std::string& id) { return matchesPattern(id, pattern); }))
      throw UsageError(fmt::format("--rule: no rule '{}'{}", pattern, didYouMean(pattern, ids)));
  }
}

template <typename Texts>
bool contains(const Texts& texts, std::string_view text) {
  return std::ranges::any_of(texts, [&](std::string_view each) { return inventory::sameName(each, text); });
}

}  // namespace

std::string readTextFile(const fs::path& path) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  std::error_code error;
  const auto fail = [&](const char* why) {
    throw std::runtime_error(fmt::format("cannot read '{}': {}", path.string(), why));
  };
  if (!fs::exists(path, error)) fail("it does not exist");
  if (fs::is_directory(path, error)) fail("it is a directory");
  std::ifstream file(path, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(file), {}};
  if (!file) fail("it is not readable");
  return text.starts_with(kByteOrderMark) ? text.substr(kByteOrderMark.size()) : text;
}

std::vector<std::string> builtinProfiles() {
  std::vector<std::string> names;
  for (const BuiltinText& each : kBuiltinProfiles) names.emplace_back(each.name);
  return names;
}

std::vector<Rule> chooseRules(const RuleOptions& options) {
  std::vector<Rule> rules;
  if (options.withBuiltin) rules = builtinRules();
  const std::size_t builtinCount = rules.size();
  for (const fs::path& path : options.files) addRules(path, rules);
  for (std::size_t at = builtinCount; at < rules.size(); ++at) {
    const auto duplicate = std::ranges::find(rules, rules[at].id, &Rule::id);
    if (duplicate != rules.begin() + static_cast<std::ptrdiff_t>(at))
      throw rules[at].errorAt(
          0, "duplicate rule " + rules[at].id + ", also in " + duplicate->file + " (rename the file)");
  }
  for (const std::string& category : options.categories) {
    if (!contains(kCategories, category))
      throw UsageError(fmt::format("--category: no category '{}'", category));
  }
  requireMatches(options.ids, rules);
  const bool hasProfile = !options.profile.empty();
  // --rule also selects rules that the default profile omits.
  if (hasProfile || options.ids.empty())
    applyProfile(hasProfile ? options.profile : "default", builtinCount, !hasProfile, rules);
  std::erase_if(rules, [&](const Rule& rule) {
    const bool isNamed =
        options.ids.empty() || std::ranges::any_of(options.ids, [&](const std::string& pattern) {
          return matchesPattern(rule.id, pattern);
        });
    return !isNamed || rule.severity < options.minSeverity ||
           (!options.categories.empty() && !contains(options.categories, rule.category));
  });
  std::ranges::stable_sort(rules, [](const Rule& left, const Rule& right) {
    return left.severity != right.severity ? left.severity > right.severity : left.id < right.id;
  });
  if (rules.empty())
    throw UsageError("no rule matches these options ('iisinventory rules --rule \"*\"' lists all)");
  for (const Rule& rule : rules) rule.check();
  return rules;
}

}  // namespace host
