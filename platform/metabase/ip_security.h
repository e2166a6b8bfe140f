// The IPSecurity property of a node, in binary form or in the readable form that this program defines.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "automation/object.h"

namespace platform::metabase {

// IP restrictions; by default access is granted. A list entry is "address, mask" as spelled in the file.
struct IpSecurity {
  bool grantByDefault = true;
  std::vector<std::string> grants;
  std::vector<std::string> denials;
};

// Why a value cannot be read, and the number of the failure.
struct IpSecurityProblem {
  std::int32_t failureNumber = 0;
  std::string why;
};

// Parses the text of an IPSecurity property: empty; hexadecimal digits of the binary form; or lines, the
// first one "GrantByDefault=TRUE" or "GrantByDefault=FALSE", the others "IPGrant=address, mask" or
// "IPDeny=address, mask". Returns nullopt and sets `problem` for anything else, because access rights must
// not be guessed.
std::optional<IpSecurity> parseIpSecurity(std::string_view text, IpSecurityProblem& problem);

// Decodes the binary form. The vendor does not document the layout. It is known from published scripts of
// administrators that build such values for RelayIpList, a property of the same type, or distinguish those of
// an FTP service. All numbers are 32-bit little-endian; an offset counts from the start of the value and has
// the top bit set:
//
//     0    the offsets of four lists: denied addresses, granted addresses, denied names, granted names
//     16   an undocumented number
//     20   where the lists end and the elements begin, without the top bit
//     24   the four lists: the number of groups, that of the addresses in them all, and the groups
//
// A group has 20 bytes: 2 for IPv4; the number of elements, which are one mask and its addresses; 4, the size
// of an element; 0; the offset of the elements. The elements, in network byte order, are in the order of the
// groups and fill the rest of the value. A list of denials implies that access is granted by default, a list
// of grants that it is denied. A value that is inconsistent, has both lists or neither, or has names is
// rejected.
std::optional<IpSecurity> decodeIpSecurity(std::string_view bytes, IpSecurityProblem& problem);

// Creates the automation object, with the members GrantByDefault, IPGrant, IPDeny, DomainGrant and DomainDeny
// of "IIsIPSecurity (ADSI)". The lists of domains are always empty.
automation::ObjectRef makeIpSecurityObject(const IpSecurity& security);

}  // namespace platform::metabase
