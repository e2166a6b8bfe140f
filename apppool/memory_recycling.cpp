// The tab "Memory Recycling" of an application pool: the two memory limits at which a worker process is
// recycled.
//
// Sources: the metabase properties PeriodicRestartMemory and PeriodicRestartPrivateMemory, in kilobytes; 0 is
// no limit.

#include "apppool/AppPoolCollection.h"
#include "apppool/pool_identity.h"
#include "apppool/words.h"
#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"
#include "frame/row.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

void AppPoolCollection::GetMemoryRecyclingProperties(const Text& strServerName, ObjectRef& objObject,
                                                     ObjectRef&, ObjectRef& objRs) {
  LeaveOnFailure(
      [&] {
        ClearError();
        mstrAppPoolName.clear();
        mstrAppPoolName = toText(read(objObject, u"Name"sv));
        SetStatusBarMessage(progress::StatusText(u"Processing"sv, mstrAppPoolName));

        const std::int32_t lngVirtualMemory = toInt32(read(objObject, u"PeriodicRestartMemory"sv));
        const TextView strVirtualMemory = EnabledWord(lngVirtualMemory);
        const std::int32_t lngVirtualMegabytes = roundToInt32(lngVirtualMemory / 1024.0);
        const std::int32_t lngUsedMemory = toInt32(read(objObject, u"PeriodicRestartPrivateMemory"sv));
        const TextView strUsedMemory = EnabledWord(lngUsedMemory);
        const std::int32_t lngUsedMegabytes = roundToInt32(lngUsedMemory / 1024.0);

        call(objRs, u"AddNew"sv);
        WritePoolIdentity(objRs, strServerName, mstrAppPoolName);
        WriteText(objRs, u"Maximum virtual memory settings"sv, strVirtualMemory);
        WriteNumber(objRs, u"Maximum virtual memory (mb)"sv, lngVirtualMegabytes);
        WriteText(objRs, u"Maximum used memory settings"sv, strUsedMemory);
        WriteNumber(objRs, u"Maximum used memory (mb)"sv, lngUsedMegabytes);
        call(objRs, u"Update"sv);
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, objErr.source, u"GetMemoryRecyclingProperties");
      });
}

}  // namespace TORVINFTPAppDataCom
