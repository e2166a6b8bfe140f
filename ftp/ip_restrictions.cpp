// Source: the metabase property IPSecurity with the members GrantByDefault, IPGrant and IPDeny of its ADSI
// object.

#include "ftp/ip_restrictions.h"

#include "frame/mFTPAppPoolSupport.h"
#include "frame/row.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

namespace {

// An entry: the address alone for a single computer, else with its subnet mask.
Text EntryText(const Text& strAddress, const Text& strMask) {
  const Text strTrimmed = TrimText(strMask);
  return strTrimmed == u"255.255.255.255" ? strAddress : strAddress + u" (" + strTrimmed + u")";
}

}  // namespace

void WalkIPRestrictions(const ContinueOnFailure& guard, const ObjectRef& objIPSecurity,
                        const ObjectRef& objRs, const std::function<void()>& writeIdentity) {
  std::int16_t intGrantByDefault = 0;
  Variant aList;
  std::vector<Text> aPieces;
  Text strAddress;
  Text strMask;

  guard.step([&] { intGrantByDefault = toInt16(read(objIPSecurity, u"GrantByDefault")); });
  const bool bGranted = intGrantByDefault != 0;
  const Text strAccess = bGranted ? u"Granted" : u"Denied";
  const TextView strList = bGranted ? u"IPDeny" : u"IPGrant";
  const TextView strColumn =
      bGranted ? u"Denied IP Address (Subnet mask)" : u"Granted IP Address (Subnet mask)";

  guard.step([&] { WriteColumn(objRs, u"All computer access", NullToEmpty(strAccess)); });

  // Without the list there are no bounds to walk between.
  if (!guard.step([&] { aList = read(objIPSecurity, strList); })) return;
  guard.forEachIndex(aList, [&](std::int32_t intIndex) {
    strAddress.clear();
    strMask.clear();
    if (intIndex > 0) {
      guard.step([&] { call(objRs, u"AddNew"); });
      writeIdentity();
      guard.step([&] { WriteColumn(objRs, u"All computer access", NullToEmpty(strAccess)); });
    }
    guard.step([&] { aPieces = Split(toText(element(aList, intIndex)), u','); });
    guard.step([&] { strAddress = PieceOf(aPieces, 0); });
    guard.step([&] { strMask = PieceOf(aPieces, 1); });
    guard.step([&] { WriteColumn(objRs, strColumn, NullToEmpty(EntryText(strAddress, strMask))); });
  });
}

}  // namespace TORVINFTPAppDataCom
