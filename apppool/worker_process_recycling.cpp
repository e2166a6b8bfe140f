// The tab "Worker Process Recycling" of an application pool: the recycling triggers, one row per time of the
// schedule.
//
// Sources: the metabase properties PeriodicRestartTime (minutes), PeriodicRestartRequests and
// PeriodicRestartSchedule.

#include "apppool/AppPoolCollection.h"
#include "apppool/pool_identity.h"
#include "apppool/words.h"
#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"
#include "frame/row.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

void AppPoolCollection::GetWorkerProcessRecycling(const Text& strServerName, ObjectRef& objObject, ObjectRef&,
                                                  ObjectRef& objRs) {
  LeaveOnFailure(
      [&] {
        ClearError();
        mstrAppPoolName.clear();
        mstrAppPoolName = toText(read(objObject, u"Name"sv));
        SetStatusBarMessage(progress::StatusText(u"Processing"sv, mstrAppPoolName));

        const std::int32_t lngTime = toInt32(Trim(read(objObject, u"PeriodicRestartTime"sv)));
        const TextView strTime = EnabledWord(lngTime);
        const std::int32_t lngRequests = toInt32(Trim(read(objObject, u"PeriodicRestartRequests"sv)));
        const TextView strRequests = EnabledWord(lngRequests);
        const Variant aSchedule = read(objObject, u"PeriodicRestartSchedule"sv);
        const std::int16_t intUpper = narrowToInt16(upperBound(aSchedule));
        const TextView strSchedule = intUpper == -1 ? u"Disabled"sv : u"Enabled"sv;

        const auto addRow = [&](const Variant& vScheduledAt) {
          call(objRs, u"AddNew"sv);
          WritePoolIdentity(objRs, strServerName, mstrAppPoolName);
          WriteText(objRs, u"Recycle settings"sv, strTime);
          WriteNumber(objRs, u"Recycle (in minutes)"sv, lngTime);
          WriteText(objRs, u"Recycle request settings"sv, strRequests);
          WriteNumber(objRs, u"Number of recycle requests"sv, lngRequests);
          WriteText(objRs, u"Recycle schedule settings"sv, strSchedule);
          WriteText(objRs, u"Scheduled recycle at"sv, toText(vScheduledAt));
          call(objRs, u"Update"sv);
        };
        if (intUpper < 0) {
          addRow(u"");
          return;
        }
        const std::int16_t intLower = narrowToInt16(lowerBound(aSchedule));
        for (std::int32_t intIndex = intLower; intIndex <= intUpper; ++intIndex) {
          addRow(element(aSchedule, intIndex));
        }
      },
      [&](const ErrorState& objErr) {
        WriteToLog(objErr.number, objErr.description, objErr.source, u"GetWorkerProcessRecycling");
      });
}

}  // namespace TORVINFTPAppDataCom
