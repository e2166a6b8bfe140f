#include "host/redact/redact.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>

#include "automation/text.h"
#include "host/redact/value_redactor.h"
#include "platform/metabase/failures.h"
#include "platform/metabase/metabase.h"
#include "platform/metabase/schema.h"
#include "platform/metabase/values.h"
#include "platform/metabase/xml.h"

namespace host {
namespace {

namespace metabase = platform::metabase;
using metabase::Property;

constexpr std::string_view kUnknownNamePrefix = "UnknownName_";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kSpace = " \t\r\n";
constexpr metabase::Flag kSecure[] = {{"SECURE", 4}};

// The known property of a name, or null.
const Property* propertyNamed(std::string_view name) {
  const auto id = metabase::schemaNames().find(name);
  return id && *id < metabase::properties().size() ? &metabase::properties()[*id] : nullptr;
}

// Whether a value begins like the server's encrypted ones.
bool isEncrypted(std::string_view value) {
  return value.starts_with("49634462") || value.starts_with("49634b62");
}

// Rewrites a well-formed document in UTF-8.
class DocumentRedactor {
 public:
  DocumentRedactor(std::string_view xml, Replacements& replacements) : xml_(xml), values_(replacements) {
    out_.reserve(xml.size());
  }

  std::string run() {
    if (xml_.starts_with(kByteOrderMark)) out_ += take(kByteOrderMark.size());
    while (true) {
      values_.redact(take(std::min(xml_.find('<', at_), xml_.size())), Rule::kText, out_);
      const std::string_view rest = xml_.substr(at_);
      if (rest.empty()) return std::move(out_);
      if (rest.starts_with("<?xml") && kSpace.find(rest[5]) != std::string_view::npos) {
        out_ += takeTo("?>");
      } else if (rest.starts_with("<!--") || rest.starts_with("<?")) {
        out_ += "<!--";
        empty(takeTo(rest[1] == '!' ? "-->" : "?>"));
        out_ += "-->";
      } else if (rest.starts_with("<![CDATA[")) {
        empty(takeTo("]]>"));
      } else {
        redactTag();
      }
    }
  }

 private:
  struct Attribute {
    std::string_view before;  // spaces
    std::string_view name;
    std::string_view equals;  // the sign, spaces around it, and the quote
    std::string_view value;
  };

  std::string_view take(std::size_t end) {
    const std::string_view taken = xml_.substr(at_, end - at_);
    at_ = end;
    return taken;
  }
  // Takes everything to the end of the next `mark`.
  std::string_view takeTo(std::string_view mark) { return take(xml_.find(mark, at_) + mark.size()); }
  std::string_view takeName() { return take(xml_.find_first_of(" \t\r\n=/>", at_)); }
  std::string_view takeSpace() { return take(xml_.find_first_not_of(kSpace, at_)); }

  // Keeps the line breaks of a text.
  void empty(std::string_view text) {
    for (const char unit : text) {
      if (unit == '\r' || unit == '\n') out_ += unit;
    }
  }

  void redactTag() {
    out_ += take(at_ + (xml_[at_ + 1] == '/' ? 2 : 1));
    const std::string_view name = takeName();
    values_.redact(name, Rule::kText, out_);
    attributes_.clear();
    std::string_view space = takeSpace();
    while (xml_[at_] != '/' && xml_[at_] != '>') {
      const std::string_view attribute = takeName();
      const std::string_view equals = take(xml_.find_first_of("\"'", at_) + 1);
      attributes_.push_back({space, attribute, equals, take(xml_.find(equals.back(), at_))});
      ++at_;
      space = takeSpace();
    }
    const bool isCustom = metabase::localName(name) == "Custom";
    for (const Attribute& attribute : attributes_) redactAttribute(attribute, isCustom);
    out_.append(space).append(takeTo(">"));
  }

  void redactAttribute(const Attribute& attribute, bool isCustom) {
    out_ += attribute.before;
    values_.redact(attribute.name, Rule::kText, out_);
    out_ += attribute.equals;
    if (!isCustom) {
      redactValue(attribute.value, propertyNamed(attribute.name));
    } else if (attribute.name == "Value") {
      redactCustomValue(attribute.value);
    } else {
      const bool isUnknownName =
          attribute.name == "Name" &&
          metabase::equalFolded(attribute.value.substr(0, kUnknownNamePrefix.size()), kUnknownNamePrefix);
      const bool isNumber = attribute.name == "ID" || isUnknownName;
      values_.redact(attribute.value, isNumber ? Rule::kNumbers : Rule::kText, out_);
    }
    out_ += attribute.equals.back();
  }

  void redactValue(std::string_view value, const Property* property, std::optional<Rule> declared = {}) {
    const Rule rule = property != nullptr ? values_.ruleOf(*property) : Rule::kText;
    if (isEncrypted(value) || (property != nullptr && property->secured)) {
      empty(value);
    } else if (property != nullptr && property->defaultText == value) {
      out_ += value;
    } else {
      values_.redact(value, declared.value_or(rule), out_);
    }
  }

  // The property of a <Custom> is the one of its name, or of its identifier.
  void redactCustomValue(std::string_view value) {
    const Property* const named = propertyNamed(customAttribute("Name"));
    const auto number = metabase::parseDword(customAttribute("ID"));
    const auto id = number ? metabase::propertyByIdentifier(*number) : std::nullopt;
    const Property* const identified = id ? &metabase::properties()[*id] : nullptr;
    std::optional<std::string_view> ignored;
    const bool isSecured = (metabase::parseFlags(customAttribute("Attributes"), kSecure, ignored) & 4) != 0 ||
                           (named != nullptr && named->secured) ||
                           (identified != nullptr && identified->secured);
    const bool isBinary = metabase::typeByName(customAttribute("Type")) == metabase::Type::kBinary;
    if (isSecured) {
      empty(value);
    } else {
      redactValue(value, named != nullptr ? named : identified,
                  isBinary ? std::optional(Rule::kBinary) : std::nullopt);
    }
  }

  std::string customAttribute(std::string_view name) const {
    const auto found = std::find_if(attributes_.begin(), attributes_.end(),
                                    [&](const Attribute& attribute) { return attribute.name == name; });
    return found == attributes_.end() ? std::string()
                                      : std::string(metabase::trimSpace(resolveReferences(found->value)));
  }

  const std::string_view xml_;
  ValueRedactor values_;
  std::string out_;
  std::size_t at_ = 0;
  std::vector<Attribute> attributes_;  // of the current tag
};

// Converts to UTF-16.
std::string encode(std::string_view utf8, bool isBigEndian) {
  std::string bytes;
  for (const char16_t unit : automation::fromUtf8(utf8)) {
    const char pair[] = {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
    bytes += pair[isBigEndian ? 1 : 0];
    bytes += pair[isBigEndian ? 0 : 1];
  }
  return bytes;
}

}  // namespace

Redaction redactMetabase(os::FileBytes file, const std::string& name) {
  std::string_view bytes(file.bytes.get(), file.size);
  const bool isBigEndian = bytes.starts_with("\xFE\xFF") || bytes.starts_with('\0');
  const bool isUtf16 = isBigEndian || bytes.starts_with("\xFF\xFE") || (bytes.size() > 1 && bytes[1] == '\0');
  metabase::convertToUtf8(file, name);
  bytes = {file.bytes.get(), file.size};
  metabase::validateXml(bytes, name);
  if (!metabase::looksLikeMetabase(bytes)) {
    metabase::fail(metabase::number::kAnotherKind, name + ": not a metabase");
  }
  Replacements replacements(bytes);
  Redaction redaction{DocumentRedactor(bytes, replacements).run(), {}};
  if (isUtf16) redaction.file = encode(redaction.file, isBigEndian);
  for (const auto* entry : replacements.entries()) redaction.replaced.emplace_back(*entry);
  return redaction;
}

}  // namespace host
