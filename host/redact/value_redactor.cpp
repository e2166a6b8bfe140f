#include "host/redact/value_redactor.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iterator>
#include <optional>
#include <vector>

#include "automation/text.h"
#include "host/redact/harmless_data.h"
#include "platform/metabase/ip_security.h"
#include "platform/metabase/values.h"

namespace host {
namespace {

using platform::metabase::equalFolded;
using platform::metabase::parseDword;
using platform::metabase::trimSpace;
using platform::metabase::Type;

constexpr std::string_view kFieldSeparators = "/\\,;:|=\t\r\n";
constexpr std::string_view kServiceEnding = "SVC";

bool isDigit(char unit) {
  return unit >= '0' && unit <= '9';
}

bool isWordCharacter(char unit) {
  return isDigit(unit) || ((unit | 0x20) >= 'a' && (unit | 0x20) <= 'z') || (unit & 0x80) != 0;
}

bool isHexadecimal(std::string_view text) {
  return text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

bool isNumber(std::string_view text) {
  return std::all_of(text.begin(), text.end(), isDigit);
}

// Parses the IPv4 address at `at`, which begins a word, and sets `end`.
std::optional<Address> addressAt(std::string_view text, std::size_t at, std::size_t& end) {
  Address address{};
  if (at > 0 && text[at - 1] == '.') return std::nullopt;
  for (std::size_t byte = 0; byte < address.size(); ++byte) {
    const char* const begin = text.data() + at;
    const auto [next, error] = std::from_chars(begin, text.data() + text.size(), address[byte]);
    if (error != std::errc()) return std::nullopt;
    at += static_cast<std::size_t>(next - begin);
    const bool isFollowed = at < text.size() && text[at] == '.';
    if (byte < 3 && !isFollowed) return std::nullopt;
    if (byte == 3 && isFollowed && at + 1 < text.size() && isDigit(text[at + 1])) return std::nullopt;
    if (byte < 3) ++at;
  }
  if (at < text.size() && isWordCharacter(text[at])) return std::nullopt;
  end = at;
  return address;
}

void appendUtf8(char32_t point, std::string& text) {
  automation::Text units;
  if (point >= 0x10000) units += static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10));
  units += static_cast<char16_t>(point >= 0x10000 ? 0xDC00 + (point & 0x3FF) : point);
  text += automation::toUtf8(units);
}

// A text as spelled in the file and with its references resolved.
class Resolved {
 public:
  explicit Resolved(std::string_view spelled) : spelled_(spelled), text_(spelled) {
    if (spelled.find('&') != std::string_view::npos) resolve();
  }
  Resolved(const Resolved&) = delete;
  Resolved& operator=(const Resolved&) = delete;

  std::string_view text() const { return text_; }
  // How the characters from `begin` to `end` of the text are spelled.
  std::string_view spelling(std::size_t begin, std::size_t end) const {
    const std::size_t from = spelledAt(begin);
    return spelled_.substr(from, spelledAt(end) - from);
  }

 private:
  // From here to the next one a byte of the text is one of its spelling.
  struct Piece {
    std::size_t text = 0;
    std::size_t spelled = 0;
  };

  void resolve() {
    for (std::size_t at = 0, mark = 0; at < spelled_.size(); at = mark) {
      mark = std::min(spelled_.find('&', at), spelled_.size());
      resolved_ += spelled_.substr(at, mark - at);
      if (mark == spelled_.size()) break;
      const std::size_t end = spelled_.find(';', mark);
      appendUtf8(pointOf(spelled_.substr(mark + 1, end - mark - 1)), resolved_);
      mark = end + 1;
      pieces_.push_back({resolved_.size(), mark});
    }
    text_ = resolved_;
  }

  std::size_t spelledAt(std::size_t at) const {
    const auto after = std::ranges::upper_bound(pieces_, at, {}, &Piece::text);
    return std::prev(after)->spelled + at - std::prev(after)->text;
  }

  // The character that a reference names.
  static char32_t pointOf(std::string_view name) {
    if (name.front() != '#') {
      return name == "amp" ? U'&' : name == "lt" ? U'<' : name == "gt" ? U'>' : name == "quot" ? U'"' : U'\'';
    }
    const bool isHex = name[1] == 'x';
    name.remove_prefix(isHex ? 2 : 1);
    std::uint32_t point = 0;
    std::from_chars(name.data(), name.data() + name.size(), point, isHex ? 16 : 10);
    return point;
  }

  std::string_view spelled_;
  std::string_view text_;
  std::string resolved_;
  std::vector<Piece> pieces_{Piece{}};
};

// One pass through a text, word by word.
class WordPass {
 public:
  WordPass(const HarmlessTexts& harmless, Replacements& replacements, const Resolved& resolved, Rule rule,
           std::string& out)
      : harmless_(harmless),
        replacements_(replacements),
        resolved_(resolved),
        text_(resolved.text()),
        rule_(rule),
        out_(out) {}

  void run() {
    bool beginsField = true;
    while (at_ < text_.size()) {
      if (beginsField && skipField()) continue;
      beginsField = kFieldSeparators.find(text_[at_]) != std::string_view::npos;
      if (isWordCharacter(text_[at_])) {
        redactWord();
      } else {
        ++at_;
      }
    }
    out_ += resolved_.spelling(kept_, text_.size());
  }

 private:
  // Skips the field here if all of it is kept.
  bool skipField() {
    const std::size_t end = std::min(text_.find_first_of(kFieldSeparators, at_), text_.size());
    const std::string_view field = trimSpace(text_.substr(at_, end - at_));
    if (field.empty()) return false;
    const bool isSite = at_ > 0 && text_[at_ - 1] == '/' && followsService_ && isNumber(field);
    followsService_ = field.size() > kServiceEnding.size() &&
                      equalFolded(field.substr(field.size() - kServiceEnding.size()), kServiceEnding);
    const bool isNumberField = rule_ != Rule::kText && parseDword(field);
    if (!isSite && !isNumberField && !harmless_.isPhrase(field)) return false;
    at_ = end;
    return true;
  }

  void redactWord() {
    std::size_t end = at_;
    if (const auto address = isDigit(text_[at_]) ? addressAt(text_, at_, end) : std::nullopt) {
      const Address replacement = replacements_.address(*address);
      if (replacement != *address) replace(end, addressText(replacement));
    } else {
      while (end < text_.size() && isWordCharacter(text_[end])) ++end;
      const std::string_view word = text_.substr(at_, end - at_);
      if (!isKept(word)) replace(end, replacements_.word(word));
    }
    at_ = end;
  }

  bool isKept(std::string_view word) const {
    return word.size() == 1 || harmless_.isWord(word) || (rule_ == Rule::kNumbers && isNumber(word));
  }

  void replace(std::size_t end, std::string_view replacement) {
    out_.append(resolved_.spelling(kept_, at_)).append(replacement);
    kept_ = end;
  }

  const HarmlessTexts& harmless_;
  Replacements& replacements_;
  const Resolved& resolved_;
  const std::string_view text_;
  const Rule rule_;
  std::string& out_;
  std::size_t at_ = 0;
  std::size_t kept_ = 0;  // up to here the text has been appended
  bool followsService_ = false;
};

bool isMask(const Address& bytes) {
  std::uint32_t rest = 0;
  for (const std::uint8_t byte : bytes) rest = rest << 8 | (byte ^ 0xFFU);
  return (rest & (rest + 1)) == 0;
}

// The binary form of a list of IP restrictions, whole or damaged.
class BinaryList {
 public:
  explicit BinaryList(std::string_view text) : text_(text) {
    for (std::size_t at = 0; at < text.size(); ++at) {
      if (!trimSpace(text.substr(at, 1)).empty()) digits_.push_back(at);
    }
    for (std::size_t at = 0; at + 1 < digits_.size(); at += 2) {
      const char pair[] = {text[digits_[at]], text[digits_[at + 1]]};
      std::uint8_t byte = 0;
      if (std::from_chars(pair, pair + 2, byte, 16).ptr != pair + 2) return;
      bytes_ += static_cast<char>(byte);
    }
    isBinary_ = !digits_.empty() && digits_.size() % 2 == 0;
    platform::metabase::IpSecurityProblem ignored;
    isWhole_ = isBinary_ && platform::metabase::decodeIpSecurity(bytes_, ignored);
  }

  bool isBinary() const { return isBinary_; }

  // Each four bytes are an address, except before the elements the numbers that can be counts, sizes and
  // offsets.
  std::string redact(Replacements& replacements) const {
    constexpr std::size_t kElementsAt = 20;
    std::string redacted(text_);
    std::size_t elements = bytes_.size();
    for (std::size_t at = 0; at < bytes_.size(); at += 4) {
      Address bytes{};
      std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(at),
                  std::min<std::size_t>(4, bytes_.size() - at), bytes.begin());
      std::uint32_t number = 0;
      for (std::size_t byte = 4; byte-- > 0;) number = number << 8 | bytes[byte];
      if (at == kElementsAt) elements = number;
      if (at < elements && (number & 0x7FFFFFFF) <= bytes_.size()) continue;
      write(replacementOf(bytes, replacements), at, redacted);
    }
    return redacted;
  }

 private:
  // What is in a damaged value, or in one with names, may be no address: nothing else than masks is kept.
  Address replacementOf(const Address& bytes, Replacements& replacements) const {
    Address replacement = replacements.address(bytes);
    if (isWhole_ || isMask(bytes)) return replacement;
    if (replacement == bytes) return {};
    replacement[3] = 0;
    return replacement;
  }

  // Writes the bytes that differ.
  void write(const Address& bytes, std::size_t at, std::string& redacted) const {
    for (std::size_t byte = 0; byte < 4 && at + byte < bytes_.size(); ++byte) {
      if (bytes[byte] == static_cast<std::uint8_t>(bytes_[at + byte])) continue;
      redacted[digits_[2 * (at + byte)]] = kDigits[bytes[byte] >> 4];
      redacted[digits_[2 * (at + byte) + 1]] = kDigits[bytes[byte] & 0xF];
    }
  }

  static constexpr std::string_view kDigits = "0123456789abcdef";

  std::string_view text_;
  std::vector<std::size_t> digits_;  // their positions
  std::string bytes_;
  bool isBinary_ = false;
  bool isWhole_ = false;
};

}  // namespace

HarmlessTexts::HarmlessTexts() {
  for (std::string_view rest = kHarmlessTexts; !rest.empty();) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    const std::size_t tab = line.find('\t');
    if (line.starts_with('#') || tab == std::string_view::npos) continue;
    const std::string_view kind = line.substr(0, tab);
    (kind == "word" ? words_ : kind == "phrase" ? phrases_ : fieldProperties_).enter(line.substr(tab + 1));
  }
  const auto& names = platform::metabase::schemaNames();
  for (platform::metabase::NameTable::Id id = 0; id < names.size(); ++id) phrases_.enter(names.text(id));
  const auto& classes = platform::metabase::schemaClasses();
  for (platform::metabase::NameTable::Id id = 0; id < classes.size(); ++id) phrases_.enter(classes.text(id));
}

Rule HarmlessTexts::ruleOf(const platform::metabase::Property& property) const {
  switch (property.type) {
    case Type::kDword:
    case Type::kBool:
    case Type::kFlags:
      return Rule::kNumbers;
    case Type::kBinary:
      return Rule::kBinary;
    case Type::kIpSecurity:
      return Rule::kAddresses;
    default:
      return fieldProperties_.find(property.name) ? Rule::kFields : Rule::kText;
  }
}

void ValueRedactor::redact(std::string_view spelled, Rule rule, std::string& out) {
  if (rule == Rule::kAddresses) {
    if (const BinaryList list(spelled); list.isBinary()) {
      out += list.redact(replacements_);
      return;
    }
  }
  if (rule == Rule::kBinary) {
    if (!spelled.empty() && isHexadecimal(spelled)) {
      out += replacements_.hexadecimal(spelled);
      return;
    }
    rule = Rule::kText;
  }
  const Resolved resolved(spelled);
  WordPass(harmless_, replacements_, resolved, rule, out).run();
}

std::string resolveReferences(std::string_view spelled) {
  return std::string(Resolved(spelled).text());
}

}  // namespace host
