#include "platform/metabase/failures.h"

namespace platform::metabase {

std::string toSingleLine(std::string_view text) {
  std::string line(text);
  for (char& unit : line) {
    if (static_cast<unsigned char>(unit) < 0x20) unit = ' ';
  }
  return line;
}

std::string quoteForMessage(std::string_view text) {
  constexpr std::size_t kLongest = 80;
  const bool cut = text.size() > kLongest;
  if (cut) {
    text = text.substr(0, kLongest);
    while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0xC0) == 0x80) text.remove_suffix(1);
    if (!text.empty() && static_cast<unsigned char>(text.back()) >= 0xC0) text.remove_suffix(1);
  }
  return '"' + toSingleLine(text) + (cut ? "...\"" : "\"");
}

}  // namespace platform::metabase
