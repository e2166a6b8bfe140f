// Suggestions for mistyped words.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace host {

// The candidate that differs least from a mistyped word, without regard to case: by letters that are missing,
// too many, wrong or in each other's place (Damerau and Levenshtein's distance, of neighbours). Empty where
// none is near.
std::string nearest(std::string_view word, std::span<const std::string> candidates);

// " (did you mean 'x'?)", or nothing.
std::string didYouMean(std::string_view word, std::span<const std::string> candidates);

}  // namespace host
