// From the text of a value in the file to the value that a reader gets. Nothing here knows nodes: a value
// that cannot be read gives nothing, and whoever asked says where it stood.
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

// TRUE or FALSE in any case, or 1 or 0; blanks around it do not count.
std::optional<bool> parseBool(std::string_view text);

// A decimal number from 0 to 4294967295, or one in hexadecimal behind "0x"; blanks around it do not count.
std::optional<std::uint32_t> parseDword(std::string_view text);

// Flag names and numbers joined by "|"; an empty text has no flag. `invalidPiece` is set to the first piece
// that is neither, which adds nothing.
std::uint32_t parseFlags(std::string_view text, std::span<const Flag> flags,
                         std::optional<std::string_view>& invalidPiece);

// Calls `line` with each value of a multi-valued property: the lines of the text, without the tabs that
// indent every line after the first. A line that is empty then is no value, since a list of texts in the
// metabase ends at its first empty one.
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

// The values of a multi-valued property as an array of texts.
automation::Variant parseMultiString(std::string_view text);

// Without blanks, tabs and line ends at both ends.
std::string_view trimSpace(std::string_view text);

}  // namespace platform::metabase
