#include "platform/metabase/values.h"

#include <charconv>

#include "platform/metabase/names.h"

namespace platform::metabase {
namespace {

constexpr std::string_view kSpace = " \t\r\n";

}  // namespace

std::string_view trimSpace(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kSpace);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kSpace) - first + 1);
}

std::optional<bool> parseBool(std::string_view text) {
  text = trimSpace(text);
  if (text == "1" || equalFolded(text, std::string_view("TRUE"))) return true;
  if (text == "0" || equalFolded(text, std::string_view("FALSE"))) return false;
  return std::nullopt;
}

std::optional<std::uint32_t> parseDword(std::string_view text) {
  text = trimSpace(text);
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    text.remove_prefix(2);
  }
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::uint32_t parseFlags(std::string_view text, std::span<const Flag> flags,
                         std::optional<std::string_view>& invalidPiece) {
  if (trimSpace(text).empty()) return 0;
  std::uint32_t bits = 0;
  while (true) {
    const std::size_t bar = text.find('|');
    const std::string_view piece = trimSpace(text.substr(0, bar));
    if (const auto number = parseDword(piece)) {
      bits |= *number;
    } else if (const auto known =
                   std::find_if(flags.begin(), flags.end(),
                                [&](const Flag& flag) { return equalFolded(flag.name, piece); });
               known != flags.end()) {
      bits |= known->mask;
    } else if (!invalidPiece) {
      invalidPiece = piece;
    }
    if (bar == std::string_view::npos) return bits;
    text.remove_prefix(bar + 1);
  }
}

automation::Variant parseMultiString(std::string_view text) {
  automation::Array array;
  forEachLine(text, [&](std::string_view line) { array.elements.emplace_back(automation::fromUtf8(line)); });
  return array;
}

}  // namespace platform::metabase
