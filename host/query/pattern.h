// Patterns with wildcards.
#pragma once

#include <string_view>

namespace host {

// Whether a text matches a pattern with * and ?, ignoring case.
bool matchesPattern(std::string_view text, std::string_view pattern);

}  // namespace host
