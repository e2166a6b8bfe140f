// GetAppPoolPropertyInfo: one tab, of one application pool or of all pools.

#include "apppool/AppPoolCollection.h"
#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

// The collectors by tab name, as hosts spell it.
struct AppPoolCollection::Tab {
  TextView strName;
  TextView strSql;
  void (AppPoolCollection::*collector)(const Text&, ObjectRef&, ObjectRef&, ObjectRef&);
};

const AppPoolCollection::Tab* AppPoolCollection::FindTab(TextView strName) {
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
  for (const Tab& tab : aTabs) {
    if (tab.strName == strName) return &tab;
  }
  return nullptr;
}

void AppPoolCollection::GetAppPoolPropertyInfo(const Text& strServerName, const Text& strDBName,
                                               const Text& StrSelectedTab, VariantBool bApplicationLevel,
                                               const Text& strApplicationPoolName) {
  ObjectRef objPools;
  ObjectRef objPool;
  ObjectRef objCn;
  ObjectRef objRs;
  std::int16_t intTotal = 0;
  std::int16_t intDone = 0;
  const ContinueOnFailure guard([&](const ErrorState& objErr) {
    WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom", u"GetAppPoolPropertyInfo");
  });

  guard.step([&] { progress::ShowHourglass(); });

  // Stays: the two spellings of the path.
  if (bApplicationLevel != False) {
    guard.step([&] {
      objPool = GetObject(u"IIS://" + strServerName + u"/W3SVC/AppPools/" + strApplicationPoolName);
    });
  } else {
    guard.step([&] { objPools = GetObject(u"IIS://" + strServerName + u"/W3SVC/apppools"); });
  }
  if (objPool == nullptr && objPools == nullptr) {
    // Stays: the handler has processed the failure, so this second record has number 0 and no message.
    guard.step([&] {
      WriteToLog(CurrentError().number, CurrentError().description, u"TORVINFTPAppDataCom",
                 u"GetAppPoolPropertyInfo");
    });
    guard.step([&] { progress::ShowDefaultPointer(); });
    return;
  }

  const auto collect = [&](const Tab& tab, ObjectRef objObject) {
    guard.step([&] { (this->*tab.collector)(strServerName, objObject, objCn, objRs); });
  };
  const auto openTable = [&](const Tab& tab) {
    return guard.opened(
        [&] { return OpenRecordset(objRs, tab.strSql, objCn, kForwardOnly, kOptimistic, kServerSide); });
  };

  if (guard.opened([&] { return OpenConnection(objCn, strDBName, u""sv); })) {
    const Tab* const tab = FindTab(StrSelectedTab);
    if (tab != nullptr && bApplicationLevel != False) {
      if (openTable(*tab)) {
        collect(*tab, objPool);
        guard.step([&] { CloseRecordset(objRs, True); });
      }
    } else if (tab != nullptr) {
      guard.step([&] { intTotal = GetAppPoolsCount(strServerName, strDBName); });
      guard.step([&] { SetProcessCountMessage(progress::CountText(intDone, intTotal)); });
      guard.step([&] { SetProgressBarMax(intTotal); });
      if (openTable(*tab)) {
        guard.forEach(objPools, [&](const ObjectRef& objChild) {
          collect(*tab, objChild);
          // Stays: a pool counts whether or not its collector failed.
          guard.step([&] { IncrementProgressBar(); });
          guard.step([&] { intDone = progress::AddOne(intDone); });
          guard.step([&] { SetProcessCountMessage(progress::CountText(intDone, intTotal)); });
        });
        guard.step([&] { CloseRecordset(objRs, True); });
      }
    }
    guard.step([&] { CloseConnection(objCn); });
  }

  objPools = nullptr;
  objPool = nullptr;
  objRs = nullptr;
  objCn = nullptr;
  guard.step([&] { progress::ShowDefaultPointer(); });
}

}  // namespace TORVINFTPAppDataCom
