// Findings that the user has accepted: a file of lines
//   FINGERPRINT | UNTIL | REASON
//   RULE: OBJECT | UNTIL | REASON
// where OBJECT is SERVER/KIND/KEY, with wildcards, and UNTIL the last day (UTC) or empty.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace host {

class IgnoreFile {
 public:
  struct Entry {
    std::string fingerprint;   // empty for a rule and an object
    std::string rule, object;  // patterns
    std::string until;         // as 2026-12-31, or empty
    std::string reason;
    int line = 0;
    bool isExpired = false;
    bool hasMatched = false;
  };

  IgnoreFile() = default;
  // `today` is a day such as 2026-01-31. Throws std::runtime_error with the line for a malformed one.
  IgnoreFile(const std::filesystem::path& file, std::string_view today);

  // The entry that suppresses a finding, or null; marks it as matched.
  const Entry* match(std::string_view fingerprint, std::string_view rule, std::string_view object);

  const std::vector<Entry>& entries() const { return entries_; }
  const std::string& name() const { return name_; }

 private:
  Entry parse(std::string_view line, int number) const;

  std::string name_;
  std::vector<Entry> entries_;
  std::unordered_multimap<std::string, std::size_t> byFingerprint_;
  std::vector<std::size_t> patterns_;  // places of the other entries
};

// A line for a finding.
std::string ignoreLine(std::string_view fingerprint, std::string_view until, std::string_view reason);

}  // namespace host
