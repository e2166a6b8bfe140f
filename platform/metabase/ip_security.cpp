#include "platform/metabase/ip_security.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "automation/failure.h"
#include "platform/metabase/failures.h"
#include "platform/metabase/values.h"

namespace platform::metabase {
namespace {

using automation::Arguments;
using automation::equalsIgnoringCase;
using automation::TextView;
using automation::Variant;

// Decodes hexadecimal digits, ignoring white space. Returns nullopt for other characters and for an odd
// number of digits.
std::optional<std::string> bytesFrom(std::string_view text) {
  std::string bytes;
  int high = -1;
  for (const char unit : text) {
    if (unit == ' ' || unit == '\t' || unit == '\r' || unit == '\n') continue;
    const char lower = static_cast<char>(unit | 0x20);
    const int digit = unit >= '0' && unit <= '9'     ? unit - '0'
                      : lower >= 'a' && lower <= 'f' ? lower - 'a' + 10
                                                     : -1;
    if (digit < 0) return std::nullopt;
    if (high >= 0) bytes += static_cast<char>(high << 4 | digit);
    high = high >= 0 ? -1 : digit;
  }
  return high >= 0 ? std::nullopt : std::optional(std::move(bytes));
}

// Decodes the binary form in one pass.
class Decoder {
 public:
  explicit Decoder(std::string_view bytes) : bytes_(bytes) {}

  std::optional<IpSecurity> decode() {
    IpSecurity security;
    if (bytes_.size() < kHeaderSize) return reject("it is shorter than its fixed part");
    std::size_t end = kHeaderSize;
    std::size_t elements = numberAt(kElementsAt);
    const bool read = readList("denied addresses", 0, end, elements, security.denials) &&
                      readList("granted addresses", 4, end, elements, security.grants) &&
                      readNames("denied names", 8, end) && readNames("granted names", 12, end);
    if (!read) return std::nullopt;
    if (end != numberAt(kElementsAt)) return reject("the elements do not begin at the end of the lists");
    if (elements != bytes_.size()) return reject("the elements do not end at the end of the value");
    if (security.denials.empty() && security.grants.empty()) return reject("no list has an address");
    if (!security.denials.empty() && !security.grants.empty()) {
      return reject("it both denies and grants addresses");
    }
    security.grantByDefault = security.grants.empty();
    return security;
  }

  const std::string& why() const { return why_; }

 private:
  static constexpr std::size_t kElementsAt = 20;
  static constexpr std::size_t kHeaderSize = 24;
  static constexpr std::size_t kListSize = 8;
  static constexpr std::size_t kGroupSize = 20;
  static constexpr std::size_t kElementSize = 4;
  static constexpr std::uint32_t kOffset = 0x80000000;
  static constexpr std::uint32_t kIpv4 = 2;

  std::nullopt_t reject(std::string why) {
    if (why_.empty()) why_ = std::move(why);
    return std::nullopt;
  }

  // Whether the value has `size` bytes from `at` on.
  bool has(std::size_t at, std::uint64_t size) const {
    return at <= bytes_.size() && size <= bytes_.size() - at;
  }

  std::uint32_t numberAt(std::size_t at) const {
    std::uint32_t number = 0;
    for (std::size_t byte = 4; byte-- > 0;)
      number = number << 8 | static_cast<unsigned char>(bytes_[at + byte]);
    return number;
  }

  bool begins(const char* what, std::size_t offsetAt, std::size_t end) {
    if (numberAt(offsetAt) != (end | kOffset) || !has(end, kListSize)) {
      reject(std::string("the list of ") + what + " does not begin at the end of the previous part, at " +
             std::to_string(end));
      return false;
    }
    return true;
  }

  bool readNames(const char* what, std::size_t offsetAt, std::size_t& end) {
    if (!begins(what, offsetAt, end)) return false;
    if (numberAt(end) != 0 || numberAt(end + 4) != 0) {
      reject(std::string("it has ") + what);
      return false;
    }
    end += kListSize;
    return true;
  }

  // Reads the list at `end` and its elements at `elements`, and advances both.
  bool readList(const char* what, std::size_t offsetAt, std::size_t& end, std::size_t& elements,
                std::vector<std::string>& entries) {
    if (!begins(what, offsetAt, end)) return false;
    const std::uint64_t groups = numberAt(end);
    const std::uint64_t addresses = numberAt(end + 4);
    end += kListSize;
    for (std::uint64_t group = 0; group < groups; ++group, end += kGroupSize) {
      if (!has(end, kGroupSize) || !readGroup(end, elements, entries)) {
        reject(std::string("a group of ") + what + " is truncated");
        return false;
      }
    }
    if (entries.size() != addresses) {
      reject(std::string("the groups do not have the declared number of ") + what);
      return false;
    }
    return true;
  }

  bool readGroup(std::size_t at, std::size_t& elements, std::vector<std::string>& entries) {
    const std::uint64_t count = numberAt(at + 4);
    if (numberAt(at) != kIpv4) reject("a group is not IPv4");
    if (numberAt(at + 8) != kElementSize || numberAt(at + 12) != 0)
      reject("a group has an unexpected header");
    if (count < 2) reject("a group has no address");
    if (numberAt(at + 16) != (elements | kOffset)) {
      reject("the elements of a group do not begin at the end of the previous ones");
    }
    if (!has(elements, count * kElementSize)) reject("the elements of a group exceed the value");
    if (!why_.empty()) return false;
    const std::string mask = addressAt(elements);
    const auto end = elements + static_cast<std::size_t>(count * kElementSize);
    for (elements += kElementSize; elements < end; elements += kElementSize) {
      entries.push_back(addressAt(elements) + ", " + mask);
    }
    return true;
  }

  std::string addressAt(std::size_t at) const {
    std::string text;
    for (const char byte : bytes_.substr(at, kElementSize)) {
      text += (text.empty() ? "" : ".") + std::to_string(static_cast<unsigned char>(byte));
    }
    return text;
  }

  std::string_view bytes_;
  std::string why_;
};

// Whether a text is a dotted IPv4 address.
bool isAddress(std::string_view text) {
  for (int part = 0; part < 4; ++part) {
    unsigned number = 256;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || number > 255 || end - text.data() > 3) return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    if (part == 3) return text.empty();
    if (text.empty() || text.front() != '.') return false;
    text.remove_prefix(1);
  }
  return false;
}

bool isEntry(std::string_view text) {
  const std::size_t comma = text.find(',');
  return comma != std::string_view::npos && isAddress(trimSpace(text.substr(0, comma))) &&
         isAddress(trimSpace(text.substr(comma + 1)));
}

class IpSecurityObject : public automation::MemberlessObject {
 public:
  explicit IpSecurityObject(const IpSecurity& security)
      : MemberlessObject(u"IIsIPSecurity"),
        grantByDefault_(security.grantByDefault),
        grants_(textsOf(security.grants)),
        denials_(textsOf(security.denials)),
        domains_(automation::Array()) {}

  Variant read(TextView member, Arguments arguments) override {
    const Variant* value = find(member);
    if (value == nullptr) automation::failMember(member, source());
    if (!arguments.empty()) {
      throw automation::Failure(automation::number::kWrongArguments,
                                automation::Text(member) + u" takes no arguments", source());
    }
    return *value;
  }

  Variant call(TextView member, Arguments arguments) override { return read(member, arguments); }

  void write(TextView member, Arguments, const Variant&) override {
    if (find(member) == nullptr) automation::failMember(member, source());
    fail(number::kReadOnly,
         "cannot write " + automation::toUtf8(member) + ": a metabase snapshot is read-only");
  }

 private:
  static Variant textsOf(const std::vector<std::string>& entries) {
    automation::Array array;
    for (const std::string& entry : entries) array.elements.emplace_back(automation::fromUtf8(entry));
    return array;
  }

  const Variant* find(TextView member) const {
    if (equalsIgnoringCase(member, u"GrantByDefault")) return &grantByDefault_;
    if (equalsIgnoringCase(member, u"IPGrant")) return &grants_;
    if (equalsIgnoringCase(member, u"IPDeny")) return &denials_;
    if (equalsIgnoringCase(member, u"DomainGrant")) return &domains_;
    if (equalsIgnoringCase(member, u"DomainDeny")) return &domains_;
    return nullptr;
  }

  Variant grantByDefault_;
  Variant grants_;
  Variant denials_;
  Variant domains_;
};

}  // namespace

std::optional<IpSecurity> parseIpSecurity(std::string_view text, IpSecurityProblem& problem) {
  IpSecurity security;
  if (trimSpace(text).empty()) return security;
  if (const auto bytes = bytesFrom(text)) return decodeIpSecurity(*bytes, problem);
  bool first = true;
  forEachLine(text, [&](std::string_view line) {
    const char* expected = nullptr;
    const std::size_t equals = line.find('=');
    const std::string_view key = trimSpace(line.substr(0, equals));
    const std::string_view value =
        equals == std::string_view::npos ? std::string_view() : line.substr(equals + 1);
    if (first) {
      const auto granted = parseBool(value);
      if (!equalFolded(key, std::string_view("GrantByDefault")) || !granted) {
        expected = "GrantByDefault=TRUE or GrantByDefault=FALSE, which is required in the first line";
      }
      security.grantByDefault = granted.value_or(false);
      first = false;
    } else {
      const bool grants = equalFolded(key, std::string_view("IPGrant"));
      if ((!grants && !equalFolded(key, std::string_view("IPDeny"))) || !isEntry(value)) {
        expected = "IPGrant=address, mask or IPDeny=address, mask";
      }
      (grants ? security.grants : security.denials).emplace_back(trimSpace(value));
    }
    if (expected != nullptr && problem.why.empty()) {
      problem = {number::kWrongValue,
                 "the line " + quoteForMessage(line) + " of the value does not have the form " + expected};
    }
  });
  if (!problem.why.empty()) return std::nullopt;
  return security;
}

std::optional<IpSecurity> decodeIpSecurity(std::string_view bytes, IpSecurityProblem& problem) {
  Decoder decoder(bytes);
  auto security = decoder.decode();
  if (!security) {
    problem = {number::kBinaryIpSecurity, "the binary value of " + std::to_string(bytes.size()) +
                                              " bytes cannot be decoded: " + decoder.why()};
  }
  return security;
}

automation::ObjectRef makeIpSecurityObject(const IpSecurity& security) {
  return std::make_shared<IpSecurityObject>(security);
}

}  // namespace platform::metabase
