// Files in UTF-16.
#pragma once

#include <string>

#include "automation/text.h"

namespace test {

// UTF-8 converted to UTF-16 in either byte order.
inline std::string utf16(const std::string& text, bool bigEndian) {
  automation::Text units = automation::fromUtf8(text);
  for (char16_t& unit : units) unit = bigEndian ? static_cast<char16_t>(unit << 8 | unit >> 8) : unit;
  return {reinterpret_cast<const char*>(units.data()), units.size() * 2};
}

}  // namespace test
