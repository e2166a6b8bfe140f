#include "host/query/ignore_file.h"

#include <fmt/core.h>

#include <algorithm>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "host/query/pattern.h"
#include "host/query/rule_set.h"

namespace host {

IgnoreFile::IgnoreFile(const std::filesystem::path& file, std::string_view today) : name_(file.string()) {
  std::istringstream lines(readTextFile(file));
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    if (trimmed(line).empty() || trimmed(line).front() == '#') continue;
    entries_.push_back(parse(line, number));
    Entry& entry = entries_.back();
    entry.isExpired = !entry.until.empty() && entry.until < today;
    indexes_.emplace(entry.fingerprint, entries_.size() - 1);
  }
}

IgnoreFile::Entry IgnoreFile::parse(std::string_view line, int number) const {
  static const std::regex kFingerprint("[0-9a-f]{32}"),
      kDate(R"(\d{4}-(0[1-9]|1[0-2])-(0[1-9]|[12]\d|3[01]))");
  const auto fail = [&](const std::string& why) {
    throw std::runtime_error(fmt::format("cannot use '{}': line {}: {}", name_, number, why));
  };
  // The reason may contain the separator.
  const std::size_t first = line.find('|'), second = line.find('|', std::min(first, line.size() - 1) + 1);
  if (second == line.npos) fail("expected 'FINGERPRINT | UNTIL | REASON' or 'RULE: OBJECT | UNTIL | REASON'");
  const std::string subject = trimmed(line.substr(0, first));
  Entry entry;
  entry.until = trimmed(line.substr(first + 1, second - first - 1));
  entry.reason = trimmed(line.substr(second + 1));
  entry.line = number;
  if (!entry.until.empty() && !std::regex_match(entry.until, kDate))
    fail(fmt::format("'{}' is not a date such as 2026-12-31", entry.until));
  if (entry.reason.empty()) fail("the reason is missing");
  if (const std::size_t colon = subject.find(": "); colon != std::string::npos) {
    entry.rule = trimmed(subject.substr(0, colon));
    entry.object = trimmed(subject.substr(colon + 1));
  } else if (std::regex_match(subject, kFingerprint)) {
    entry.fingerprint = subject;
  } else {
    fail(fmt::format("'{}' is neither a fingerprint nor 'RULE: SERVER/KIND/KEY'", subject));
  }
  return entry;
}

const IgnoreFile::Entry* IgnoreFile::match(std::string_view fingerprint, std::string_view rule,
                                           std::string_view object) {
  const Entry* found = nullptr;
  for (const std::string& key : {std::string(fingerprint), std::string()}) {
    const auto [first, last] = indexes_.equal_range(key);
    for (auto each = first; each != last; ++each) {
      Entry& entry = entries_[each->second];
      if (key.empty() && !(matchesPattern(rule, entry.rule) && matchesPattern(object, entry.object)))
        continue;
      entry.hasMatched = true;
      if (!entry.isExpired && found == nullptr) found = &entry;
    }
  }
  return found;
}

std::string ignoreLine(std::string_view fingerprint, std::string_view until, std::string_view reason) {
  std::string line(fingerprint);
  line.append(" | ").append(until).append(until.empty() ? "| " : " | ").append(reason).append("\n");
  // Control characters in the texts must not begin another line.
  std::replace_if(
      line.begin(), line.end() - 1, [](char c) { return static_cast<unsigned char>(c) < 0x20; }, ' ');
  return line;
}

}  // namespace host
