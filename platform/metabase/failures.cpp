#include "platform/metabase/failures.h"

namespace platform::metabase {

std::string inQuotes(std::string_view text) {
  constexpr std::size_t kLongest = 80;
  const bool cut = text.size() > kLongest;
  if (cut) {
    text = text.substr(0, kLongest);
    while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0xC0) == 0x80) text.remove_suffix(1);
    if (!text.empty() && static_cast<unsigned char>(text.back()) >= 0xC0) text.remove_suffix(1);
  }
  std::string out = "\"";
  for (const char unit : text) out += static_cast<unsigned char>(unit) < 0x20 ? ' ' : unit;
  out += cut ? "...\"" : "\"";
  return out;
}

}  // namespace platform::metabase
