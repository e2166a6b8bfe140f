// The web service extension restrictions of a server: first a row per entry of the list, then a status per
// extension.
//
// Source: the metabase property WebSvcExtRestrictionList of an IIsWebService. Each entry consists of an
// access flag, a file, a flag, the extension's name and its description, separated by commas.

#include "apppool/AppPoolCollection.h"
#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/row.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

namespace {

// The statements of the second pass. Stays: names are inserted without escaping. A single quote in a name
// breaks the statements of that name only.
Text ExtensionsSql(TextView strServerName) {
  return concat({u"Select Distinct [Web service extension] from tblWSExtension where [Server name] = '"sv,
                 strServerName, u"' "sv});  // Stays: the space.
}

Text AccessSql(TextView strServerName, TextView strExtension) {
  return concat({u"Select Distinct [File access] from tblWSExtension where [Server name] = '"sv,
                 strServerName, u"' and [Web service extension]= '"sv, strExtension, u"'"sv});
}

// Stays: the two updates differ in a space.
Text CustomSql(TextView strServerName, TextView strExtension) {
  return concat({u"Update tblWSExtension set Status= 'Custom' Where [Server name]='"sv, strServerName,
                 u"' and [Web service extension]= '"sv, strExtension, u"'"sv});
}

Text StatusSql(TextView strStatus, TextView strServerName, TextView strExtension) {
  return concat({u"Update tblWSExtension set Status= '"sv, strStatus, u"' Where [Server name] ='"sv,
                 strServerName, u"' and [Web service extension]= '"sv, strExtension, u"'"sv});
}

// First pass: one row per entry of the list.
void AddEntries(const Guard& guard, const ObjectRef& objRs, const Variant& aList, TextView strServerName) {
  std::int16_t intAccess = 0;
  guard.forEachIndex(aList, [&](std::int32_t intIndex) {
    Text strEntry;
    TextView strFile;
    TextView strExtension;
    TextView strDescription;
    guard.step([&] { strEntry = toText(element(aList, intIndex)); });
    guard.step([&] { intAccess = toInt16(PieceOf(strEntry, u',', 0)); });
    const TextView strAccess = intAccess == 0 ? u"Prohibited"sv : u"Allowed"sv;
    guard.step([&] { strFile = PieceOf(strEntry, u',', 1); });

    // Stays: the two kinds write their columns in different orders.
    const bool bAllPrograms = equalsIgnoringCase(strFile, u"*.exe"sv);
    const bool bAllLibraries = equalsIgnoringCase(strFile, u"*.dll"sv);
    if (bAllPrograms || bAllLibraries) {
      strExtension = bAllPrograms ? u"CGI Extensions"sv : u"ISAPI Extensions"sv;
      strDescription = bAllPrograms ? u"All Unknown CGI Extensions"sv : u"All Unknown ISAPI Extensions"sv;
      guard.step([&] { call(objRs, u"AddNew"sv); });
      guard.step([&] { WriteText(objRs, u"Web service extension"sv, strExtension); });
      guard.step([&] { WriteText(objRs, u"Description"sv, strDescription); });
      guard.step([&] { WriteText(objRs, u"Server name"sv, strServerName); });
      guard.step([&] { WriteText(objRs, u"Status"sv, strAccess); });
      guard.step([&] { WriteText(objRs, u"Required files path"sv, strFile); });
      guard.step([&] { WriteText(objRs, u"File access"sv, strAccess); });
    } else {
      guard.step([&] { strExtension = PieceOf(strEntry, u',', 3); });
      // Stays: a comma truncates the description.
      guard.step([&] { strDescription = PieceOf(strEntry, u',', 4); });
      guard.step([&] { call(objRs, u"AddNew"sv); });
      guard.step([&] { WriteText(objRs, u"Server name"sv, strServerName); });
      guard.step([&] { WriteText(objRs, u"Web service extension"sv, strExtension); });
      guard.step([&] { WriteText(objRs, u"Description"sv, strDescription); });
      guard.step([&] { WriteText(objRs, u"Status"sv, u""sv); });
      guard.step([&] { WriteText(objRs, u"Required files path"sv, strFile); });
      guard.step([&] { WriteText(objRs, u"File access"sv, strAccess); });
    }
    guard.step([&] { call(objRs, u"Update"sv); });
  });
}

// Second pass: one status per extension in the table, from the access texts of all its files.
void UpdateStatuses(const Guard& guard, ObjectRef& objCn, ObjectRef& objRs, const ObjectRef& objRsExtensions,
                    TextView strServerName) {
  Text strExtension;
  Text strAccess;
  std::int16_t intCount = 0;
  bool bStuck = false;
  while (!guard.test([&] { return automation::toBool(read(objRsExtensions, u"EOF"sv)); })) {
    guard.step([&] {
      strExtension = toText(readIndexed(objRsExtensions, u"Collect"sv, u"Web service extension"sv));
    });
    if (guard.opened([&] {
          return OpenRecordset(objRs, AccessSql(strServerName, strExtension), objCn, kForwardOnly,
                               kOptimistic, kClientSide);
        })) {
      guard.step([&] { intCount = toInt16(read(objRs, u"Recordcount"sv)); });
      guard.step([&] { strAccess = toText(readIndexed(objRs, u"Collect"sv, u"File access"sv)); });
      if (intCount > 1) {
        guard.step([&] { call(objCn, u"Execute"sv, CustomSql(strServerName, strExtension)); });
      } else {
        guard.step([&] { call(objCn, u"Execute"sv, StatusSql(strAccess, strServerName, strExtension)); });
      }
      guard.step([&] { CloseRecordset(objRs, True); });
    }
    // A recordset that cannot be advanced would return the same extension forever: the second occurrence ends
    // the loop.
    const bool bMoved = guard.step([&] { call(objRsExtensions, u"MoveNext"sv); });
    if (!bMoved && bStuck) break;
    bStuck = !bMoved;
  }
}

}  // namespace

void AppPoolCollection::GetWebServiceExtension(const Text& strServerName, const Text& strDBName) {
  ObjectRef objService;
  ObjectRef objCn;
  ObjectRef objRs;
  ObjectRef objRsExtensions;
  Variant aList;
  const ContinueOnFailure guard([&](const ErrorState& objErr) {
    WriteToLog(objErr.number, objErr.description, objErr.source, u"GetWebServiceExtension");
  });

  guard.step([&] { objService = GetObject(u"IIS://" + strServerName + u"/w3svc"); });
  if (objService == nullptr) return;
  const bool bListRead = guard.step([&] { aList = read(objService, u"WebSvcExtRestrictionList"sv); });
  if (!guard.opened([&] { return OpenConnection(objCn, strDBName, u""sv); })) return;

  if (guard.opened([&] {
        return OpenRecordset(objRs, u"Select * from tblWSExtension where 1=2"sv, objCn, kForwardOnly,
                             kOptimistic, kServerSide);
      })) {
    // Without the list there are no bounds to iterate between.
    if (bListRead) AddEntries(guard, objRs, aList, strServerName);
    guard.step([&] { CloseRecordset(objRs, True); });
  }
  if (guard.opened([&] {
        return OpenRecordset(objRsExtensions, ExtensionsSql(strServerName), objCn, kForwardOnly, kOptimistic,
                             kServerSide);
      })) {
    UpdateStatuses(guard, objCn, objRs, objRsExtensions, strServerName);
    guard.step([&] { CloseRecordset(objRsExtensions, True); });
  }
  guard.step([&] { CloseConnection(objCn); });
}

}  // namespace TORVINFTPAppDataCom
