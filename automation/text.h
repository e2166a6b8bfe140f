// Text as automation strings hold it: counted UTF-16, which may hold any unit, NUL and half a surrogate pair
// included. UTF-8 appears only at the edges of a process (files, SQLite, a terminal).
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

namespace automation {

using Text = std::u16string;
using TextView = std::u16string_view;

// UTF-8 to UTF-16. Bytes that are no UTF-8 become U+FFFD, one for each byte that cannot be used.
Text fromUtf8(std::string_view utf8);

// The character at `at`, which is within the text, and moves behind it. A byte that begins no valid sequence
// is U+FFFD by itself.
char32_t nextPoint(std::string_view utf8, std::size_t& at);

// UTF-16 to UTF-8. Half a surrogate pair becomes U+FFFD.
std::string toUtf8(TextView text);

// The other case of one letter: ASCII, Latin, Greek and Cyrillic. Any other unit is returned unchanged.
char16_t toLowerBeyondAscii(char16_t unit);
char16_t toUpperBeyondAscii(char16_t unit);
inline char16_t toLower(char16_t unit) {
  if (unit >= 0x80) return toLowerBeyondAscii(unit);
  return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + 0x20) : unit;
}
inline char16_t toUpper(char16_t unit) {
  if (unit >= 0x80) return toUpperBeyondAscii(unit);
  return unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - 0x20) : unit;
}

Text lowerCase(TextView text);
Text upperCase(TextView text);

// Whether two texts are equal without regard to case, unit by unit.
bool equalsInBothCases(TextView left, TextView right);
inline bool equalsIgnoringCase(TextView left, TextView right) {
  return left.size() == right.size() && equalsInBothCases(left, right);
}

// The pieces joined, with nothing in between.
Text concat(std::initializer_list<TextView> pieces);

// The text without the spaces (U+0020 and nothing else) at both ends.
TextView trimBlanks(TextView text);

}  // namespace automation
