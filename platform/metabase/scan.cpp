#include "platform/metabase/scan.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <optional>

#include "platform/metabase/failures.h"

namespace platform::metabase {
namespace {

constexpr std::string_view kCommentStart = "<!--";
constexpr std::string_view kCommentEnd = "-->";
constexpr std::string_view kCdataStart = "<![CDATA[";
constexpr std::string_view kCdataEnd = "]]>";
constexpr std::string_view kInstructionStart = "<?";
constexpr std::string_view kInstructionEnd = "?>";
constexpr std::string_view kDocumentTypeStart = "<!DOCTYPE";

// The longest reference that is looked for its semicolon: "&#x0010FFFF;" and some leading zeros.
constexpr std::size_t kLongestReference = 32;

std::string hexadecimal(std::uint32_t value, const char* format) {
  char digits[16];
  std::snprintf(digits, sizeof digits, format, static_cast<unsigned>(value));
  return digits;
}

// Whether XML 1.0 has the character. (Production 2, "Char".)
bool isXmlCharacter(std::uint32_t point) {
  if (point < 0x20) return point == 0x09 || point == 0x0A || point == 0x0D;
  if (point >= 0xD800 && point <= 0xDFFF) return false;
  return point <= 0x10FFFF && point != 0xFFFE && point != 0xFFFF;
}

// The bytes at which a run of plain text ends for the scanner: control characters, bytes of a longer UTF-8
// sequence, and the marks of XML.
constexpr std::array<bool, 256> makeSpecial() {
  std::array<bool, 256> special{};
  for (std::size_t byte = 0; byte < special.size(); ++byte) {
    special[byte] = (byte < 0x20 && byte != 0x09 && byte != 0x0A && byte != 0x0D) || byte >= 0x80 ||
                    byte == '&' || byte == '<' || byte == '>' || byte == '"' || byte == '\'';
  }
  return special;
}
constexpr std::array<bool, 256> kSpecial = makeSpecial();

class Scanner {
 public:
  Scanner(std::string_view bytes, std::string_view file) : bytes_(bytes), file_(file) {}

  ScanResult run() {
    refuseUtf16();
    while (at_ < bytes_.size()) {
      if (!step()) return {unfinished_};
    }
    if (openElements_ > 0) return {"an element that is never closed"};
    return {};
  }

 private:
  enum class Where { kText, kTag };

  unsigned char byte(std::size_t index) const { return static_cast<unsigned char>(bytes_[index]); }
  bool startsWith(std::string_view mark) const { return bytes_.substr(at_, mark.size()) == mark; }

  [[noreturn]] void refuse(std::int32_t failureNumber, const std::string& what) const {
    const auto line = 1 + std::count(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(at_), '\n');
    fail(failureNumber, std::string(file_) + ", line " + std::to_string(line) + ": " + what);
  }

  void refuseUtf16() const {
    const auto isMark = [&](unsigned first, unsigned second) {
      return bytes_.size() >= 2 && byte(0) == first && byte(1) == second;
    };
    if (isMark(0xFF, 0xFE) || isMark(0xFE, 0xFF) || isMark('<', 0) || isMark(0, '<')) {
      refuse(number::kEncoding, "the file is UTF-16; a metabase file is UTF-8");
    }
  }

  // Looks at one byte of a run of plain text or at what the special byte there begins. False where the file
  // ends in the middle of something.
  bool step() {
    while (at_ < bytes_.size() && !kSpecial[byte(at_)]) ++at_;
    if (at_ == bytes_.size()) return true;
    switch (bytes_[at_]) {
      case '<':
        return markup();
      case '&':
        reference();
        return true;
      case '>':
      case '"':
      case '\'':
        ++at_;
        return true;
      default:
        character();
        return true;
    }
  }

  bool markup() {
    if (startsWith(kCommentStart)) return skipPast(kCommentStart, kCommentEnd, "a comment");
    if (startsWith(kCdataStart)) return skipPast(kCdataStart, kCdataEnd, "a CDATA section");
    if (startsWith(kInstructionStart)) {
      return skipPast(kInstructionStart, kInstructionEnd, "a processing instruction");
    }
    if (startsWith(kDocumentTypeStart)) {
      refuse(number::kDocumentType, "a document type declaration, which a metabase file does not have");
    }
    return tag();
  }

  // From the mark that begins something to behind the one that ends it, with the characters checked.
  bool skipPast(std::string_view start, std::string_view end, const char* what) {
    at_ += start.size();
    while (at_ < bytes_.size()) {
      if (bytes_[at_] == end.front() && startsWith(end)) {
        at_ += end.size();
        return true;
      }
      character();
    }
    unfinished_ = what;
    return false;
  }

  bool tag() {
    const bool closes = at_ + 1 < bytes_.size() && bytes_[at_ + 1] == '/';
    ++at_;
    while (true) {
      while (at_ < bytes_.size() && !kSpecial[byte(at_)]) ++at_;
      if (at_ == bytes_.size()) break;
      const char mark = bytes_[at_];
      if (mark == '>') {
        const bool empty = bytes_[at_ - 1] == '/';
        ++at_;
        if (closes) {
          if (openElements_ > 0) --openElements_;
        } else if (!empty) {
          ++openElements_;
        }
        return true;
      }
      if (mark == '"' || mark == '\'') {
        if (!attributeValue(mark)) return false;
      } else if (mark == '<') {
        refuse(number::kNotXml, "\"<\" inside a tag");
      } else if (mark == '&') {
        refuse(number::kNotXml, "\"&\" inside a tag and outside a value");
      } else {
        character();
      }
    }
    unfinished_ = "a tag";
    return false;
  }

  bool attributeValue(char quote) {
    ++at_;
    while (true) {
      while (at_ < bytes_.size() && !kSpecial[byte(at_)]) ++at_;
      if (at_ == bytes_.size()) break;
      const char mark = bytes_[at_];
      if (mark == quote) {
        ++at_;
        return true;
      }
      if (mark == '<') refuse(number::kNotXml, "\"<\" inside a value, or a value whose quote is missing");
      if (mark == '&') {
        reference();
      } else if (mark == '>' || mark == '"' || mark == '\'') {
        ++at_;
      } else {
        character();
      }
    }
    unfinished_ = "a value";
    return false;
  }

  // "&", a name or a number, ";".
  void reference() {
    const std::string_view rest = bytes_.substr(at_ + 1, kLongestReference);
    const std::size_t semicolon = rest.find(';');
    if (semicolon == std::string_view::npos) {
      if (at_ + kLongestReference >= bytes_.size()) {
        at_ = bytes_.size();  // The file ends here, which is what there is to say about it.
        return;
      }
      refuse(number::kEntity, "\"&\" that begins no entity");
    }
    const std::string_view name = rest.substr(0, semicolon);
    if (!name.empty() && name.front() == '#') {
      const std::optional<std::uint32_t> point = numericReference(name.substr(1));
      if (!point || !isXmlCharacter(*point)) {
        refuse(number::kEntity, "the reference " + inQuotes(bytes_.substr(at_, semicolon + 2)) +
                                    " denotes no character that XML has");
      }
    } else if (name != "amp" && name != "lt" && name != "gt" && name != "quot" && name != "apos") {
      refuse(number::kEntity,
             "the entity " + inQuotes(bytes_.substr(at_, semicolon + 2)) + " is not one of XML's");
    }
    at_ += semicolon + 2;
  }

  static std::optional<std::uint32_t> numericReference(std::string_view digits) {
    int base = 10;
    if (!digits.empty() && digits.front() == 'x') {
      base = 16;
      digits.remove_prefix(1);
    }
    std::uint32_t point = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), point, base);
    if (digits.empty() || error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
    return point;
  }

  // Checks the character that begins here and moves past it.
  void character() {
    const std::uint32_t lead = byte(at_);
    if (lead < 0x80) {
      if (lead == 0) refuse(number::kEncoding, "a NUL character");
      if (!isXmlCharacter(lead)) {
        refuse(number::kEncoding, "the control character " + hexadecimal(lead, "U+%04X"));
      }
      ++at_;
      return;
    }
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || at_ + length > bytes_.size()) refuseByte(lead);
    std::uint32_t point = lead & (length == 2 ? 0x1FU : length == 3 ? 0x0FU : 0x07U);
    for (std::size_t index = 1; index < length; ++index) {
      const std::uint32_t next = byte(at_ + index);
      if ((next & 0xC0) != 0x80) refuseByte(lead);
      point = (point << 6) | (next & 0x3F);
    }
    if ((length == 3 && point < 0x800) || (length == 4 && (point < 0x10000 || point > 0x10FFFF))) {
      refuseByte(lead);
    }
    if (point >= 0xD800 && point <= 0xDFFF) {
      refuse(number::kEncoding, "invalid UTF-8: the surrogate " + hexadecimal(point, "U+%04X"));
    }
    if (!isXmlCharacter(point)) {
      refuse(number::kEncoding,
             "the character " + hexadecimal(point, "U+%04X") + ", which XML does not have");
    }
    at_ += length;
  }

  [[noreturn]] void refuseByte(std::uint32_t lead) const {
    refuse(number::kEncoding, "invalid UTF-8 at the byte " + hexadecimal(lead, "0x%02X"));
  }

  std::string_view bytes_;
  std::string_view file_;
  std::size_t at_ = 0;
  std::size_t openElements_ = 0;
  std::string unfinished_;
};

}  // namespace

LineIndex::LineIndex(std::string_view bytes) {
  lineFeeds_.reserve(static_cast<std::size_t>(std::count(bytes.begin(), bytes.end(), '\n')));
  for (const char* at = bytes.data(); at != nullptr;) {
    const auto left = static_cast<std::size_t>(bytes.data() + bytes.size() - at);
    at = left == 0 ? nullptr : static_cast<const char*>(std::memchr(at, '\n', left));
    if (at == nullptr) break;
    lineFeeds_.push_back(static_cast<std::uint32_t>(at - bytes.data()));
    ++at;
  }
}

std::size_t LineIndex::lineAt(std::size_t offset) const {
  const auto found = std::lower_bound(lineFeeds_.begin(), lineFeeds_.end(), offset);
  return static_cast<std::size_t>(found - lineFeeds_.begin()) + 1;
}

ScanResult scan(std::string_view bytes, std::string_view file) {
  return Scanner(bytes, file).run();
}

}  // namespace platform::metabase
