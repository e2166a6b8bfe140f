// Parses the text of property values. Invalid values are reported to the caller, who knows the location.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "automation/variant.h"
#include "platform/metabase/schema.h"

namespace platform::metabase {

// TRUE or FALSE in any case, or 1 or 0; surrounding white space is ignored.
std::optional<bool> parseBool(std::string_view text);

// A number from 0 to 4294967295, decimal, or hexadecimal after "0x"; surrounding white space is ignored.
std::optional<std::uint32_t> parseDword(std::string_view text);

// Flag names and numbers joined by "|"; an empty text is 0. Sets `invalidPiece` to the first piece that is
// neither and ignores such pieces.
std::uint32_t parseFlags(std::string_view text, std::span<const Flag> flags,
                         std::optional<std::string_view>& invalidPiece);

// Calls `line` with each value of a multi-valued property: the lines of the text, without the tabs that
// indent every line after the first. Empty lines are skipped, because an empty string terminates a list in
// the metabase.
template <typename Line>
void forEachLine(std::string_view text, Line&& line) {
  for (bool first = true;; first = false) {
    const std::size_t end = text.find('\n');
    std::string_view piece = text.substr(0, end);
    if (!piece.empty() && piece.back() == '\r') piece.remove_suffix(1);
    if (!first) piece.remove_prefix(std::min(piece.find_first_not_of('\t'), piece.size()));
    if (!piece.empty() && piece.find_first_not_of('\t') != std::string_view::npos) line(piece);
    if (end == std::string_view::npos) return;
    text.remove_prefix(end + 1);
  }
}

// The values of a multi-valued property as an array of strings.
automation::Variant parseMultiString(std::string_view text);

// Removes white space at both ends.
std::string_view trimSpace(std::string_view text);

}  // namespace platform::metabase
