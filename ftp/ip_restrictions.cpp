// Source: the metabase property IPSecurity with the members GrantByDefault, IPGrant and IPDeny of its ADSI
// object.

#include "ftp/ip_restrictions.h"

namespace TORVINFTPAppDataCom {
namespace {

constexpr TextView kSingleComputer = u"255.255.255.255";

// An entry: the address alone for a single computer, else with its subnet mask. Stays: the address is not
// trimmed.
Text EntryText(TextView strAddress, TextView strMask) {
  const TextView strTrimmed = trimBlanks(strMask);
  if (strTrimmed == kSingleComputer) return Text(strAddress);
  return concat({strAddress, u" ("sv, strTrimmed, u")"sv});
}

}  // namespace

void WalkIPRestrictions(const Guard& guard, const ObjectRef& objIPSecurity, const ObjectRef& objRs,
                        const RowIdentity& identity) {
  std::int16_t intGrantByDefault = 0;
  Variant aList;
  Text strEntry;
  TextView strAddress;
  TextView strMask;

  guard.step([&] { intGrantByDefault = toInt16(read(objIPSecurity, u"GrantByDefault"sv)); });
  // Stays: an unreadable value counts as denied.
  const bool bGranted = intGrantByDefault != 0;
  const TextView strAccess = bGranted ? u"Granted"sv : u"Denied"sv;
  const TextView strList = bGranted ? u"IPDeny"sv : u"IPGrant"sv;
  const TextView strColumn =
      bGranted ? u"Denied IP Address (Subnet mask)"sv : u"Granted IP Address (Subnet mask)"sv;

  guard.step([&] { WriteText(objRs, u"All computer access"sv, strAccess); });

  // Without the list there are no bounds to iterate between.
  if (!guard.step([&] { aList = read(objIPSecurity, strList); })) return;
  guard.forEachIndex(aList, [&](std::int32_t intIndex) {
    strAddress = {};
    strMask = {};
    if (intIndex > 0) {
      guard.step([&] { call(objRs, u"AddNew"sv); });
      WriteIdentity(guard, objRs, identity);
      guard.step([&] { WriteText(objRs, u"All computer access"sv, strAccess); });
    }
    guard.step([&] { strEntry = toText(element(aList, intIndex)); });
    guard.step([&] { strAddress = PieceOf(strEntry, u',', 0); });
    guard.step([&] { strMask = PieceOf(strEntry, u',', 1); });
    guard.step([&] { WriteColumn(objRs, strColumn, EntryText(strAddress, strMask)); });
  });
}

}  // namespace TORVINFTPAppDataCom
