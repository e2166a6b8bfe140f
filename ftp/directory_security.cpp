// The tab "Directory Security" of an FTP site: which computers may reach it.

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
        const Text strId = toText(read(objObject, u"Name"));
        if (IsInfoNode(strId)) return;
        const Text strSiteName = ReadSiteName(objObject);
        SetStatusBarMessage(progress::StatusText(u"Processing", strSiteName));

        GetRestrictedIPAddress(strServerName, strSiteName, strId, objRs);
        call(objRs, u"Update");
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
      {{u"Server name", strServerName}, {u"FTP site name", strSiteName}, {u"Identifier", strId}}};

  guard.step([&] { call(objRs, u"AddNew"); });
  WriteIdentity(guard, objRs, identity);
  guard.step([&] { objRoot = GetObject(u"IIS://" + strServerName + u"/MSFTPSVC/" + strId + u"/Root"); });
  if (objRoot == nullptr) return;
  guard.step([&] { objIPSecurity = toObject(call(objRoot, u"GetEx", u"IPSecurity")); });
  WalkIPRestrictions(guard, objIPSecurity, objRs, identity);
}

}  // namespace TORVINFTPAppDataCom
