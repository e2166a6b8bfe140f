// Who may reach a node: the IPSecurity property in the readable form that a snapshot may hold.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "automation/object.h"

namespace platform::metabase {

// Granted to all where nothing is set. An entry of a list is an address, a comma and a mask, as the file
// writes it.
struct IpSecurity {
  bool grantByDefault = true;
  std::vector<std::string> grants;
  std::vector<std::string> denials;
};

// Why a value can't be read, and the number to fail with.
struct IpSecurityProblem {
  std::int32_t failureNumber = 0;
  std::string why;
};

// Reads the text of an IPSecurity property: nothing at all, or lines of which the first is
// "GrantByDefault=TRUE" or "GrantByDefault=FALSE" and every further one "IPGrant=address, mask" or
// "IPDeny=address, mask". Gives nothing, and says why in `problem`, where the value is binary, whose layout
// nobody publishes, and where a line is anything else: nothing is guessed about who may come in.
std::optional<IpSecurity> parseIpSecurity(std::string_view text, IpSecurityProblem& problem);

// The object that a reader of IPSecurity gets, with the members GrantByDefault, IPGrant, IPDeny, DomainGrant
// and DomainDeny of "IIsIPSecurity (ADSI)". The lists of domains never have an element: the readable form
// has no domains.
automation::ObjectRef makeIpSecurityObject(IpSecurity security);

}  // namespace platform::metabase
