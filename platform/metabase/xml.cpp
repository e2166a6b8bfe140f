#include "platform/metabase/xml.h"

#include <expat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <locale>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "platform/metabase/failures.h"
#include "platform/metabase/metabase.h"
#include "platform/metabase/names.h"

namespace platform::metabase {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

using Parser = std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)>;

Parser makeParser(const char* encoding) {
  Parser parser(XML_ParserCreate(encoding), &XML_ParserFree);
  if (parser == nullptr) throw std::bad_alloc();
  return parser;
}

[[noreturn]] void reject(std::int32_t failureNumber, const std::string& name, std::string_view before,
                         const std::string& what) {
  const auto line = 1 + std::count(before.begin(), before.end(), '\n');
  fail(failureNumber, name + ", line " + std::to_string(line) + ": " + what);
}

enum class Utf16 { kNot, kLittleEndian, kBigEndian };

// Detects UTF-16: XML starts with a byte order mark or a character below U+0100.
Utf16 utf16Of(std::string_view bytes) {
  if (bytes.size() < 2) return Utf16::kNot;
  if (bytes.starts_with("\xFF\xFE") || bytes[1] == 0) return Utf16::kLittleEndian;
  if (bytes.starts_with("\xFE\xFF") || bytes[0] == 0) return Utf16::kBigEndian;
  return Utf16::kNot;
}

// The UTF-16 units in the bytes; an odd last byte is ignored.
std::u16string unitsOf(std::string_view bytes, Utf16 order) {
  std::u16string units(bytes.size() / 2, u'\0');
  const std::size_t high = order == Utf16::kBigEndian ? 0 : 1;
  for (std::size_t at = 0; at < units.size(); ++at) {
    const auto byte = [&](std::size_t which) { return static_cast<unsigned char>(bytes[2 * at + which]); };
    units[at] = static_cast<char16_t>(byte(high) << 8 | byte(1 - high));
  }
  return units;
}

// std::codecvt has a protected destructor.
struct Converter : std::codecvt<char16_t, char8_t, std::mbstate_t> {};

std::string hexadecimal(const char* format, unsigned value) {
  char digits[16];
  std::snprintf(digits, sizeof digits, format, value);
  return digits;
}

// One pass of Expat over a whole file, to report what is not well-formed.
class XmlValidator {
 public:
  XmlValidator(std::string_view bytes, const std::string& name)
      : bytes_(bytes), name_(name), parser_(makeParser("UTF-8")) {
    XML_SetUserData(parser_.get(), this);
    XML_SetXmlDeclHandler(parser_.get(), onDeclaration);
    XML_SetStartDoctypeDeclHandler(parser_.get(), onDocumentType);
    XML_SetStartElementHandler(parser_.get(), onFirstElement);
  }

  void run() {
    const auto size = static_cast<int>(bytes_.size());
    if (XML_Parse(parser_.get(), bytes_.data(), size, XML_TRUE) == XML_STATUS_ERROR) rejectError();
  }

 private:
  // Expat's handlers. They must not throw.
  static void XMLCALL onDeclaration(void* self, const char* version, const char* encoding, int) {
    auto& validator = *static_cast<XmlValidator*>(self);
    validator.wrongVersion_ = version != nullptr && std::string_view(version) != "1.0";
    validator.wrongEncoding_ = encoding != nullptr && !equalFolded(encoding, std::string_view("UTF-8")) &&
                               !equalFolded(encoding, std::string_view("UTF-16"));
    if (validator.wrongVersion_ || validator.wrongEncoding_)
      XML_StopParser(validator.parser_.get(), XML_FALSE);
  }
  static void XMLCALL onDocumentType(void* self, const char*, const char*, const char*, int) {
    auto& validator = *static_cast<XmlValidator*>(self);
    validator.documentType_ = true;
    XML_StopParser(validator.parser_.get(), XML_FALSE);
  }
  static void XMLCALL onFirstElement(void* self, const char*, const char**) {
    auto& validator = *static_cast<XmlValidator*>(self);
    validator.hasElement_ = true;
    XML_SetStartElementHandler(validator.parser_.get(), nullptr);
  }

  [[noreturn]] void rejectAt(std::size_t at, std::int32_t failureNumber, const std::string& what) const {
    reject(failureNumber, name_, bytes_.substr(0, at), what);
  }

  [[noreturn]] void rejectXml(std::size_t at, const std::string& why) const {
    rejectAt(at, number::kNotXml, "not XML: " + why);
  }

  [[noreturn]] void rejectCutOff(const std::string& inWhat) const {
    rejectAt(bytes_.size(), number::kCutOff, "the file is truncated inside " + inWhat);
  }

  [[noreturn]] void rejectError() const {
    const XML_Index index = XML_GetCurrentByteIndex(parser_.get());
    const std::size_t at = index < 0 ? bytes_.size() : static_cast<std::size_t>(index);
    switch (const XML_Error error = XML_GetErrorCode(parser_.get())) {
      case XML_ERROR_NO_MEMORY:
        throw std::bad_alloc();
      case XML_ERROR_ABORTED:
        if (wrongVersion_) rejectXml(at, "the declared XML version is not 1.0");
        if (documentType_) {
          rejectAt(at, number::kDocumentType, "unexpected document type declaration");
        }
        rejectAt(at, number::kEncoding, "the declared encoding is neither UTF-8 nor UTF-16");
      case XML_ERROR_NO_ELEMENTS:
        if (hasElement_) rejectCutOff("an element that is never closed");
        rejectXml(at, "the file has no element");
      case XML_ERROR_UNCLOSED_CDATA_SECTION:
        rejectCutOff("a CDATA section");
      case XML_ERROR_UNCLOSED_TOKEN:
        rejectCutOff(tokenAt(at));
      case XML_ERROR_PARTIAL_CHAR:
        rejectCutOff("a character");
      case XML_ERROR_INVALID_TOKEN:
        rejectToken(at);
      case XML_ERROR_UNDEFINED_ENTITY:
        rejectEntity(at);
      case XML_ERROR_BAD_CHAR_REF:
        rejectAt(at, number::kEntity,
                 "the reference " + quoteForMessage(upTo(';', at)) + " is not a character of XML");
      case XML_ERROR_TAG_MISMATCH:
        rejectXml(at, "the tag " + quoteForMessage("</" + std::string(upTo('>', at))) +
                          " does not match the open element");
      case XML_ERROR_DUPLICATE_ATTRIBUTE:
        rejectXml(at, "duplicate attribute " +
                          quoteForMessage(bytes_.substr(at, bytes_.find_first_of(" \t\r\n=", at) - at)));
      case XML_ERROR_SYNTAX:
      case XML_ERROR_JUNK_AFTER_DOC_ELEMENT:
        rejectXml(at, std::string("content ") + (hasElement_ ? "after" : "before") + " the root element");
      case XML_ERROR_MISPLACED_XML_PI:
        rejectXml(at, "the XML declaration is not at the beginning of the file");
      default:
        rejectXml(at, XML_ErrorString(error));
    }
  }

  // Names the unfinished token at `at`.
  std::string tokenAt(std::size_t at) const {
    const std::string_view token = bytes_.substr(at);
    const auto begun = [&](const char* what) {
      const auto line =
          1 + std::count(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(at), '\n');
      return what + (" that begins on line " + std::to_string(line));
    };
    if (token.starts_with("<!--")) return begun("a comment");
    if (token.starts_with("<?")) return begun("a processing instruction");
    if (!token.starts_with("<")) return begun("a reference");
    char quote = 0;
    for (const char unit : token) {
      if (quote == 0 ? unit == '"' || unit == '\'' : unit == quote) quote = quote == 0 ? unit : '\0';
    }
    return begun(quote == 0 ? "a tag" : "a value of a tag");
  }

  std::string_view upTo(char last, std::size_t at) const {
    return bytes_.substr(at, bytes_.find(last, at) - at + 1);
  }

  // Reports the invalid byte at `at`.
  [[noreturn]] void rejectToken(std::size_t at) const {
    const unsigned byte = at < bytes_.size() ? static_cast<unsigned char>(bytes_[at]) : ' ';
    const std::size_t length = byte < 0x80 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
    const std::string_view character = bytes_.substr(at, length);
    if (byte == 0) rejectAt(at, number::kEncoding, "a NUL character");
    if (byte < 0x20 && byte != '\t' && byte != '\r' && byte != '\n') {
      rejectAt(at, number::kEncoding, "the control character " + hexadecimal("U+%04X", byte));
    }
    const automation::Text text = automation::fromUtf8(character);
    if (automation::toUtf8(text) != character) {
      rejectAt(at, number::kEncoding, "invalid UTF-8 at the byte " + hexadecimal("0x%02X", byte));
    }
    // Expat reports a bare ampersand at the character after it.
    const std::size_t mark = bytes_.substr(0, at).find_last_of("&<>\"' \t\r\n;");
    if (mark != std::string_view::npos && bytes_[mark] == '&') {
      rejectAt(at, number::kEntity, "\"&\" without an entity name");
    }
    // A byte order mark would be invisible in quotes.
    rejectXml(at, "unexpected " +
                      (byte >= 0x80 && text.size() == 1 ? hexadecimal("U+%04X", text[0])
                                                        : quoteForMessage(character)) +
                      (byte == '<' ? " (a closing quote may be missing)" : ""));
  }

  // Expat reports the position of the tag that contains the unknown entity.
  [[noreturn]] void rejectEntity(std::size_t at) const {
    constexpr std::string_view kKnown[] = {"&amp;", "&lt;", "&gt;", "&quot;", "&apos;"};
    std::string_view reference;
    do {
      at = bytes_.find('&', reference.empty() ? at : at + 1);
      reference = upTo(';', at);
    } while (reference.starts_with("&#") ||
             std::find(std::begin(kKnown), std::end(kKnown), reference) != std::end(kKnown));
    rejectAt(at, number::kEntity, "the entity " + quoteForMessage(reference) + " is not defined in XML");
  }

  std::string_view bytes_;
  const std::string& name_;
  Parser parser_;
  bool hasElement_ = false;
  bool documentType_ = false;
  bool wrongVersion_ = false;
  bool wrongEncoding_ = false;
};

// Detects the two outermost elements.
struct RootElements {
  XML_Parser parser;
  int depth = 0;
  bool found = false;

  static void XMLCALL open(void* self, const char* name, const char**) {
    auto& roots = *static_cast<RootElements*>(self);
    const int depth = roots.depth++;
    roots.found = depth == 1 && localName(name) == "MBProperty";
    if (roots.found || (depth == 0 && localName(name) != "configuration")) {
      XML_StopParser(roots.parser, XML_FALSE);
    }
  }
  static void XMLCALL close(void* self, const char*) { --static_cast<RootElements*>(self)->depth; }
};

}  // namespace

void convertToUtf8(os::FileBytes& file, const std::string& name) {
  const std::string_view bytes(file.bytes.get(), file.size);
  const Utf16 order = utf16Of(bytes);
  if (order == Utf16::kNot) return;
  const std::u16string units = unitsOf(bytes, order);
  // A UTF-16 unit has at most three bytes in UTF-8.
  const std::size_t room = units.size() * 3;
  os::FileBytes converted{std::unique_ptr<char[]>(new char[room + 1]), 0, file.stamp};
  auto* const begin = reinterpret_cast<char8_t*>(converted.bytes.get());
  const char16_t* next = units.data();
  char8_t* out = begin;
  std::mbstate_t state{};
  const auto result =
      Converter().out(state, units.data(), units.data() + units.size(), next, begin, begin + room, out);
  converted.size = static_cast<std::size_t>(out - begin);
  const std::string_view before(converted.bytes.get(), converted.size);
  if (result == std::codecvt_base::error) {
    reject(number::kEncoding, name, before, "invalid UTF-16: half of a surrogate pair");
  }
  if (result != std::codecvt_base::ok || file.size % 2 != 0) {
    reject(number::kCutOff, name, before, "the file is truncated inside a character");
  }
  file = std::move(converted);
}

void validateXml(std::string_view bytes, const std::string& name) {
  XmlValidator(bytes, name).run();
}

bool looksLikeMetabase(std::string_view head) {
  // Only ASCII names are compared, so any other character can be replaced by a byte.
  std::string text;
  if (const Utf16 order = utf16Of(head); order != Utf16::kNot) {
    const bool bigEndian = order == Utf16::kBigEndian;
    for (std::size_t at = head.starts_with("\xFF\xFE") || head.starts_with("\xFE\xFF") ? 2 : 0;
         at + 1 < head.size(); at += 2) {
      const char low = head[at + (bigEndian ? 1 : 0)];
      text += head[at + (bigEndian ? 0 : 1)] == 0 ? low : '?';
    }
  } else {
    text = head.substr(head.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0);
  }
  const Parser parser = makeParser("ISO-8859-1");
  RootElements roots{parser.get()};
  XML_SetUserData(parser.get(), &roots);
  XML_SetElementHandler(parser.get(), RootElements::open, RootElements::close);
  XML_Parse(parser.get(), text.data(), static_cast<int>(std::min(text.size(), os::kLargestFile)), XML_FALSE);
  return roots.found;
}

LineIndex::LineIndex(std::string_view bytes) {
  lineFeeds_.reserve(static_cast<std::size_t>(std::count(bytes.begin(), bytes.end(), '\n')));
  for (std::size_t at = bytes.find('\n'); at != std::string_view::npos; at = bytes.find('\n', at + 1)) {
    lineFeeds_.push_back(static_cast<std::uint32_t>(at));
  }
}

std::size_t LineIndex::lineAt(std::size_t offset) const {
  const auto found = std::lower_bound(lineFeeds_.begin(), lineFeeds_.end(), offset);
  return static_cast<std::size_t>(found - lineFeeds_.begin()) + 1;
}

std::string_view localName(std::string_view qualified) {
  const std::size_t colon = qualified.rfind(':');
  return colon == std::string_view::npos ? qualified : qualified.substr(colon + 1);
}

}  // namespace platform::metabase
