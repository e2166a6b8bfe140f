// The web service extension restrictions of a server: a row for each entry of the list, then a status for
// each extension.
//
// Source: the metabase property WebSvcExtRestrictionList of an IIsWebService, whose entries hold an access
// flag, a file, a flag, the extension's name and its description, with commas in between.

#include "apppool/AppPoolCollection.h"
#include "frame/guards.h"
#include "frame/mFTPAppPoolSupport.h"
#include "frame/row.h"

namespace TORVINFTPAppDataCom {

using namespace mFTPAppPoolSupport;

void AppPoolCollection::GetWebServiceExtension(const Text& strServerName, const Text& strDBName) {
  ObjectRef objService;
  ObjectRef objCn;
  ObjectRef objRs;
  ObjectRef objRsExtensions;
  Variant aList;
  std::int16_t intAccess = 0;
  const ContinueOnFailure guard([&](const ErrorState& objErr) {
    WriteToLog(objErr.number, objErr.description, objErr.source, u"GetWebServiceExtension");
  });

  guard.step([&] { objService = GetObject(u"IIS://" + strServerName + u"/w3svc"); });
  if (objService == nullptr) return;
  const bool bListRead = guard.step([&] { aList = read(objService, u"WebSvcExtRestrictionList"); });
  if (guard.test([&] { return OpenConnection(objCn, strDBName, u"") == False; })) return;

  // First pass: one row for each entry.
  if (!guard.test([&] {
        return OpenRecordset(objRs, u"Select * from tblWSExtension where 1=2", objCn, kForwardOnly,
                             kOptimistic, kServerSide) == False;
      })) {
    // Without the list there are no bounds to walk between.
    if (bListRead) {
      guard.forEachIndex(aList, [&](std::int32_t intIndex) {
        std::vector<Text> aPieces;
        Text strFile;
        Text strExtension;
        Text strDescription;
        guard.step([&] { aPieces = Split(toText(element(aList, intIndex)), u','); });
        guard.step([&] { intAccess = toInt16(PieceOf(aPieces, 0)); });
        const Text strAccess = intAccess == 0 ? u"Prohibited" : u"Allowed";
        guard.step([&] { strFile = PieceOf(aPieces, 1); });

        const bool bAllPrograms = equalsIgnoringCase(strFile, u"*.exe");
        const bool bAllLibraries = equalsIgnoringCase(strFile, u"*.dll");
        if (bAllPrograms || bAllLibraries) {
          strExtension = bAllPrograms ? u"CGI Extensions" : u"ISAPI Extensions";
          strDescription = bAllPrograms ? u"All Unknown CGI Extensions" : u"All Unknown ISAPI Extensions";
          guard.step([&] { call(objRs, u"AddNew"); });
          guard.step([&] { WriteColumn(objRs, u"Web service extension", Trim(strExtension)); });
          guard.step([&] { WriteColumn(objRs, u"Description", Trim(strDescription)); });
          guard.step([&] { WriteColumn(objRs, u"Server name", Trim(strServerName)); });
          guard.step([&] { WriteColumn(objRs, u"Status", Trim(strAccess)); });
          guard.step([&] { WriteColumn(objRs, u"Required files path", Trim(strFile)); });
          guard.step([&] { WriteColumn(objRs, u"File access", Trim(strAccess)); });
        } else {
          guard.step([&] { strExtension = PieceOf(aPieces, 3); });
          guard.step([&] { strDescription = PieceOf(aPieces, 4); });
          guard.step([&] { call(objRs, u"AddNew"); });
          guard.step([&] { WriteColumn(objRs, u"Server name", Trim(strServerName)); });
          guard.step([&] { WriteColumn(objRs, u"Web service extension", Trim(strExtension)); });
          guard.step([&] { WriteColumn(objRs, u"Description", Trim(strDescription)); });
          guard.step([&] { WriteColumn(objRs, u"Status", Text()); });
          guard.step([&] { WriteColumn(objRs, u"Required files path", Trim(strFile)); });
          guard.step([&] { WriteColumn(objRs, u"File access", Trim(strAccess)); });
        }
        guard.step([&] { call(objRs, u"Update"); });
      });
    }
    guard.step([&] { CloseRecordset(objRs, True); });
  }

  // Second pass: one status for each extension, from the access words of all its files. The names stand in
  // the texts as they are, so a single quote in one spoils its own statements and no others.
  if (!guard.test([&] {
        return OpenRecordset(
                   objRsExtensions,
                   u"Select Distinct [Web service extension] from tblWSExtension where [Server name] = '" +
                       strServerName + u"' ",
                   objCn, kForwardOnly, kOptimistic, kServerSide) == False;
      })) {
    Text strExtension;
    Text strAccess;
    std::int16_t intCount = 0;
    bool bStuck = false;
    while (!guard.test([&] { return automation::toBool(read(objRsExtensions, u"EOF")); })) {
      guard.step(
          [&] { strExtension = toText(readIndexed(objRsExtensions, u"Collect", u"Web service extension")); });
      if (!guard.test([&] {
            return OpenRecordset(
                       objRs,
                       u"Select Distinct [File access] from tblWSExtension where [Server name] = '" +
                           strServerName + u"' and [Web service extension]= '" + strExtension + u"'",
                       objCn, kForwardOnly, kOptimistic, kClientSide) == False;
          })) {
        guard.step([&] { intCount = toInt16(read(objRs, u"Recordcount")); });
        guard.step([&] { strAccess = toText(readIndexed(objRs, u"Collect", u"File access")); });
        if (intCount > 1) {
          guard.step([&] {
            call(objCn, u"Execute",
                 u"Update tblWSExtension set Status= 'Custom' Where [Server name]='" + strServerName +
                     u"' and [Web service extension]= '" + strExtension + u"'");
          });
        } else {
          guard.step([&] {
            call(objCn, u"Execute",
                 u"Update tblWSExtension set Status= '" + strAccess + u"' Where [Server name] ='" +
                     strServerName + u"' and [Web service extension]= '" + strExtension + u"'");
          });
        }
        guard.step([&] { CloseRecordset(objRs, True); });
      }
      // A recordset that can't be moved on would show the same extension for ever: the second time ends the
      // walk.
      const bool bMoved = guard.step([&] { call(objRsExtensions, u"MoveNext"); });
      if (!bMoved && bStuck) break;
      bStuck = !bMoved;
    }
    guard.step([&] { CloseRecordset(objRsExtensions, True); });
  }

  guard.step([&] { CloseConnection(objCn); });
  objService = nullptr;
  objRs = nullptr;
  objRsExtensions = nullptr;
  objCn = nullptr;
}

}  // namespace TORVINFTPAppDataCom
