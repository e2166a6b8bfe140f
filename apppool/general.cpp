// The tab "General" of an application pool: whether it runs.
//
// Source: the ADSI property AppPoolState of an IIsApplicationPool; 2 is started.

#include "apppool/AppPoolCollection.h"
#include "apppool/pool_identity.h"
#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"
#include "frame/row.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

void AppPoolCollection::GetAppPoolGeneralProperty(const Text& strServerName, ObjectRef& objObject, ObjectRef&,
                                                  ObjectRef& objRs) {
  LeaveOnFailure(
      [&] {
        ClearError();
        mstrAppPoolName.clear();
        mstrAppPoolName = toText(read(objObject, u"Name"));
        SetStatusBarMessage(progress::StatusText(u"Processing", mstrAppPoolName));

        const TextView strState = toInt16(read(objObject, u"AppPoolState")) == 2 ? u"Running" : u"Stopped";

        call(objRs, u"AddNew");
        WritePoolIdentity(objRs, strServerName, mstrAppPoolName);
        WriteText(objRs, u"State", strState);
        call(objRs, u"Update");
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, objErr.source, u"GetAppPoolGeneralProperty");
      });
}

}  // namespace TORVINFTPAppDataCom
