// Text as a terminal shows it. All text is UTF-8.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace host {

// The text with a visible sign in place of everything that a terminal would act on: control characters,
// changes of the writing direction, and bytes that are no UTF-8.
std::string harmless(std::string_view text);

// How many columns a harmless text takes: two for an East Asian wide character, none for a combining one.
std::size_t displayWidth(std::string_view text);

// As much of a harmless text as fits, with a sign of omission at its end where something is cut.
std::string cutToWidth(std::string_view text, std::size_t width);

// A harmless text in lines of at most `width` columns (but at least one character), broken at blanks where
// there are any. At least one line.
std::vector<std::string> wrapToWidth(std::string_view text, std::size_t width);

// How many columns the terminal behind a file has; 80 where it doesn't tell, or where there is none.
std::size_t terminalColumns(int file);

}  // namespace host
