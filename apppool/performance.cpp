// The tab "Performance" of an application pool: idle timeout, request queue, CPU monitoring, worker
// processes.
//
// Sources: the metabase properties IdleTimeout (minutes), AppPoolQueueLength (65535 is no limit), CPULimit
// (thousandths of a percent), CPUResetInterval (minutes), CPUAction and MaxProcesses.

#include "apppool/AppPoolCollection.h"
#include "apppool/pool_identity.h"
#include "apppool/words.h"
#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"
#include "frame/row.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

void AppPoolCollection::GetPerformanceProperties(const Text& strServerName, ObjectRef& objObject, ObjectRef&,
                                                 ObjectRef& objRs) {
  LeaveOnFailure(
      [&] {
        ClearError();
        mstrAppPoolName.clear();
        mstrAppPoolName = toText(read(objObject, u"Name"));
        SetStatusBarMessage(progress::StatusText(u"Processing", mstrAppPoolName));

        const std::int32_t lngIdleTimeout = toInt32(read(objObject, u"IdleTimeout"));
        const TextView strIdleTimeout = EnabledWord(lngIdleTimeout);
        const std::int32_t lngQueueLength = toInt32(read(objObject, u"AppPoolQueueLength"));
        const TextView strQueueLength = lngQueueLength == 65535 ? u"Disabled" : u"Enabled";
        const std::int32_t lngCpuLimit = toInt32(read(objObject, u"CPULimit"));
        const TextView strCpuMonitoring = TrueWord(lngCpuLimit);
        const std::int32_t lngCpuPercent = roundToInt32(lngCpuLimit / 1000.0);
        const std::int16_t intCpuReset = toInt16(read(objObject, u"CPUResetInterval"));
        const TextView strCpuAction =
            toInt16(read(objObject, u"CPUAction")) == 0 ? u"No action" : u"Shutdown";
        const std::int32_t lngMaxProcesses = toInt32(read(objObject, u"MaxProcesses"));

        call(objRs, u"AddNew");
        WritePoolIdentity(objRs, strServerName, mstrAppPoolName);
        WriteText(objRs, u"Idle timeout settings", strIdleTimeout);
        WriteNumber(objRs, u"Idle timeout (in minutes)", lngIdleTimeout);
        WriteText(objRs, u"Request queue limit settings", strQueueLength);
        WriteNumber(objRs, u"Number of request queues", lngQueueLength);
        WriteText(objRs, u"Enable CPU monitoring", strCpuMonitoring);
        WriteNumber(objRs, u"Maximum CPU use (percentage)", lngCpuPercent);
        WriteNumber(objRs, u"Refresh CPU usage numbers (in minutes)", intCpuReset);
        WriteText(objRs, u"Action performed when CPU usage exceeds maximum CPU use", strCpuAction);
        WriteNumber(objRs, u"Maximum number of worker processes", lngMaxProcesses);
        call(objRs, u"Update");
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, objErr.source, u"GetPerformanceProperties");
      });
}

}  // namespace TORVINFTPAppDataCom
