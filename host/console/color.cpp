#include "host/console/color.h"

#include <cstdlib>

#include "os/terminal.h"

namespace host {
namespace {

ColorUse colorUse = ColorUse::kAuto;

bool takesColor(int file) {
  // A file that an option names is never coloured.
  if (colorUse != ColorUse::kAuto) return colorUse == ColorUse::kAlways && file <= os::kStandardError;
  const char* const refused = std::getenv("NO_COLOR");
  const char* const terminal = std::getenv("TERM");
  return (refused == nullptr || *refused == '\0') && os::isTerminal(file) &&
         (terminal == nullptr || std::string_view(terminal) != "dumb");
}

}  // namespace

void useColor(ColorUse use) {
  colorUse = use;
}

std::string colored(std::string_view text, Ink ink, int file) {
  if (!takesColor(file)) return std::string(text);
  return (ink == Ink::kProblem ? "\x1b[31m" : "\x1b[33m") + std::string(text) + "\x1b[0m";
}

}  // namespace host
