// The tab "Health" of an application pool: how its worker processes are watched, rapid-fail protection, time
// limits.
//
// Sources: the metabase properties PingingEnabled, PingInterval (seconds), RapidFailProtection,
// RapidFailProtectionMaxCrashes, RapidFailProtectionInterval (minutes), StartupTimeLimit and
// ShutdownTimeLimit (seconds).

#include "apppool/AppPoolCollection.h"
#include "apppool/words.h"
#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/row.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

void AppPoolCollection::GetHealthProperties(const Text& strServerName, ObjectRef& objObject, ObjectRef&,
                                            ObjectRef& objRs) {
  LeaveOnFailure(
      [&] {
        ClearError();
        mstrAppPoolName.clear();
        mstrAppPoolName = toText(read(objObject, u"Name"));
        SetStatusBarMessage(u"Processing " + QuoteForSql(mstrAppPoolName));

        const Text strPinging = TrueWord(toInt16(read(objObject, u"PingingEnabled")));
        const std::int32_t lngPingInterval = toInt32(read(objObject, u"PingInterval"));
        const Text strRapidFail = TrueWord(toInt16(read(objObject, u"RapidFailProtection")));
        const std::int32_t lngMaxCrashes = toInt32(read(objObject, u"RapidFailProtectionmaxCrashes"));
        const std::int32_t lngCrashInterval = toInt32(read(objObject, u"RapidFailProtectionInterval"));
        const std::int32_t lngStartupLimit = toInt32(read(objObject, u"StartupTimeLimit"));
        const std::int32_t lngShutdownLimit = toInt32(read(objObject, u"ShutdownTimeLimit"));

        call(objRs, u"AddNew");
        WriteColumn(objRs, u"Server name", Trim(strServerName));
        WriteColumn(objRs, u"Application pool name", Trim(mstrAppPoolName));
        WriteColumn(objRs, u"Enable pinging", Trim(strPinging));
        WriteColumn(objRs, u"Ping worker process (frequency in seconds)", Trim(lngPingInterval));
        WriteColumn(objRs, u"Enable rapid-fail protection", Trim(strRapidFail));
        WriteColumn(objRs, u"Rapid-fail protection failures", Trim(lngMaxCrashes));
        WriteColumn(objRs, u"Rapid-fail protection time period (in minutes)", Trim(lngCrashInterval));
        WriteColumn(objRs, u"Startup time limit (in seconds)", Trim(lngStartupLimit));
        WriteColumn(objRs, u"Shutdown time limit (in seconds)", Trim(lngShutdownLimit));
        call(objRs, u"Update");
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, objErr.source, u"GetHealthProperties");
      });
}

}  // namespace TORVINFTPAppDataCom
