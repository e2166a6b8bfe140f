// GetFTPPropertyInfo: one tab, of one site or of all sites.

#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/progress.h"
#include "ftp/FTPCollection.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

// The collectors by tab name, as hosts spell it.
struct FTPCollection::Tab {
  TextView strName;
  TextView strSql;
  VariantBool (FTPCollection::*collector)(const Text&, ObjectRef&, ObjectRef&, ObjectRef&);
};

const FTPCollection::Tab* FTPCollection::FindTab(TextView strName) {
  static constexpr Tab aTabs[] = {
      {u"General", u"Select * from tblGeneral where 1=2", &FTPCollection::GetServerGeneralProperty},
      {u"Log File Settings", u"Select * from tblLogFileSetting where 1=2", &FTPCollection::GetLogFileSetting},
      {u"Extended Log Properties", u"Select * from tblExtendedLogSetting where 1=2",
       &FTPCollection::GetExtendedLogProperties},
      {u"Security Accounts", u"Select * from tblSecurityAccounts where 1=2",
       &FTPCollection::GetSecurityAccountsProperties},
      {u"Message", u"Select * from tblMessageSetting where 1=2", &FTPCollection::GetMessageSettings},
      {u"Home Directory", u"Select * from tblHomeDirectorySetting where 1=2",
       &FTPCollection::GetHomeDirectoryProperties},
      {u"Directory Security", u"Select * from tblDirectorySecuritySetting where 1=2",
       &FTPCollection::GetDirectorySecurityProperties},
  };
  for (const Tab& tab : aTabs) {
    if (tab.strName == strName) return &tab;
  }
  return nullptr;
}

void FTPCollection::GetFTPPropertyInfo(const Text& strIISServerName, const Text& strDBName,
                                       const Text& StrSelectedTab, VariantBool bSiteLevel,
                                       const Text& StrIdentifier) {
  ObjectRef objService;
  ObjectRef objSite;
  ObjectRef objCn;
  ObjectRef objRs;
  std::int16_t intTotal = 0;
  std::int16_t intDone = 0;
  VariantBool bCollected = False;
  const ContinueOnFailure guard([&](const ErrorState& objErr) {
    WriteToLog(objErr.number, objErr.description, u"TORVINFTPAppDataCom", u"GetFTPPropertyInfo");
  });

  guard.step([&] { progress::ShowHourglass(); });

  if (bSiteLevel != False) {
    guard.step([&] { objSite = GetObject(u"IIS://" + strIISServerName + u"/MSFTPSVC/" + StrIdentifier); });
  } else {
    guard.step([&] { objService = GetObject(u"IIS://" + strIISServerName + u"/MSFTPSVC"); });
  }
  if (objSite == nullptr && objService == nullptr) {
    // Stays: the handler has processed the failure, so this second record has number 0 and no message.
    guard.step([&] {
      WriteToLog(CurrentError().number, CurrentError().description, u"TORVINFTPAppDataCom",
                 u"GetFTPPropertyInfo");
    });
    guard.step([&] { progress::ShowDefaultPointer(); });
    return;
  }

  const auto collect = [&](const Tab& tab, ObjectRef objObject) {
    bCollected = False;
    guard.step([&] { bCollected = (this->*tab.collector)(strIISServerName, objObject, objCn, objRs); });
  };
  const auto openTable = [&](const Tab& tab) {
    return guard.opened(
        [&] { return OpenRecordset(objRs, tab.strSql, objCn, kForwardOnly, kOptimistic, kServerSide); });
  };

  if (guard.opened([&] { return OpenConnection(objCn, strDBName, StrSelectedTab); })) {
    const Tab* const tab = FindTab(StrSelectedTab);
    if (tab != nullptr && bSiteLevel != False) {
      if (openTable(*tab)) {
        collect(*tab, objSite);
        guard.step([&] { CloseRecordset(objRs, True); });
      }
    } else if (tab != nullptr) {
      guard.step([&] { intTotal = GenerateFTPSiteInfo(strIISServerName, strDBName); });
      guard.step([&] { SetProcessCountMessage(progress::CountText(intDone, intTotal)); });
      guard.step([&] { SetProgressBarMax(intTotal); });
      if (openTable(*tab)) {
        guard.forEach(objService, [&](const ObjectRef& objChild) {
          collect(*tab, objChild);
          if (bCollected == False) return;
          guard.step([&] { IncrementProgressBar(); });
          guard.step([&] { intDone = progress::AddOne(intDone); });
          guard.step([&] { SetProcessCountMessage(progress::CountText(intDone, intTotal)); });
        });
        guard.step([&] { CloseRecordset(objRs, True); });
      }
    }
    guard.step([&] { CloseConnection(objCn); });
  }

  objService = nullptr;
  objSite = nullptr;
  objRs = nullptr;
  objCn = nullptr;
  guard.step([&] { progress::ShowDefaultPointer(); });
}

}  // namespace TORVINFTPAppDataCom
