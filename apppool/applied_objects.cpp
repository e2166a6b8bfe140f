// The web sites and virtual directories that an application pool serves.
//
// Sources: the WMI class IIsApplicationPool in the namespace microsoftiisv2, its property Name and its method
// EnumAppsInPool, for the list alone; for each application the metabase: ServerComment, ServerBindings, the
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

// WMI puts W3SVC/APPPOOLS/ before the name of a pool.
constexpr std::size_t kPoolPrefixLength = 15;

// The text from one position on; empty where there is nothing left.
Text TextFrom(const Text& strText, std::size_t lngStart) {
  return lngStart < strText.size() ? strText.substr(lngStart) : Text();
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

  guard.step([&] { write(Screen(), u"MousePointer", kPointerHourglass); });
  guard.step([&] { SetStatusBarMessage(u"Loading Applied objects from " + QuoteForSql(strServerName)); });
  guard.step([&] {
    objService = GetObject(u"winmgmts:{authenticationLevel=pktPrivacy}\\\\" + strServerName +
                           u"\\root\\microsoftiisv2");
  });
  guard.step(
      [&] { objPools = toObject(call(objService, u"ExecQuery", u"Select Name From IIsApplicationPool")); });
  if (objPools != nullptr) {
    guard.forEachUntil(objPools, [&](const ObjectRef& objPool) {
      guard.step([&] { strName = TextFrom(toText(read(objPool, u"Name")), kPoolPrefixLength); });
      if (upperCase(strName) != upperCase(strSelectedNode)) return false;
      guard.step([&] { callByReference(objPool, u"EnumAppsInPool", aApplications); });
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
  guard.step([&] { write(Screen(), u"MousePointer", kPointerDefault); });
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

  if (guard.test([&] { return OpenConnection(objCn, strDBName, u"") == False; })) return;
  if (!guard.test([&] {
        return OpenRecordset(objRs, u"Select * from tblAppliedObject where 1=2", objCn, kForwardOnly,
                             kOptimistic, kServerSide) == False;
      })) {
    // /LM and the closing slash go; what is left begins with a slash, so its first piece is empty.
    const Text strObjectPath = TextFrom(strAppPath.substr(0, strAppPath.size() - 1), 3);
    const std::vector<Text> aPieces = Split(strObjectPath, u'/');
    const bool bWebSite = aPieces.size() == 4;
    if (bWebSite) {
      Variant aBindings;
      Text strBinding;
      Text strIP;
      Text strPort;
      Text strState;
      guard.step(
          [&] { objObject = GetObject(u"IIS://" + strServerName + u"/" + aPieces[1] + u"/" + aPieces[2]); });
      guard.step([&] { strObjectName = toText(read(objObject, u"servercomment")); });
      guard.step([&] { SetStatusBarMessage(u"Processing " + QuoteForSql(strObjectName)); });
      // The last binding counts. Without the list there are no bounds to walk between.
      if (guard.step([&] { aBindings = read(objObject, u"ServerBindings"); })) {
        guard.forEachIndex(aBindings, [&](std::int32_t intIndex) {
          guard.step([&] { strBinding = toText(element(aBindings, intIndex)); });
        });
      }
      const std::vector<Text> aBinding = Split(strBinding, u':');
      guard.step([&] { strIP = PieceOf(aBinding, 0); });
      guard.step([&] { strPort = PieceOf(aBinding, 1); });
      if (strIP.empty()) strIP = u"(All Unassigned)";
      guard.step([&] { strState = StateWord(toText(read(objObject, u"Status"))); });
      // The last child that has a path counts.
      guard.forEach(objObject, [&](const ObjectRef& objChild) {
        guard.step([&] { strPath = toText(read(objChild, u"Path")); });
      });

      guard.step([&] { call(objRs, u"AddNew"); });
      guard.step([&] { WriteColumn(objRs, u"Server name", Trim(strServerName)); });
      guard.step([&] { WriteColumn(objRs, u"Application pool name", Trim(strPoolName)); });
      guard.step([&] { WriteColumn(objRs, u"Object name", Trim(strObjectName)); });
      guard.step([&] { WriteColumn(objRs, u"Object type", u"Web site"); });
      guard.step([&] { WriteColumn(objRs, u"IP address", Trim(strIP)); });
      guard.step([&] { WriteColumn(objRs, u"TCP port", Trim(strPort)); });
      guard.step([&] { WriteColumn(objRs, u"State", Trim(strState)); });
      guard.step([&] { WriteColumn(objRs, u"Local path", Trim(strPath)); });
    } else {
      guard.step([&] { objObject = GetObject(u"IIS://" + strServerName + strObjectPath); });
      guard.step([&] { strObjectName = toText(read(objObject, u"Name")); });
      guard.step([&] { SetStatusBarMessage(u"Processing " + QuoteForSql(strObjectName)); });
      guard.step([&] { strPath = toText(read(objObject, u"Path")); });

      guard.step([&] { call(objRs, u"AddNew"); });
      guard.step([&] { WriteColumn(objRs, u"Server name", Trim(strServerName)); });
      guard.step([&] { WriteColumn(objRs, u"Application pool name", Trim(strPoolName)); });
      guard.step([&] { WriteColumn(objRs, u"Object name", Trim(strObjectName)); });
      guard.step([&] { WriteColumn(objRs, u"Object type", u"Virtual directory"); });
      guard.step([&] { WriteColumn(objRs, u"Local path", Trim(strPath)); });
    }
    guard.step([&] { call(objRs, u"Update"); });
    guard.step([&] { CloseRecordset(objRs, True); });
  }
  guard.step([&] { CloseConnection(objCn); });
  objObject = nullptr;
  objRs = nullptr;
}

}  // namespace TORVINFTPAppDataCom
