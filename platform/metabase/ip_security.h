// Who may reach a node: the IPSecurity property, binary or in the readable form that a snapshot may hold.
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

// Reads the text of an IPSecurity property: nothing at all; hexadecimal digits, which are the binary form; or
// lines of which the first is "GrantByDefault=TRUE" or "GrantByDefault=FALSE" and every further one
// "IPGrant=address, mask" or "IPDeny=address, mask". Gives nothing, and says why in `problem`, where the
// value is anything else: nothing is guessed about who may come in.
std::optional<IpSecurity> parseIpSecurity(std::string_view text, IpSecurityProblem& problem);

// Reads the bytes of the binary form. The vendor publishes no layout; administrators' scripts do, which put
// such values together for the mail service's RelayIpList, a property of the same type, or tell those of an
// FTP service apart. All numbers have 32 bits, little-endian; an offset counts from the value's start and has
// the top bit set:
//
//     0    the offsets of four lists: denied addresses, granted addresses, denied names, granted names
//     16   a number without a published meaning
//     20   where the lists end and the elements begin, without the top bit
//     24   the four lists: the number of groups, that of the addresses in them all, and the groups
//
// A group has 20 bytes: 2, for IPv4; the number of elements, which is one mask and its addresses; 4, their
// size; 0; the offset of the elements. The elements, in network order, stand in the order of the groups and
// fill the value. A filled list of denials grants by default and one of grants denies by default. What isn't
// whole and consistent, both lists filled, none, and names are refused.
std::optional<IpSecurity> decodeIpSecurity(std::string_view bytes, IpSecurityProblem& problem);

// The object that a reader of IPSecurity gets, with the members GrantByDefault, IPGrant, IPDeny, DomainGrant
// and DomainDeny of "IIsIPSecurity (ADSI)". The lists of domains never have an element.
automation::ObjectRef makeIpSecurityObject(IpSecurity security);

}  // namespace platform::metabase
