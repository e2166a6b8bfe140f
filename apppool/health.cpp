// The tab "Health" of an application pool: pinging of its worker processes, rapid-fail protection, time
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
        mstrAppPoolName = toText(read(objObject, u"Name"sv));
        SetStatusBarMessage(progress::StatusText(u"Processing"sv, mstrAppPoolName));

        const TextView strPinging = TrueWord(toInt16(read(objObject, u"PingingEnabled"sv)));
        const std::int32_t lngPingInterval = toInt32(read(objObject, u"PingInterval"sv));
        const TextView strRapidFail = TrueWord(toInt16(read(objObject, u"RapidFailProtection"sv)));
        const std::int32_t lngMaxCrashes = toInt32(read(objObject, u"RapidFailProtectionmaxCrashes"sv));
        const std::int32_t lngCrashInterval = toInt32(read(objObject, u"RapidFailProtectionInterval"sv));
        const std::int32_t lngStartupLimit = toInt32(read(objObject, u"StartupTimeLimit"sv));
        const std::int32_t lngShutdownLimit = toInt32(read(objObject, u"ShutdownTimeLimit"sv));

        call(objRs, u"AddNew"sv);
        WritePoolIdentity(objRs, strServerName, mstrAppPoolName);
        WriteText(objRs, u"Enable pinging"sv, strPinging);
        WriteNumber(objRs, u"Ping worker process (frequency in seconds)"sv, lngPingInterval);
        WriteText(objRs, u"Enable rapid-fail protection"sv, strRapidFail);
        WriteNumber(objRs, u"Rapid-fail protection failures"sv, lngMaxCrashes);
        WriteNumber(objRs, u"Rapid-fail protection time period (in minutes)"sv, lngCrashInterval);
        WriteNumber(objRs, u"Startup time limit (in seconds)"sv, lngStartupLimit);
        WriteNumber(objRs, u"Shutdown time limit (in seconds)"sv, lngShutdownLimit);
        call(objRs, u"Update"sv);
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, objErr.source, u"GetHealthProperties");
      });
}

}  // namespace TORVINFTPAppDataCom
