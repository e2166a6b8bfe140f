// The tab "Directory Security" of an FTP site: its IP restrictions.

#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"
#include "ftp/FTPCollection.h"
#include "ftp/ip_restrictions.h"
#include "ftp/site_identity.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

VariantBool FTPCollection::GetDirectorySecurityProperties(const Text& strServerName, ObjectRef& objObject,
                                                          ObjectRef&, ObjectRef& objRs) {
  VariantBool bResult = False;
  LeaveOnFailure(
      [&] {
        ClearError();
        const Text strId = toText(read(objObject, u"Name"sv));
        if (IsInfoNode(strId)) return;
        const Text strSiteName = ReadSiteName(objObject);
        SetStatusBarMessage(progress::StatusText(u"Processing"sv, strSiteName));

        GetRestrictedIPAddress(strServerName, strSiteName, strId, objRs);
        call(objRs, u"Update"sv);
        bResult = True;
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom",
                   u"GetDirectorySecurityProperties");
      });
  return bResult;
}

void FTPCollection::GetRestrictedIPAddress(const Text& strServerName, const Text& strSiteName,
                                           const Text& strId, ObjectRef objRs) {
  ObjectRef objRoot;
  ObjectRef objIPSecurity;
  const ContinueOnFailure guard([&](const ErrorState& objErr) {
    WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom", u"GetRestrictedIPAddress");
  });
  const RowIdentity identity = {
      {{u"Server name"sv, strServerName}, {u"FTP site name"sv, strSiteName}, {u"Identifier"sv, strId}}};

  guard.step([&] { call(objRs, u"AddNew"sv); });
  WriteIdentity(guard, objRs, identity);
  guard.step([&] {
    objRoot = GetObject(concat({u"IIS://"sv, strServerName, u"/MSFTPSVC/"sv, strId, u"/Root"sv}));
  });
  if (objRoot == nullptr) return;
  guard.step([&] { objIPSecurity = toObject(call(objRoot, u"GetEx"sv, u"IPSecurity"sv)); });
  WalkIPRestrictions(guard, objIPSecurity, objRs, identity);
}

}  // namespace TORVINFTPAppDataCom
