#include "host/console/text.h"

#include <algorithm>
#include <cctype>
#include <string_view>

#include <fmt/core.h>

#include "host/console/color.h"
#include "os/terminal.h"

namespace host {

std::string pluralize(std::int64_t count, const char* one, const char* many) {
  return fmt::format("{} {}", count, count == 1 ? one : many);
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
  if (names.size() > most) text += fmt::format(" and {} more", names.size() - most);
  return names.empty() ? "none" : text;
}

std::string shellQuoted(const std::string& text) {
  const bool isPlain = !text.empty() && std::ranges::all_of(text, [](unsigned char c) {
    return std::isalnum(c) != 0 || c >= 0x80 ||
           std::string_view("@%_+=:,./-").find(static_cast<char>(c)) != std::string_view::npos;
  });
  if (isPlain) return text;
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

}  // namespace host
