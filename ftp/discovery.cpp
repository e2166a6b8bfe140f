// Which FTP sites there are: GetFTPSitesCount, GenerateFTPSiteInfo, GenerateFTPVirDirInfo.

#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"
#include "frame/row.h"
#include "ftp/FTPCollection.h"

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
    objService = nullptr;
  }
  // The service's Info entry is no site.
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

  guard.step([&] { SetStatusBarMessage(u"Loading FTP Sites from " + QuoteForSql(strServerName)); });

  if (guard.test([&] { return OpenConnection(objCn, strDBName, u"FTPSiteInfo") == False; })) {
    guard.step([&] {
      WriteToLog(CurrentError().number, u"Connection failure", u"TORVINFTPAppDataCom",
                 u"GenerateFTPSiteInfo");
    });
    objCn = nullptr;
    return 0;
  }
  if (guard.test([&] {
        return OpenRecordset(
                   objRs, u"Select * from tblFTPSiteInfo where [Server name] = " + QuoteForSql(strServerName),
                   objCn, kDynamic, kPessimistic, kClientSide) == False;
      })) {
    guard.step([&] {
      WriteToLog(CurrentError().number, u"Recordset failure", u"TORVINFTPAppDataCom", u"GenerateFTPSiteInfo");
    });
    objCn = nullptr;
    objRs = nullptr;
    return 0;
  }

  if (guard.test([&] { return automation::toBool(read(objRs, u"EOF")); })) {
    guard.step([&] { objService = GetObject(u"IIS://" + strServerName + u"/MSFTPSVC"); });
    if (objService != nullptr) {
      guard.forEach(objService, [&](const ObjectRef& objChild) {
        guard.step([&] { strName = toText(read(objChild, u"Name")); });
        if (equalsIgnoringCase(strName, u"Info")) return;
        guard.step([&] { call(objRs, u"AddNew"); });
        guard.step([&] { vComment = read(objChild, u"servercomment"); });
        guard.step([&] { strSiteName = vComment.isNull() ? Text(u"Value not set") : toText(vComment); });
        guard.step([&] { WriteColumn(objRs, u"Server name", NullToEmpty(Trim(strServerName))); });
        guard.step([&] { WriteColumn(objRs, u"FTP site name", NullToEmpty(Trim(strSiteName))); });
        guard.step([&] { WriteColumn(objRs, u"Identifier", NullToEmpty(Trim(strName))); });
        guard.step([&] { call(objRs, u"Update"); });
      });
    }
  }

  guard.step([&] { intCount = toInt16(read(objRs, u"Recordcount")); });
  guard.step([&] { CloseRecordset(objRs, True); });
  guard.step([&] { CloseConnection(objCn); });
  objService = nullptr;
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
    objParent = nullptr;
    intResult = intCount;
  }
  return intResult;
}

}  // namespace TORVINFTPAppDataCom
