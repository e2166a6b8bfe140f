// Text of automation strings: counted UTF-16, which may contain NUL and unpaired surrogates. UTF-8 is used
// for input and output only (files, SQLite, terminal).
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

namespace automation {

using Text = std::u16string;
using TextView = std::u16string_view;

// Converts UTF-8 to UTF-16. Each invalid byte becomes U+FFFD.
Text fromUtf8(std::string_view utf8);

// Decodes the character at `at`, which must be within the text, and advances `at`. A byte that does not begin
// a valid sequence is U+FFFD.
char32_t nextPoint(std::string_view utf8, std::size_t& at);

// Converts UTF-16 to UTF-8. An unpaired surrogate becomes U+FFFD.
std::string toUtf8(TextView text);

// The small letter for a Latin, Greek or Cyrillic letter. Other units are returned unchanged.
char16_t toLowerBeyondAscii(char16_t unit);
inline char16_t toLower(char16_t unit) {
  if (unit >= 0x80) return toLowerBeyondAscii(unit);
  return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + 0x20) : unit;
}

Text lowerCase(TextView text);

// Whether two texts are equal, ignoring case, unit by unit.
bool equalsInBothCases(TextView left, TextView right);
inline bool equalsIgnoringCase(TextView left, TextView right) {
  return left.size() == right.size() && equalsInBothCases(left, right);
}

// Concatenates texts.
Text concat(std::initializer_list<TextView> pieces);

// Removes spaces (only U+0020) at both ends.
TextView trimBlanks(TextView text);

}  // namespace automation
