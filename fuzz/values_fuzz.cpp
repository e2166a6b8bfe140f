// The parsers of single values. The first byte selects one: flags, a multi-valued text, numbers, IP
// restrictions.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "automation/text.h"
#include "automation/variant.h"
#include "platform/metabase/ip_security.h"
#include "platform/metabase/schema.h"
#include "platform/metabase/values.h"

namespace {

using namespace platform::metabase;

constexpr Flag kFlags[] = {{"AccessRead", 1}, {"AccessWrite", 2}, {"AccessScript", 512}};

// Flags: the bits of the names, or an invalid name that is part of the text.
void tryFlags(std::string_view text) {
  std::optional<std::string_view> invalidPiece;
  parseFlags(text, kFlags, invalidPiece);
  if (invalidPiece && text.find(*invalidPiece) == std::string_view::npos) std::abort();
}

// Values are not empty and contain no line end.
void tryMultiString(std::string_view text) {
  const automation::Variant value = parseMultiString(text);
  for (std::int32_t index = automation::lowerBound(value); index <= automation::upperBound(value); ++index) {
    const automation::Text line = automation::toText(automation::element(value, index));
    if (line.empty() || line.find(u'\n') != automation::Text::npos) std::abort();
  }
}

// An entry is an address and a mask.
void tryIpSecurity(std::string_view text) {
  IpSecurityProblem problem;
  const auto security = parseIpSecurity(text, problem);
  if (security.has_value() != problem.why.empty()) std::abort();
  if (!security) return;
  for (const std::string& entry : security->grants) {
    if (entry.find(',') == std::string::npos) std::abort();
  }
  for (const std::string& entry : security->denials) {
    if (entry.find(',') == std::string::npos) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 4) {
    case 0:
      tryFlags(text);
      break;
    case 1:
      tryMultiString(text);
      break;
    case 2:
      parseBool(text);
      parseDword(text);
      automation::toUtf8(automation::fromUtf8(text));
      break;
    default:
      tryIpSecurity(text);
      break;
  }
  return 0;
}
