// Discovery of FTP sites: GetFTPSitesCount, GenerateFTPSiteInfo, GenerateFTPVirDirInfo.

#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"
#include "frame/row.h"
#include "ftp/FTPCollection.h"
#include "ftp/site_identity.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

std::int16_t FTPCollection::GetFTPSitesCount(Text& strIISServerName) {
  std::int16_t intCount = 0;
  ObjectRef objService;
  const ContinueOnFailure guard([&](const ErrorState& objErr) {
    WriteToLog(objErr.number, objErr.description, u"FTPCollection", u"GetFTPSitesCount");
  });

  ClearError();
  guard.step([&] { objService = GetObject(u"IIS://" + strIISServerName + u"/MSFTPSVC"); });
  if (objService != nullptr) {
    guard.forEach(objService,
                  [&](const ObjectRef&) { guard.step([&] { intCount = progress::AddOne(intCount); }); });
  }
  // Stays: subtracts one for the service's Info node, also if there is none.
  return static_cast<std::int16_t>(intCount - 1);
}

std::int16_t FTPCollection::GenerateFTPSiteInfo(const Text& strServerName, const Text& strDBName) {
  std::int16_t intCount = 0;
  ObjectRef objCn;
  ObjectRef objRs;
  ObjectRef objService;
  Text strName;
  Variant vComment;
  Text strSiteName;
  const ContinueOnFailure guard([&](const ErrorState& objErr) {
    WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom",
               u"GenerateFTPSiteInfo(" + QuoteForSql(strServerName) + u", " + QuoteForSql(strDBName) + u")");
  });

  guard.step([&] { SetStatusBarMessage(progress::StatusText(u"Loading FTP Sites from"sv, strServerName)); });

  if (!guard.opened([&] { return OpenConnection(objCn, strDBName, u"FTPSiteInfo"sv); })) {
    guard.step([&] {
      WriteToLog(CurrentError().number, u"Connection failure", u"TORVINFTPAppDataCom",
                 u"GenerateFTPSiteInfo");
    });
    return 0;
  }
  if (!guard.opened([&] {
        return OpenRecordset(
            objRs, u"Select * from tblFTPSiteInfo where [Server name] = " + QuoteForSql(strServerName), objCn,
            kDynamic, kPessimistic, kClientSide);
      })) {
    guard.step([&] {
      WriteToLog(CurrentError().number, u"Recordset failure", u"TORVINFTPAppDataCom", u"GenerateFTPSiteInfo");
    });
    // Stays: releases the connection without a Close.
    return 0;
  }

  // Stays: a list that contains a row of this server is not updated.
  if (guard.test([&] { return automation::toBool(read(objRs, u"EOF"sv)); })) {
    guard.step([&] { objService = GetObject(u"IIS://" + strServerName + u"/MSFTPSVC"); });
    if (objService != nullptr) {
      guard.forEach(objService, [&](const ObjectRef& objChild) {
        guard.step([&] { strName = toText(read(objChild, u"Name"sv)); });
        if (IsInfoNode(strName)) return;
        guard.step([&] { call(objRs, u"AddNew"sv); });
        // Stays: two steps, unlike in the tabs. If the read fails, the name is derived from the comment of
        // the previous child.
        guard.step([&] { vComment = read(objChild, u"servercomment"sv); });
        guard.step([&] { strSiteName = vComment.isNull() ? Text(kNoSiteName) : toText(vComment); });
        guard.step([&] { WriteText(objRs, u"Server name"sv, strServerName); });
        guard.step([&] { WriteText(objRs, u"FTP site name"sv, strSiteName); });
        guard.step([&] { WriteText(objRs, u"Identifier"sv, strName); });
        guard.step([&] { call(objRs, u"Update"sv); });
      });
    }
  }

  guard.step([&] { intCount = toInt16(read(objRs, u"Recordcount"sv)); });
  guard.step([&] { CloseRecordset(objRs, True); });
  guard.step([&] { CloseConnection(objCn); });
  return intCount;
}

std::int16_t FTPCollection::GenerateFTPVirDirInfo(const Text& strBindingPath) {
  std::int16_t intResult = 0;
  std::int16_t intCount = 0;
  ObjectRef objParent;
  const ContinueOnFailure guard([&](const ErrorState& objErr) {
    WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom", u"GenerateFTPVirDirInfo");
  });

  guard.step([&] { objParent = GetObject(strBindingPath); });
  if (objParent != nullptr) {
    guard.forEach(objParent,
                  [&](const ObjectRef&) { guard.step([&] { intCount = progress::AddOne(intCount); }); });
    intResult = intCount;
  }
  return intResult;
}

}  // namespace TORVINFTPAppDataCom
