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
        mstrAppPoolName = toText(read(objObject, u"Name"sv));
        SetStatusBarMessage(progress::StatusText(u"Processing"sv, mstrAppPoolName));

        const std::int32_t lngIdleTimeout = toInt32(read(objObject, u"IdleTimeout"sv));
        const TextView strIdleTimeout = EnabledWord(lngIdleTimeout);
        const std::int32_t lngQueueLength = toInt32(read(objObject, u"AppPoolQueueLength"sv));
        const TextView strQueueLength = lngQueueLength == 65535 ? u"Disabled"sv : u"Enabled"sv;
        const std::int32_t lngCpuLimit = toInt32(read(objObject, u"CPULimit"sv));
        const TextView strCpuMonitoring = TrueWord(lngCpuLimit);
        const std::int32_t lngCpuPercent = roundToInt32(lngCpuLimit / 1000.0);
        const std::int16_t intCpuReset = toInt16(read(objObject, u"CPUResetInterval"sv));
        const TextView strCpuAction =
            toInt16(read(objObject, u"CPUAction"sv)) == 0 ? u"No action"sv : u"Shutdown"sv;
        const std::int32_t lngMaxProcesses = toInt32(read(objObject, u"MaxProcesses"sv));

        call(objRs, u"AddNew"sv);
        WritePoolIdentity(objRs, strServerName, mstrAppPoolName);
        WriteText(objRs, u"Idle timeout settings"sv, strIdleTimeout);
        WriteNumber(objRs, u"Idle timeout (in minutes)"sv, lngIdleTimeout);
        WriteText(objRs, u"Request queue limit settings"sv, strQueueLength);
        WriteNumber(objRs, u"Number of request queues"sv, lngQueueLength);
        WriteText(objRs, u"Enable CPU monitoring"sv, strCpuMonitoring);
        WriteNumber(objRs, u"Maximum CPU use (percentage)"sv, lngCpuPercent);
        WriteNumber(objRs, u"Refresh CPU usage numbers (in minutes)"sv, intCpuReset);
        WriteText(objRs, u"Action performed when CPU usage exceeds maximum CPU use"sv, strCpuAction);
        WriteNumber(objRs, u"Maximum number of worker processes"sv, lngMaxProcesses);
        call(objRs, u"Update"sv);
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, objErr.source, u"GetPerformanceProperties");
      });
}

}  // namespace TORVINFTPAppDataCom
