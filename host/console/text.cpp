#include "host/console/text.h"

#include <algorithm>

#include "host/console/color.h"
#include "os/terminal.h"

namespace host {

std::string pluralize(std::int64_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string countedProblems(std::int64_t count) {
  const std::string text = pluralize(count, "problem", "problems");
  return count > 0 ? colored(text, Ink::kProblem, os::kStandardOutput) : text;
}

std::string joinNames(const std::vector<std::string>& names, std::size_t most) {
  std::string text;
  for (std::size_t at = 0; at < std::min(names.size(), most); ++at) {
    const bool isLast = at > 0 && at + 1 == names.size();
    text += (at == 0 ? "" : isLast ? " and " : ", ") + names[at];
  }
  if (names.size() > most) text += " and " + std::to_string(names.size() - most) + " more";
  return names.empty() ? "none" : text;
}

}  // namespace host
