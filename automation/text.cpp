#include "automation/text.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace automation {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

// Whether a text is ASCII, checked in blocks of eight bytes.
template <typename Unit>
bool isAscii(std::basic_string_view<Unit> text) {
  constexpr std::size_t kBlock = sizeof(std::uint64_t) / sizeof(Unit);
  constexpr std::uint64_t kBeyond = sizeof(Unit) == 1 ? 0x8080808080808080 : 0xFF80FF80FF80FF80;
  while (text.size() >= kBlock) {
    std::uint64_t block = 0;
    std::memcpy(&block, text.data(), sizeof block);
    if ((block & kBeyond) != 0) return false;
    text.remove_prefix(kBlock);
  }
  return std::all_of(text.begin(), text.end(), [](Unit unit) { return unit >= 0 && unit < 0x80; });
}

// Converts the ASCII prefix of a text to UTF-16. Returns its length.
std::size_t widenAscii(std::string_view utf8, char16_t* out) {
  const char* in = utf8.data();
  const char* const end = in + utf8.size();
  for (; end - in >= 4; in += 4, out += 4) {
    std::uint32_t bytes = 0;
    std::memcpy(&bytes, in, sizeof bytes);
    if ((bytes & 0x80808080) != 0) break;
    std::uint64_t units = bytes;
    units = (units | units << 16) & 0x0000FFFF0000FFFF;
    units = (units | units << 8) & 0x00FF00FF00FF00FF;
    std::memcpy(out, &units, sizeof units);
  }
  for (; in != end && static_cast<unsigned char>(*in) < 0x80; ++in) *out++ = static_cast<char16_t>(*in);
  return static_cast<std::size_t>(in - utf8.data());
}

bool isHighSurrogate(char32_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}

bool isLowSurrogate(char32_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

void appendUtf8(std::string& out, char32_t point) {
  if (point < 0x80) {
    out += static_cast<char>(point);
  } else if (point < 0x800) {
    out += static_cast<char>(0xC0 | (point >> 6));
    out += static_cast<char>(0x80 | (point & 0x3F));
  } else if (point < 0x10000) {
    out += static_cast<char>(0xE0 | (point >> 12));
    out += static_cast<char>(0x80 | ((point >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (point & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (point >> 18));
    out += static_cast<char>(0x80 | ((point >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((point >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (point & 0x3F));
  }
}

// Ranges of capital letters at a fixed distance from their small letters.
struct CaseRange {
  char16_t firstUpper;
  char16_t lastUpper;
  char16_t distance;
};
constexpr CaseRange kDistant[] = {
    {u'A', u'Z', 0x20},     {0x00C0, 0x00D6, 0x20}, {0x00D8, 0x00DE, 0x20}, {0x0388, 0x038A, 0x25},
    {0x0391, 0x03A1, 0x20}, {0x03A3, 0x03AB, 0x20}, {0x0400, 0x040F, 0x50}, {0x0410, 0x042F, 0x20},
    {0x0386, 0x0386, 0x26}, {0x038C, 0x038C, 0x40}, {0x038E, 0x038F, 0x3F},
};

// Ranges of alternating capital and small letters, beginning with a capital.
struct AlternatingRange {
  char16_t first;
  char16_t last;
};
constexpr AlternatingRange kAlternating[] = {
    {0x0100, 0x012F}, {0x0132, 0x0137}, {0x0139, 0x0148}, {0x014A, 0x0177}, {0x0179, 0x017E},
    {0x0218, 0x021B}, {0x0460, 0x0481}, {0x048A, 0x04BF}, {0x04D0, 0x052F}, {0x1E00, 0x1E95},
};

constexpr char16_t kCapitalYDiaeresis = 0x0178;
constexpr char16_t kSmallYDiaeresis = 0x00FF;

}  // namespace

char32_t nextPoint(std::string_view utf8, std::size_t& at) {
  const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(utf8[index]); };
  const unsigned lead = byte(at);
  std::size_t length = 0;
  char32_t point = 0;
  char32_t smallest = 0;
  if (lead < 0x80) {
    ++at;
    return lead;
  }
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2, point = lead & 0x1F, smallest = 0x80;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3, point = lead & 0x0F, smallest = 0x800;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4, point = lead & 0x07, smallest = 0x10000;
  }
  if (length == 0 || at + length > utf8.size()) {
    ++at;
    return kReplacement;
  }
  for (std::size_t index = 1; index < length; ++index) {
    if ((byte(at + index) & 0xC0) != 0x80) {
      ++at;
      return kReplacement;
    }
    point = (point << 6) | (byte(at + index) & 0x3F);
  }
  if (point < smallest || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) {
    ++at;
    return kReplacement;
  }
  at += length;
  return point;
}

Text fromUtf8(std::string_view utf8) {
  Text text(utf8.size(), u'\0');
  if (std::size_t done = widenAscii(utf8, text.data()); done == utf8.size()) return text;
  text.clear();
  std::size_t at = 0;
  while (at < utf8.size()) {
    if (static_cast<unsigned char>(utf8[at]) < 0x80) {
      text += static_cast<char16_t>(utf8[at++]);
      continue;
    }
    const char32_t point = nextPoint(utf8, at);
    if (point < 0x10000) {
      text += static_cast<char16_t>(point);
    } else {
      text += static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10));
      text += static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF));
    }
  }
  return text;
}

std::string toUtf8(TextView text) {
  if (isAscii(text)) return std::string(text.begin(), text.end());
  std::string utf8;
  utf8.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char32_t unit = text[at];
    if (isHighSurrogate(unit) && at + 1 < text.size() && isLowSurrogate(text[at + 1])) {
      appendUtf8(utf8, 0x10000 + ((unit - 0xD800) << 10) + (char32_t{text[at + 1]} - 0xDC00));
      ++at;
    } else if (isHighSurrogate(unit) || isLowSurrogate(unit)) {
      appendUtf8(utf8, kReplacement);
    } else {
      appendUtf8(utf8, unit);
    }
  }
  return utf8;
}

char16_t toLowerBeyondAscii(char16_t unit) {
  if (unit == kCapitalYDiaeresis) return kSmallYDiaeresis;
  for (const CaseRange& range : kDistant) {
    if (unit >= range.firstUpper && unit <= range.lastUpper) {
      return static_cast<char16_t>(unit + range.distance);
    }
  }
  for (const AlternatingRange& range : kAlternating) {
    if (unit >= range.first && unit <= range.last) {
      return (unit - range.first) % 2 == 0 ? static_cast<char16_t>(unit + 1) : unit;
    }
  }
  return unit;
}

Text lowerCase(TextView text) {
  Text lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), toLower);
  return lower;
}

bool equalsInBothCases(TextView left, TextView right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char16_t a, char16_t b) { return a == b || toLower(a) == toLower(b); });
}

Text concat(std::initializer_list<TextView> pieces) {
  std::size_t length = 0;
  for (const TextView piece : pieces) length += piece.size();
  Text text;
  text.reserve(length);
  for (const TextView piece : pieces) text += piece;
  return text;
}

TextView trimBlanks(TextView text) {
  const std::size_t first = text.find_first_not_of(u' ');
  if (first == TextView::npos) return {};
  return text.substr(first, text.find_last_not_of(u' ') - first + 1);
}

}  // namespace automation
