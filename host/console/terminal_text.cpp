#include "host/console/terminal_text.h"

#include <algorithm>
#include <iterator>

#include "automation/text.h"
#include "os/terminal.h"

namespace host {
namespace {

constexpr std::string_view kReplacement = "\uFFFD";
constexpr std::string_view kOmission = "\u2026";

struct Range {
  char32_t first;
  char32_t last;
};

// Marks and controls of writing direction, and the separators of lines and paragraphs.
constexpr Range kActing[] = {
    {0x061C, 0x061C}, {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x206F}, {0xFEFF, 0xFEFF}};

bool actsOnTerminal(char32_t point) {
  return std::any_of(std::begin(kActing), std::end(kActing),
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

// The position after the characters that fit.
std::size_t fitting(std::string_view text, std::size_t width) {
  std::size_t at = 0;
  std::size_t taken = 0;
  while (at < text.size()) {
    const Character character = characterAt(text, at);
    taken += os::characterWidth(character.point);
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
    } else if ((character.point >= 0x80 && character.point < 0xA0) || actsOnTerminal(character.point)) {
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
    width += os::characterWidth(character.point);
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
