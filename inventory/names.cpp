#include "inventory/names.h"

#include <algorithm>

#include "automation/text.h"

namespace inventory {

std::string folded(std::string_view utf8) {
  std::string text(utf8);
  bool isAscii = true;
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    isAscii = isAscii && static_cast<signed char>(c) >= 0;
  }
  return isAscii ? text : automation::toUtf8(automation::lowerCase(automation::fromUtf8(utf8)));
}

bool sameName(std::string_view left, std::string_view right) {
  return left == right || folded(left) == folded(right);
}

}  // namespace inventory
