// The tab "General" of an application pool: its state.
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
        mstrAppPoolName = toText(read(objObject, u"Name"sv));
        SetStatusBarMessage(progress::StatusText(u"Processing"sv, mstrAppPoolName));

        const TextView strState =
            toInt16(read(objObject, u"AppPoolState"sv)) == 2 ? u"Running"sv : u"Stopped"sv;

        call(objRs, u"AddNew"sv);
        WritePoolIdentity(objRs, strServerName, mstrAppPoolName);
        WriteText(objRs, u"State"sv, strState);
        call(objRs, u"Update"sv);
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, objErr.source, u"GetAppPoolGeneralProperty");
      });
}

}  // namespace TORVINFTPAppDataCom
