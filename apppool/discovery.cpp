// Discovery of application pools: GetAppPoolsCount, GetTotalAppPools.

#include "apppool/AppPoolCollection.h"
#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"
#include "frame/row.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

std::int16_t AppPoolCollection::GetTotalAppPools(Text& strIISServerName) {
  std::int16_t intCount = 0;
  ObjectRef objPools;
  const ContinueOnFailure guard([&](const ErrorState& objErr) {
    WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom", u"GetTotalAppPools");
  });

  ClearError();
  guard.step([&] { objPools = GetObject(u"IIS://" + strIISServerName + u"/W3SVC/apppools"); });
  if (objPools != nullptr) {
    guard.forEach(objPools,
                  [&](const ObjectRef&) { guard.step([&] { intCount = progress::AddOne(intCount); }); });
  }
  return intCount;
}

std::int16_t AppPoolCollection::GetAppPoolsCount(const Text& strIISServerName, const Text& strDBName) {
  std::int16_t intCount = 0;
  ObjectRef objCn;
  ObjectRef objRs;
  ObjectRef objPools;
  const ContinueOnFailure guard([&](const ErrorState& objErr) {
    WriteToLog(objErr.number, objErr.description, u"AppPoolCollection", u"GetAppPoolsCount");
  });

  guard.step([&] {
    SetStatusBarMessage(progress::StatusText(u"Loading Application Pools from"sv, strIISServerName));
  });

  if (!guard.opened([&] { return OpenConnection(objCn, strDBName, u""sv); })) {
    guard.step([&] {
      WriteToLog(CurrentError().number, u"Connection failure", u"TORVINFTPAppDataCom", u"GetAppPoolsCount");
    });
    return 0;
  }
  if (!guard.opened([&] {
        return OpenRecordset(
            objRs, u"Select * from tblAppPoolInfo where [Server name] = " + QuoteForSql(strIISServerName),
            objCn, kDynamic, kPessimistic, kClientSide);
      })) {
    guard.step([&] {
      WriteToLog(CurrentError().number, u"Recordset failure", u"TORVINFTPAppDataCom", u"GetAppPoolsCount");
    });
    // Stays: releases the connection without a Close.
    return 0;
  }

  // Stays: a list that contains a row of this server is not updated.
  if (guard.test([&] { return automation::toBool(read(objRs, u"EOF"sv)); })) {
    guard.step([&] { objPools = GetObject(u"IIS://" + strIISServerName + u"/W3SVC/apppools"); });
    if (objPools != nullptr) {
      guard.forEach(objPools, [&](const ObjectRef& objChild) {
        mstrAppPoolName.clear();
        guard.step([&] { mstrAppPoolName = toText(read(objChild, u"Name"sv)); });
        guard.step([&] { call(objRs, u"AddNew"sv); });
        guard.step([&] { WriteText(objRs, u"Server name"sv, strIISServerName); });
        guard.step([&] { WriteText(objRs, u"Application pool name"sv, mstrAppPoolName); });
        guard.step([&] { call(objRs, u"Update"sv); });
      });
    }
  }

  guard.step([&] { intCount = toInt16(read(objRs, u"Recordcount"sv)); });
  guard.step([&] { CloseRecordset(objRs, True); });
  guard.step([&] { CloseConnection(objCn); });
  return intCount;
}

}  // namespace TORVINFTPAppDataCom
