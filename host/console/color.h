// Colour, for problems and findings alone.
#pragma once

#include <string>
#include <string_view>

namespace host {

enum class ColorUse { kAuto, kAlways, kNever };

// Whether texts are coloured from now on: on a terminal unless NO_COLOR is set (no-color.org), always or
// never.
void useColor(ColorUse use);

enum class Ink { kProblem, kNotice };

// The text in its colour, where the file behind the number takes one.
std::string colored(std::string_view text, Ink ink, int file);

}  // namespace host
