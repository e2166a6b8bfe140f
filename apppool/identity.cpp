// The tab "Identity" of an application pool: the account of its worker processes.
//
// Sources: the metabase properties AppPoolIdentityType and, for a configured account only, WAMUserName.

#include "apppool/AppPoolCollection.h"
#include "apppool/pool_identity.h"
#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"
#include "frame/row.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

void AppPoolCollection::GetIdentityProperties(const Text& strServerName, ObjectRef& objObject, ObjectRef&,
                                              ObjectRef& objRs) {
  LeaveOnFailure(
      [&] {
        ClearError();
        mstrAppPoolName.clear();
        mstrAppPoolName = toText(read(objObject, u"Name"sv));
        SetStatusBarMessage(progress::StatusText(u"Processing"sv, mstrAppPoolName));

        Text strSetting;
        Text strAccount;
        switch (toInt16(read(objObject, u"AppPoolIdentityType"sv))) {
          case 0:
            strSetting = u"Predefined";
            strAccount = u"Local System";
            break;
          case 1:
            strSetting = u"Predefined";
            strAccount = u"Local Service";
            break;
          case 2:
            strSetting = u"Predefined";
            strAccount = u"Network Service";
            break;
          case 3:
            strSetting = u"Configurable";
            strAccount = toText(read(objObject, u"WAMUserName"sv));
            break;
          default:
            break;
        }

        call(objRs, u"AddNew"sv);
        WritePoolIdentity(objRs, strServerName, mstrAppPoolName);
        WriteText(objRs, u"Application pool identity settings"sv, strSetting);
        WriteText(objRs, u"Security account"sv, strAccount);
        call(objRs, u"Update"sv);
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, objErr.source, u"GetIdentityProperties");
      });
}

}  // namespace TORVINFTPAppDataCom
