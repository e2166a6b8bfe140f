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

bool isHexadecimal(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char unit) {
    return (unit >= '0' && unit <= '9') || (unit >= 'a' && unit <= 'f') || (unit >= 'A' && unit <= 'F') ||
           unit == ' ' || unit == '\t' || unit == '\r' || unit == '\n';
  });
}

// Four numbers from 0 to 255 with dots between them.
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
    fail(number::kReadOnly, "A metabase snapshot cannot be changed: " + automation::toUtf8(member));
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
  if (isHexadecimal(text)) {
    problem = {number::kBinaryIpSecurity,
               "the value is binary, in a layout that is not published, so who may come in cannot be told"};
    return std::nullopt;
  }
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
        expected = "GrantByDefault=TRUE or GrantByDefault=FALSE, which the first line must have";
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
                 "the line " + inQuotes(line) + " of the value is not of the form " + expected};
    }
  });
  if (!problem.why.empty()) return std::nullopt;
  return security;
}

automation::ObjectRef makeIpSecurityObject(IpSecurity security) {
  return std::make_shared<IpSecurityObject>(std::move(security));
}

}  // namespace platform::metabase
