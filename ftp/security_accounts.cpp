// The tab "Security Accounts" of an FTP site: anonymous connections, their account, and control of its
// password.
//
// Sources: the metabase properties AllowAnonymous, AnonymousUserName, AnonymousOnly and
// AnonymousPasswordSync.

#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"
#include "ftp/FTPCollection.h"
#include "ftp/site_identity.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

Text FTPCollection::GetPropEnabledStatus(std::int16_t PropVal) const {
  return PropVal != 0 ? u"Yes" : u"No";
}

VariantBool FTPCollection::GetSecurityAccountsProperties(const Text& strServerName, ObjectRef& objObject,
                                                         ObjectRef&, ObjectRef& objRs) {
  VariantBool bResult = False;
  LeaveOnFailure(
      [&] {
        ClearError();
        const Text strId = toText(read(objObject, u"Name"sv));
        if (IsInfoNode(strId)) return;
        const Text strSiteName = ReadSiteName(objObject);
        SetStatusBarMessage(progress::StatusText(u"Processing"sv, strSiteName));

        const Text strAllowAnonymous = GetPropEnabledStatus(toInt16(read(objObject, u"AllowAnonymous"sv)));
        const Text strUserName = toText(read(objObject, u"Anonymoususername"sv));
        const Text strAnonymousOnly = GetPropEnabledStatus(toInt16(read(objObject, u"Anonymousonly"sv)));
        const Text strPasswordSync =
            GetPropEnabledStatus(toInt16(read(objObject, u"Anonymouspasswordsync"sv)));

        call(objRs, u"AddNew"sv);
        WriteSiteIdentity(objRs, strServerName, strSiteName, strId);
        WriteText(objRs, u"Allow Anonymous Connections"sv, strAllowAnonymous);
        WriteText(objRs, u"User name"sv, strUserName);
        WriteText(objRs, u"Allow only anonymous connections"sv, strAnonymousOnly);
        WriteText(objRs, u"Allow IIS to control password"sv, strPasswordSync);
        call(objRs, u"Update"sv);
        bResult = True;
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom",
                   u"GetSecurityAccountsProperties");
      });
  return bResult;
}

}  // namespace TORVINFTPAppDataCom
