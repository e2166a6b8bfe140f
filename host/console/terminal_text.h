// Text as a terminal shows it. All text is UTF-8.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace host {

// The text with a visible symbol in place of everything that a terminal would interpret: control characters,
// changes of the writing direction, and bytes that are not UTF-8.
std::string escapeForTerminal(std::string_view text);

// The width of an escaped text in columns: two for an East Asian wide character, none for a combining one.
std::size_t displayWidth(std::string_view text);

// As much of an escaped text as fits, with an ellipsis at its end if it is cut.
std::string cutToWidth(std::string_view text, std::size_t width);

// An escaped text in lines of at most `width` columns (but at least one character), broken at blanks if
// possible. At least one line.
std::vector<std::string> wrapToWidth(std::string_view text, std::size_t width);

}  // namespace host
