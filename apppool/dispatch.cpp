// GetAppPoolPropertyInfo: one tab, of one application pool or of all pools.

#include "apppool/AppPoolCollection.h"
#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

void AppPoolCollection::GetAppPoolPropertyInfo(const Text& strServerName, const Text& strDBName,
                                               const Text& StrSelectedTab, VariantBool bApplicationLevel,
                                               const Text& strApplicationPoolName) {
  using Collector = void (AppPoolCollection::*)(const Text&, ObjectRef&, ObjectRef&, ObjectRef&);
  struct Tab {
    TextView strName;
    TextView strSql;
    Collector collector;
  };
  static constexpr Tab aTabs[] = {
      {u"General", u"Select * from tblGeneral where 1=2", &AppPoolCollection::GetAppPoolGeneralProperty},
      {u"Worker Process Recycling", u"Select * from tblWProcessRecycling where 1=2",
       &AppPoolCollection::GetWorkerProcessRecycling},
      {u"Memory Recycling", u"Select * from tblMemoryRecycling where 1=2",
       &AppPoolCollection::GetMemoryRecyclingProperties},
      {u"Performance", u"Select * from tblPerformance where 1=2",
       &AppPoolCollection::GetPerformanceProperties},
      {u"Health", u"Select * from tblHealth where 1=2", &AppPoolCollection::GetHealthProperties},
      {u"Identity", u"Select * from tblIdentity where 1=2", &AppPoolCollection::GetIdentityProperties},
  };

  ObjectRef objPools;
  ObjectRef objPool;
  ObjectRef objCn;
  ObjectRef objRs;
  std::int16_t intTotal = 0;
  std::int16_t intDone = 0;
  const ContinueOnFailure guard([&](const ErrorState& objErr) {
    WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom", u"GetAppPoolPropertyInfo");
  });

  guard.step([&] { write(Screen(), u"MousePointer", kPointerHourglass); });

  if (bApplicationLevel != False) {
    guard.step([&] {
      objPool = GetObject(u"IIS://" + strServerName + u"/W3SVC/AppPools/" + strApplicationPoolName);
    });
  } else {
    guard.step([&] { objPools = GetObject(u"IIS://" + strServerName + u"/W3SVC/apppools"); });
  }
  if (objPool == nullptr && objPools == nullptr) {
    guard.step([&] {
      WriteToLog(CurrentError().number, CurrentError().description, u"TORVINFTPAppDataCom",
                 u"GetAppPoolPropertyInfo");
    });
    guard.step([&] { write(Screen(), u"MousePointer", kPointerDefault); });
    return;
  }

  const auto collect = [&](const Tab& tab, ObjectRef objObject) {
    guard.step([&] { (this->*tab.collector)(strServerName, objObject, objCn, objRs); });
  };
  const auto openTable = [&](const Tab& tab) {
    return !guard.test([&] {
      return OpenRecordset(objRs, Text(tab.strSql), objCn, kForwardOnly, kOptimistic, kServerSide) == False;
    });
  };

  if (!guard.test([&] { return OpenConnection(objCn, strDBName, u"") == False; })) {
    for (const Tab& tab : aTabs) {
      if (StrSelectedTab != tab.strName) continue;
      if (bApplicationLevel != False) {
        if (!openTable(tab)) break;
        collect(tab, objPool);
        guard.step([&] { CloseRecordset(objRs, True); });
      } else {
        guard.step([&] { intTotal = GetAppPoolsCount(strServerName, strDBName); });
        intDone = 0;
        guard.step([&] { SetProcessCountMessage(progress::CountText(intDone, intTotal)); });
        guard.step([&] { SetProgressBarMax(intTotal); });
        if (!openTable(tab)) break;
        guard.forEach(objPools, [&](const ObjectRef& objChild) {
          collect(tab, objChild);
          guard.step([&] { IncrementProgressBar(); });
          guard.step([&] { intDone = progress::AddOne(intDone); });
          guard.step([&] { SetProcessCountMessage(progress::CountText(intDone, intTotal)); });
        });
        guard.step([&] { CloseRecordset(objRs, True); });
      }
      break;
    }
    guard.step([&] { CloseConnection(objCn); });
  }

  objPools = nullptr;
  objPool = nullptr;
  objRs = nullptr;
  objCn = nullptr;
  guard.step([&] { write(Screen(), u"MousePointer", kPointerDefault); });
}

}  // namespace TORVINFTPAppDataCom
