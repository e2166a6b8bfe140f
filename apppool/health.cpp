// The tab "Health" of an application pool: how its worker processes are watched, rapid-fail protection, time
// limits.
//
// Sources: the metabase properties PingingEnabled, PingInterval (seconds), RapidFailProtection,
// RapidFailProtectionMaxCrashes, RapidFailProtectionInterval (minutes), StartupTimeLimit and
// ShutdownTimeLimit (seconds).

#include "apppool/AppPoolCollection.h"
#include "apppool/pool_identity.h"
#include "apppool/words.h"
#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"
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
        SetStatusBarMessage(progress::StatusText(u"Processing", mstrAppPoolName));

        const TextView strPinging = TrueWord(toInt16(read(objObject, u"PingingEnabled")));
        const std::int32_t lngPingInterval = toInt32(read(objObject, u"PingInterval"));
        const TextView strRapidFail = TrueWord(toInt16(read(objObject, u"RapidFailProtection")));
        const std::int32_t lngMaxCrashes = toInt32(read(objObject, u"RapidFailProtectionmaxCrashes"));
        const std::int32_t lngCrashInterval = toInt32(read(objObject, u"RapidFailProtectionInterval"));
        const std::int32_t lngStartupLimit = toInt32(read(objObject, u"StartupTimeLimit"));
        const std::int32_t lngShutdownLimit = toInt32(read(objObject, u"ShutdownTimeLimit"));

        call(objRs, u"AddNew");
        WritePoolIdentity(objRs, strServerName, mstrAppPoolName);
        WriteText(objRs, u"Enable pinging", strPinging);
        WriteNumber(objRs, u"Ping worker process (frequency in seconds)", lngPingInterval);
        WriteText(objRs, u"Enable rapid-fail protection", strRapidFail);
        WriteNumber(objRs, u"Rapid-fail protection failures", lngMaxCrashes);
        WriteNumber(objRs, u"Rapid-fail protection time period (in minutes)", lngCrashInterval);
        WriteNumber(objRs, u"Startup time limit (in seconds)", lngStartupLimit);
        WriteNumber(objRs, u"Shutdown time limit (in seconds)", lngShutdownLimit);
        call(objRs, u"Update");
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, objErr.source, u"GetHealthProperties");
      });
}

}  // namespace TORVINFTPAppDataCom
