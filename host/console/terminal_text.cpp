#include "host/console/terminal_text.h"

#include <algorithm>
#include <iterator>

#include "automation/text.h"

namespace host {
namespace {

constexpr std::string_view kReplacement = "\uFFFD";
constexpr std::string_view kOmission = "\u2026";

struct Range {
  char32_t first;
  char32_t last;
};

// Approximate ranges of wide and full-width characters, "East Asian Width" (Unicode Standard Annex 11).
constexpr Range kWide[] = {{0x1100, 0x115F},  {0x2E80, 0x303E}, {0x3041, 0x4DBF},   {0x4E00, 0xA4CF},
                           {0xA960, 0xA97F},  {0xAC00, 0xD7A3}, {0xF900, 0xFAFF},   {0xFE30, 0xFE6F},
                           {0xFF00, 0xFF60},  {0xFFE0, 0xFFE6}, {0x1F300, 0x1F64F}, {0x1F900, 0x1F9FF},
                           {0x20000, 0x3FFFD}};
constexpr Range kCombining[] = {{0x0300, 0x036F}, {0x0483, 0x0489}, {0x0591, 0x05BD}, {0x064B, 0x065F},
                                {0x1AB0, 0x1AFF}, {0x1DC0, 0x1DFF}, {0x200B, 0x200D}, {0x20D0, 0x20FF},
                                {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F}};
// Marks and controls of writing direction, and the separators of lines and paragraphs.
constexpr Range kActing[] = {
    {0x061C, 0x061C}, {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x206F}, {0xFEFF, 0xFEFF}};

template <std::size_t count>
bool isIn(const Range (&ranges)[count], char32_t point) {
  return std::any_of(std::begin(ranges), std::end(ranges),
                     [&](const Range& range) { return point >= range.first && point <= range.last; });
}

struct Character {
  char32_t point;
  std::size_t length;
};

Character characterAt(std::string_view text, std::size_t at) {
  const std::size_t begin = at;
  const char32_t point = automation::nextPoint(text, at);
  return {point, at - begin};
}

std::size_t widthOf(char32_t point) {
  if (point < 0x300) return 1;
  if (isIn(kCombining, point)) return 0;
  return isIn(kWide, point) ? 2 : 1;
}

// The position after the characters that fit.
std::size_t fitting(std::string_view text, std::size_t width) {
  std::size_t at = 0;
  std::size_t taken = 0;
  while (at < text.size()) {
    const Character character = characterAt(text, at);
    taken += widthOf(character.point);
    if (taken > width) break;
    at += character.length;
  }
  return std::min(at, text.size());
}

}  // namespace

std::string escapeForTerminal(std::string_view text) {
  const bool plain = std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
  if (plain) return std::string(text);

  const std::string valid = automation::toUtf8(automation::fromUtf8(text));
  std::string shown;
  for (std::size_t at = 0; at < valid.size();) {
    const Character character = characterAt(valid, at);
    if (character.point < 0x20 || character.point == 0x7F) {
      // The control pictures, U+2400 to U+2421.
      const char32_t picture = character.point == 0x7F ? 0x21 : character.point;
      shown += "\xE2\x90";
      shown += static_cast<char>(0x80 + picture);
    } else if ((character.point >= 0x80 && character.point < 0xA0) || isIn(kActing, character.point)) {
      shown += kReplacement;
    } else {
      shown.append(valid, at, character.length);
    }
    at += character.length;
  }
  return shown;
}

std::size_t displayWidth(std::string_view text) {
  std::size_t width = 0;
  for (std::size_t at = 0; at < text.size();) {
    const Character character = characterAt(text, at);
    width += widthOf(character.point);
    at += character.length;
  }
  return width;
}

std::string cutToWidth(std::string_view text, std::size_t width) {
  if (fitting(text, width) == text.size()) return std::string(text);
  if (width == 0) return {};
  return std::string(text.substr(0, fitting(text, width - 1))) + std::string(kOmission);
}

std::vector<std::string> wrapToWidth(std::string_view text, std::size_t width) {
  std::vector<std::string> lines;
  while (fitting(text, width) < text.size()) {
    std::size_t end = std::max(fitting(text, width), characterAt(text, 0).length);
    if (end == text.size()) break;
    std::size_t next = end;
    if (text[end] == ' ') {
      next = end + 1;
    } else if (const std::size_t blank = text.rfind(' ', end - 1); blank != text.npos && blank > 0) {
      end = blank;
      next = blank + 1;
    }
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(next);
  }
  lines.emplace_back(text);
  return lines;
}

}  // namespace host
