#include "host/query/pattern.h"

#include <string>

#include "inventory/names.h"

namespace host {

bool matchesPattern(std::string_view text, std::string_view pattern) {
  const std::string folded = inventory::folded(text), wanted = inventory::folded(pattern);
  std::size_t at = 0, patternAt = 0, star = wanted.npos, resume = 0;
  while (at < folded.size()) {
    if (patternAt < wanted.size() && wanted[patternAt] == '*') {
      star = patternAt++;
      resume = at;
    } else if (patternAt < wanted.size() && (wanted[patternAt] == '?' || wanted[patternAt] == folded[at])) {
      ++at;
      ++patternAt;
    } else if (star != wanted.npos) {
      patternAt = star + 1;
      at = ++resume;
    } else {
      return false;
    }
  }
  return wanted.find_first_not_of('*', patternAt) == wanted.npos;
}

}  // namespace host
