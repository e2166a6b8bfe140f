// Reads the file of findings that the user has accepted, with lines
//   FINGERPRINT | UNTIL | REASON
//   RULE: OBJECT | UNTIL | REASON
// OBJECT is SERVER/KIND/KEY, with wildcards; UNTIL is the last day (UTC) or empty.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace host {

class IgnoreFile {
 public:
  struct Entry {
    std::string fingerprint;   // empty if the entry has a rule and an object
    std::string rule, object;  // patterns
    std::string until;         // as 2026-12-31, or empty
    std::string reason;
    int line = 0;
    bool isExpired = false;
    bool hasMatched = false;
  };

  IgnoreFile() = default;
  // `today`: a date such as 2026-01-31. Throws std::runtime_error if the file cannot be read or a line is
  // malformed.
  IgnoreFile(const std::filesystem::path& file, std::string_view today);

  // Returns the entry that suppresses a finding, or null. Marks all matching entries, also expired ones.
  const Entry* match(std::string_view fingerprint, std::string_view rule, std::string_view object);

  const std::vector<Entry>& entries() const { return entries_; }
  const std::string& name() const { return name_; }

 private:
  Entry parse(std::string_view line, int number) const;

  std::string name_;
  std::vector<Entry> entries_;
  std::multimap<std::string, std::size_t> indexes_;  // of the entries, by fingerprint
};

// Returns an entry's line for a fingerprint, or for "RULE: OBJECT".
std::string ignoreLine(std::string_view fingerprint, std::string_view until, std::string_view reason);

}  // namespace host
