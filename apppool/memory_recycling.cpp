// The tab "Memory Recycling" of an application pool: the two memory limits at which a worker process is
// recycled.
//
// Sources: the metabase properties PeriodicRestartMemory and PeriodicRestartPrivateMemory, in kilobytes; 0 is
// no limit.

#include "apppool/AppPoolCollection.h"
#include "apppool/words.h"
#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/row.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

void AppPoolCollection::GetMemoryRecyclingProperties(const Text& strServerName, ObjectRef& objObject,
                                                     ObjectRef&, ObjectRef& objRs) {
  LeaveOnFailure(
      [&] {
        ClearError();
        mstrAppPoolName.clear();
        mstrAppPoolName = toText(read(objObject, u"Name"));
        SetStatusBarMessage(u"Processing " + QuoteForSql(mstrAppPoolName));

        const std::int32_t lngVirtualMemory = toInt32(read(objObject, u"PeriodicRestartMemory"));
        const Text strVirtualMemory = EnabledWord(lngVirtualMemory);
        const std::int32_t lngVirtualMegabytes = roundToInt32(lngVirtualMemory / 1024.0);
        const std::int32_t lngUsedMemory = toInt32(read(objObject, u"PeriodicRestartPrivateMemory"));
        const Text strUsedMemory = EnabledWord(lngUsedMemory);
        const std::int32_t lngUsedMegabytes = roundToInt32(lngUsedMemory / 1024.0);

        call(objRs, u"AddNew");
        WriteColumn(objRs, u"Server name", Trim(strServerName));
        WriteColumn(objRs, u"Application pool name", Trim(mstrAppPoolName));
        WriteColumn(objRs, u"Maximum virtual memory settings", Trim(strVirtualMemory));
        WriteColumn(objRs, u"Maximum virtual memory (mb)", Trim(lngVirtualMegabytes));
        WriteColumn(objRs, u"Maximum used memory settings", Trim(strUsedMemory));
        WriteColumn(objRs, u"Maximum used memory (mb)", Trim(lngUsedMegabytes));
        call(objRs, u"Update");
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, objErr.source, u"GetMemoryRecyclingProperties");
      });
}

}  // namespace TORVINFTPAppDataCom
