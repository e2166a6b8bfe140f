// Rules about servers: a query over the inventory's views in a file with a header. docs/writing-rules.md
// describes the format.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "inventory/driver.h"

namespace host {

enum class Severity { kInfo, kLow, kMedium, kHigh, kCritical };
inline constexpr std::array<std::string_view, 5> kSeverities = {"info", "low", "medium", "high", "critical"};
inline std::string_view wordFor(Severity severity) {
  return kSeverities[static_cast<std::size_t>(severity)];
}
// Returns the severity of a word in any case, or nothing for another word.
std::optional<Severity> severityOf(std::string_view word);

inline constexpr std::array<std::string_view, 4> kCategories = {"security", "reliability", "migration",
                                                                "housekeeping"};

// Returns a text without leading and trailing blanks.
std::string trimmed(std::string_view text);

// A rule is malformed, or failed. what() begins with its file and line.
class RuleError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Rule {
  struct Reference {
    std::string name;
    std::string id;       // may be empty
    std::string address;  // may be empty
  };
  struct Requirement {
    std::string view;
    std::string column;  // empty for the whole view
  };
  struct EvidenceColumn {
    std::string name;
    inventory::Type type = inventory::Type::kText;
    bool isIdentifying = false;  // part of the fingerprint
  };
  struct Parameter {
    std::string name;
    inventory::Type type = inventory::Type::kText;
    std::string value;
  };

  std::string id;
  std::string file;  // as messages show it
  std::string text;  // the whole file
  std::string title;
  Severity severity = Severity::kMedium;
  std::string category;
  std::string why;
  std::string fix;
  std::vector<Reference> references;
  std::vector<Requirement> requirements;
  std::vector<EvidenceColumn> columns;
  std::vector<Parameter> parameters;
  std::size_t queryStart = 0;  // in the text

  // Reads a rule's file. Throws RuleError for a malformed header; check() checks the query.
  static Rule parse(std::string id, std::string file, std::string text);

  // Returns the query in a dialect, with the placeholders $1, $2 and so on for the parameters.
  std::string query(const inventory::Dialect& dialect) const;
  inventory::Parameters parameterValues() const;

  // Sets a parameter. Throws UsageError for an unknown one, and for a value that is not of its type.
  void setParameter(const std::string& name, const std::string& value);

  // Checks the query: its tokens, then the whole by preparing it in an empty inventory. Throws RuleError.
  void check() const;

  // Returns the error "FILE:LINE: MESSAGE" for a position in the text.
  RuleError errorAt(std::size_t position, const std::string& message) const;
};

}  // namespace host
