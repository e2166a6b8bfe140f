// Colours of problems and findings.
#pragma once

#include <string>
#include <string_view>

namespace host {

enum class ColorUse { kAuto, kAlways, kNever };

// Sets whether texts are coloured: on a terminal unless NO_COLOR is set (no-color.org), always or never.
void useColor(ColorUse use);

enum class Ink { kProblem, kNotice };

// The text in its colour if the file is coloured.
std::string colored(std::string_view text, Ink ink, int file);

}  // namespace host
