// Suggestions for mistyped words.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace host {

// The candidate with the smallest Damerau-Levenshtein distance from a mistyped word, ignoring case; empty if
// none is similar.
std::string nearest(std::string_view word, std::span<const std::string> candidates);

// " (did you mean 'x'?)", or an empty text.
std::string didYouMean(std::string_view word, std::span<const std::string> candidates);

}  // namespace host
