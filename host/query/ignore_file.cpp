#include "host/query/ignore_file.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <stdexcept>

#include "host/query/pattern.h"
#include "host/query/rule_set.h"

namespace host {
namespace {

constexpr std::string_view kHex = "0123456789abcdef";
constexpr std::size_t kFingerprintLength = 32;

bool isDate(std::string_view text) {
  if (text.size() != 10 || text[4] != '-' || text[7] != '-') return false;
  const auto isDigits = [](std::string_view part) {
    return part.find_first_not_of("0123456789") == part.npos;
  };
  const std::string_view month = text.substr(5, 2), day = text.substr(8);
  return isDigits(text.substr(0, 4)) && isDigits(month) && isDigits(day) && month >= "01" && month <= "12" &&
         day >= "01" && day <= "31";
}

}  // namespace

IgnoreFile::IgnoreFile(const std::filesystem::path& file, std::string_view today) : name_(file.string()) {
  std::istringstream lines(readTextFile(file));
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    if (trimmed(line).empty() || trimmed(line).front() == '#') continue;
    entries_.push_back(parse(line, number));
    Entry& entry = entries_.back();
    entry.isExpired = !entry.until.empty() && entry.until < today;
    if (entry.fingerprint.empty()) {
      patterns_.push_back(entries_.size() - 1);
    } else {
      byFingerprint_.emplace(entry.fingerprint, entries_.size() - 1);
    }
  }
}

IgnoreFile::Entry IgnoreFile::parse(std::string_view line, int number) const {
  const auto fail = [&](const std::string& why) {
    throw std::runtime_error("cannot use '" + name_ + "': line " + std::to_string(number) + ": " + why);
  };
  std::array<std::string, 3> parts;
  for (std::size_t at = 0; at < parts.size(); ++at) {
    // The reason may contain the separator.
    const std::size_t end = at == 2 ? line.size() : std::min(line.find('|'), line.size());
    parts[at] = trimmed(line.substr(0, end));
    if (end == line.size() && at < 2)
      fail("expected 'FINGERPRINT | UNTIL | REASON' or 'RULE: OBJECT | UNTIL | REASON'");
    line.remove_prefix(std::min(end + 1, line.size()));
  }
  Entry entry;
  entry.until = parts[1];
  entry.reason = parts[2];
  entry.line = number;
  if (!entry.until.empty() && !isDate(entry.until))
    fail("'" + entry.until + "' is not a date such as 2026-12-31");
  if (entry.reason.empty()) fail("the reason is missing");
  if (const std::size_t colon = parts[0].find(": "); colon != std::string::npos) {
    entry.rule = trimmed(parts[0].substr(0, colon));
    entry.object = trimmed(parts[0].substr(colon + 1));
  } else if (parts[0].size() == kFingerprintLength && parts[0].find_first_not_of(kHex) == std::string::npos) {
    entry.fingerprint = parts[0];
  } else {
    fail("'" + parts[0] + "' is neither a fingerprint nor 'RULE: SERVER/KIND/KEY'");
  }
  return entry;
}

const IgnoreFile::Entry* IgnoreFile::match(std::string_view fingerprint, std::string_view rule,
                                           std::string_view object) {
  const Entry* found = nullptr;
  const auto use = [&](Entry& entry) {
    entry.hasMatched = true;
    if (!entry.isExpired && found == nullptr) found = &entry;
  };
  const auto [first, last] = byFingerprint_.equal_range(std::string(fingerprint));
  for (auto each = first; each != last; ++each) use(entries_[each->second]);
  for (const std::size_t at : patterns_) {
    if (matchesPattern(rule, entries_[at].rule) && matchesPattern(object, entries_[at].object))
      use(entries_[at]);
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
