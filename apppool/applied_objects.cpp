// The web sites and virtual directories that an application pool serves.
//
// Sources: the WMI class IIsApplicationPool in the namespace microsoftiisv2, its property Name and its method
// EnumAppsInPool, for the list only; for each application the metabase: ServerComment, ServerBindings, the
// ADSI property Status and the children's Path of a site, Name and Path of a directory.

#include "apppool/AppPoolCollection.h"
#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"
#include "frame/row.h"
#include "frame/state_word.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

namespace {

// WMI prefixes the name of a pool with W3SVC/APPPOOLS/.
constexpr std::size_t kPoolPrefixLength = 15;

// The text from a position on; empty beyond the end.
TextView TextFrom(TextView strText, std::size_t lngStart) {
  return lngStart < strText.size() ? strText.substr(lngStart) : TextView();
}

}  // namespace

void AppPoolCollection::EnumAppsInPool(const Text& strServerName, const Text& strDBName,
                                       const Text& strSelectedNode) {
  ObjectRef objService;
  ObjectRef objPools;
  Text strName;
  Variant aApplications;
  bool bFound = false;
  std::int16_t intTotal = 0;
  std::int16_t intDone = 0;
  const ContinueOnFailure guard([&](const ErrorState& objErr) {
    WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom", u"EnumAppsInPool");
  });

  guard.step([&] { progress::ShowHourglass(); });
  guard.step(
      [&] { SetStatusBarMessage(progress::StatusText(u"Loading Applied objects from"sv, strServerName)); });
  guard.step([&] {
    objService = GetObject(u"winmgmts:{authenticationLevel=pktPrivacy}\\\\" + strServerName +
                           u"\\root\\microsoftiisv2");
  });
  guard.step([&] {
    objPools = toObject(call(objService, u"ExecQuery"sv, u"Select Name From IIsApplicationPool"sv));
  });
  if (objPools != nullptr) {
    guard.forEachUntil(objPools, [&](const ObjectRef& objPool) {
      guard.step([&] { strName = TextFrom(toText(read(objPool, u"Name"sv)), kPoolPrefixLength); });
      if (!equalsIgnoringCase(strName, strSelectedNode)) return false;
      guard.step([&] { callByReference(objPool, u"EnumAppsInPool"sv, aApplications); });
      bFound = true;
      return true;
    });
  }

  if (bFound) {
    guard.step([&] { intTotal = narrowToInt16(upperBound(aApplications) + 1); });
    guard.step([&] { SetProcessCountMessage(progress::CountText(intDone, intTotal)); });
    if (guard.test([&] { return !toText(element(aApplications, 0)).empty(); })) {
      guard.step([&] { SetProgressBarMax(intTotal); });
    }
    guard.forEachIndex(aApplications, [&](std::int32_t intIndex) {
      if (!guard.test([&] { return !toText(element(aApplications, intIndex)).empty(); })) return;
      guard.step([&] {
        GetAppliedObjectProperties(strServerName, strDBName, toText(element(aApplications, intIndex)),
                                   strSelectedNode);
      });
      guard.step([&] { IncrementProgressBar(); });
      guard.step([&] { intDone = progress::AddOne(intDone); });
      guard.step([&] { SetProcessCountMessage(progress::CountText(intDone, intTotal)); });
    });
  }

  objPools = nullptr;
  objService = nullptr;
  guard.step([&] { progress::ShowDefaultPointer(); });
}

void AppPoolCollection::GetAppliedObjectProperties(const Text& strServerName, const Text& strDBName,
                                                   const Text& strAppPath, const Text& strPoolName) {
  ObjectRef objCn;
  ObjectRef objRs;
  ObjectRef objObject;
  Text strObjectName;
  Text strPath;
  const ContinueOnFailure guard([&](const ErrorState& objErr) {
    WriteToLog(objErr.number, objErr.description, objErr.source, u"GetAppliedObjectProperties");
  });

  if (!guard.opened([&] { return OpenConnection(objCn, strDBName, u""sv); })) return;
  if (guard.opened([&] {
        return OpenRecordset(objRs, u"Select * from tblAppliedObject where 1=2"sv, objCn, kForwardOnly,
                             kOptimistic, kServerSide);
      })) {
    // /LM and the trailing slash are removed; the rest starts with a slash, so its first piece is empty.
    const TextView strObjectPath = TextFrom(TextView(strAppPath).substr(0, strAppPath.size() - 1), 3);
    const bool bWebSite = CountPieces(strObjectPath, u'/') == 4;
    if (bWebSite) {
      Variant aBindings;
      Text strBinding;
      TextView strIP;
      TextView strPort;
      Text strState;
      guard.step([&] {
        objObject = GetObject(concat({u"IIS://"sv, strServerName, u"/"sv, PieceOf(strObjectPath, u'/', 1),
                                      u"/"sv, PieceOf(strObjectPath, u'/', 2)}));
      });
      // Stays: no replacement name for a site without a comment, which is a failure here.
      guard.step([&] { strObjectName = toText(read(objObject, u"servercomment"sv)); });
      guard.step([&] { SetStatusBarMessage(progress::StatusText(u"Processing"sv, strObjectName)); });
      // Stays: the last binding counts. Without the list there are no bounds to iterate between.
      if (guard.step([&] { aBindings = read(objObject, u"ServerBindings"sv); })) {
        guard.forEachIndex(aBindings, [&](std::int32_t intIndex) {
          guard.step([&] { strBinding = toText(element(aBindings, intIndex)); });
        });
      }
      guard.step([&] { strIP = PieceOf(strBinding, u':', 0); });
      guard.step([&] { strPort = PieceOf(strBinding, u':', 1); });
      if (strIP.empty()) strIP = u"(All Unassigned)";
      guard.step([&] { strState = StateWord(toText(read(objObject, u"Status"sv))); });
      // Stays: the last child that has a path counts.
      guard.forEach(objObject, [&](const ObjectRef& objChild) {
        guard.step([&] { strPath = toText(read(objChild, u"Path"sv)); });
      });

      guard.step([&] { call(objRs, u"AddNew"sv); });
      guard.step([&] { WriteText(objRs, u"Server name"sv, strServerName); });
      guard.step([&] { WriteText(objRs, u"Application pool name"sv, strPoolName); });
      guard.step([&] { WriteText(objRs, u"Object name"sv, strObjectName); });
      guard.step([&] { WriteText(objRs, u"Object type"sv, u"Web site"sv); });
      guard.step([&] { WriteText(objRs, u"IP address"sv, strIP); });
      guard.step([&] { WriteText(objRs, u"TCP port"sv, strPort); });
      guard.step([&] { WriteText(objRs, u"State"sv, strState); });
      guard.step([&] { WriteText(objRs, u"Local path"sv, strPath); });
    } else {
      guard.step([&] { objObject = GetObject(concat({u"IIS://"sv, strServerName, strObjectPath})); });
      guard.step([&] { strObjectName = toText(read(objObject, u"Name"sv)); });
      guard.step([&] { SetStatusBarMessage(progress::StatusText(u"Processing"sv, strObjectName)); });
      guard.step([&] { strPath = toText(read(objObject, u"Path"sv)); });

      guard.step([&] { call(objRs, u"AddNew"sv); });
      guard.step([&] { WriteText(objRs, u"Server name"sv, strServerName); });
      guard.step([&] { WriteText(objRs, u"Application pool name"sv, strPoolName); });
      guard.step([&] { WriteText(objRs, u"Object name"sv, strObjectName); });
      guard.step([&] { WriteText(objRs, u"Object type"sv, u"Virtual directory"sv); });
      guard.step([&] { WriteText(objRs, u"Local path"sv, strPath); });
    }
    guard.step([&] { call(objRs, u"Update"sv); });
    guard.step([&] { CloseRecordset(objRs, True); });
  }
  guard.step([&] { CloseConnection(objCn); });
}

}  // namespace TORVINFTPAppDataCom
