#include "host/console/suggestion.h"

#include <algorithm>
#include <vector>

#include "inventory/names.h"

namespace host {
namespace {

// Longer words match nothing.
constexpr std::size_t kLongest = 200;

std::size_t distance(std::string_view one, std::string_view other) {
  std::vector<std::size_t> before(other.size() + 1), last(other.size() + 1), now(other.size() + 1);
  for (std::size_t at = 0; at <= other.size(); ++at) last[at] = at;
  for (std::size_t row = 1; row <= one.size(); ++row) {
    now[0] = row;
    for (std::size_t at = 1; at <= other.size(); ++at) {
      const bool same = one[row - 1] == other[at - 1];
      now[at] = std::min({last[at] + 1, now[at - 1] + 1, last[at - 1] + (same ? 0U : 1U)});
      if (row > 1 && at > 1 && one[row - 1] == other[at - 2] && one[row - 2] == other[at - 1])
        now[at] = std::min(now[at], before[at - 2] + 1);
    }
    before.swap(last);
    last.swap(now);
  }
  return last[other.size()];
}

}  // namespace

std::string nearest(std::string_view word, std::span<const std::string> candidates) {
  if (word.size() > kLongest) return "";
  const std::string wanted = inventory::folded(word);
  std::string best;
  std::size_t least = std::max<std::size_t>(1, wanted.size() / 3) + 1;
  for (const std::string& candidate : candidates) {
    const std::string folded = inventory::folded(candidate);
    std::size_t far = distance(wanted, folded);
    // A word that is a prefix of a candidate is similar.
    if (wanted.size() >= 3 && folded.starts_with(wanted)) far = 1;
    if (far < least) {
      least = far;
      best = candidate;
    }
  }
  return best;
}

std::string didYouMean(std::string_view word, std::span<const std::string> candidates) {
  const std::string meant = nearest(word, candidates);
  return meant.empty() ? "" : " (did you mean '" + meant + "'?)";
}

}  // namespace host
