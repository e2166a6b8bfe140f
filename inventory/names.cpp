#include "inventory/names.h"

#include "automation/text.h"

namespace inventory {

std::string folded(std::string_view utf8) {
  return automation::toUtf8(automation::lowerCase(automation::fromUtf8(utf8)));
}

bool sameName(std::string_view left, std::string_view right) {
  return automation::equalsIgnoringCase(automation::fromUtf8(left), automation::fromUtf8(right));
}

}  // namespace inventory
