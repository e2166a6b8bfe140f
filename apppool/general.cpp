// The tab "General" of an application pool: whether it runs.
//
// Source: the ADSI property AppPoolState of an IIsApplicationPool; 2 is started.

#include "apppool/AppPoolCollection.h"
#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
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
        SetStatusBarMessage(u"Processing " + QuoteForSql(mstrAppPoolName));

        const Text strState = toInt16(read(objObject, u"AppPoolState")) == 2 ? u"Running" : u"Stopped";

        call(objRs, u"AddNew");
        WriteColumn(objRs, u"Server name", Trim(strServerName));
        WriteColumn(objRs, u"Application pool name", Trim(mstrAppPoolName));
        WriteColumn(objRs, u"State", Trim(strState));
        call(objRs, u"Update");
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, objErr.source, u"GetAppPoolGeneralProperty");
      });
}

}  // namespace TORVINFTPAppDataCom
