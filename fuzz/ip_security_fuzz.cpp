// A binary IPSecurity value: it is refused with a reason, or decodes to restrictions that, encoded again,
// decode to the same ones in as many bytes or fewer.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "fuzz/ip_security_encoder.h"
#include "platform/metabase/ip_security.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace platform::metabase;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  IpSecurityProblem problem;
  const auto security = decodeIpSecurity(bytes, problem);
  if (security.has_value() != problem.why.empty()) std::abort();
  if (!security) return 0;
  if (security->grantByDefault != security->grants.empty()) std::abort();
  if (security->grantByDefault == security->denials.empty()) std::abort();
  const std::string again = test::encodeIpSecurity(security->denials, security->grants);
  const auto same = decodeIpSecurity(again, problem);
  if (!same || same->grants != security->grants || same->denials != security->denials) std::abort();
  if (again.size() > size) std::abort();
  return 0;
}
