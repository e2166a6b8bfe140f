// The class that takes stock of the FTP sites of a server.
#pragma once

#include <cstdint>

#include "frame/component.h"

namespace TORVINFTPAppDataCom {

// Reads the FTP service of a server's metabase and adds rows to the tables of a database. Public operations
// report failures as records in the log `mstrErrorLogPath` and in the application error log, and as a result
// of 0 or -1 where told; they throw only when the log itself can't be written. An object stays with the
// thread that created it and keeps nothing open between two calls.
//
// Arguments: `strServerName` or `strIISServerName` is the name of the server, as it appears in an IIS://
// path; `strDBName` the full path of the database file, which has all tables already; `strId` or
// `StrIdentifier` the metabase name of a site.
class FTPCollection {
 public:
  // Whole path of the object's error log file.
  Text mstrErrorLogPath;

  // "No" for 0, "Yes" for any other value.
  Text GetPropEnabledStatus(std::int16_t PropVal) const;

  // Adds the directories directly below the root of a site to tblvirtualDirectory, and their IP restrictions
  // to tblvirtualDirSecurity. `strFullPath` is the root's path as the host holds it.
  void GetRootVirtualDirectory(const Text& strServerName, const Text& strId, const Text& strFullPath,
                               const Text& strDBName);

  // The same for the directories directly below the object at `strPath`, an IIS:// path.
  void GetChildVirtualDirectories(Text& strServerName, Text& strId, Text& strPath, Text& strDBName);

  // The number of FTP sites; -1 if the service can't be reached.
  std::int16_t GetFTPSitesCount(Text& strIISServerName);

  // Sets where records go: the directory of the application error log, without a closing backslash, and the
  // whole path of this object's error log. Neither is examined.
  void SetErrorLogPath(const Text& strAppErrLogPath, const Text& strErrorLogPath);

  // Appends a record to this object's error log. Throws Failure where that can't be done.
  void WriteToLog(std::int32_t aErrorNumber, const Text& aErrorMessage, const Text& aObjectName,
                  const Text& aFunctionName);

  // Sets the host's objects for progress, null where there is none: `message` of the status bar, `Max` and
  // `increment` of the progress bar, `message` of the process count.
  void SetProcessStatusUpdater(ObjectRef& objStatusBar, ObjectRef& objProgressBar,
                               ObjectRef& objProcessCount);

  // Fills tblFTPSiteInfo with the sites of a server unless it holds a row of it already, and returns the
  // number of its rows; 0 if the database can't be opened.
  std::int16_t GenerateFTPSiteInfo(const Text& strServerName, const Text& strDBName);

  // The number of children of the object at `strBindingPath`; 0 if it can't be reached. Writes nothing.
  // Stays: the name.
  std::int16_t GenerateFTPVirDirInfo(const Text& strBindingPath);

  // Adds the rows of one tab: of the site `StrIdentifier` if `bSiteLevel` is True, else of all sites. A tab
  // that there isn't gives nothing.
  void GetFTPPropertyInfo(const Text& strIISServerName, const Text& strDBName, const Text& StrSelectedTab,
                          VariantBool bSiteLevel, const Text& StrIdentifier = {});

 private:
  // A tab's table and its collector, found by the tab's name; null where there is no such tab.
  struct Tab;
  static const Tab* FindTab(TextView strName);

  // The collectors of the tabs: the metabase object of a site, the open connection, the recordset on the
  // tab's table. True if a row was written; False for the service's Info node and after a failure.
  VariantBool GetServerGeneralProperty(const Text& strServerName, ObjectRef& objObject, ObjectRef& objCn,
                                       ObjectRef& objRs);
  VariantBool GetLogFileSetting(const Text& strServerName, ObjectRef& objObject, ObjectRef& objCn,
                                ObjectRef& objRs);
  VariantBool GetExtendedLogProperties(const Text& strServerName, ObjectRef& objObject, ObjectRef& objCn,
                                       ObjectRef& objRs);
  VariantBool GetSecurityAccountsProperties(const Text& strServerName, ObjectRef& objObject, ObjectRef& objCn,
                                            ObjectRef& objRs);
  VariantBool GetMessageSettings(const Text& strServerName, ObjectRef& objObject, ObjectRef& objCn,
                                 ObjectRef& objRs);
  VariantBool GetHomeDirectoryProperties(const Text& strServerName, ObjectRef& objObject, ObjectRef& objCn,
                                         ObjectRef& objRs);

  // Writes the IP restrictions of a site's root, and leaves the last row open.
  void GetRestrictedIPAddress(const Text& strServerName, const Text& strSiteName, const Text& strId,
                              ObjectRef objRs);

  void IncrementProgressBar();

  VariantBool GetDirectorySecurityProperties(const Text& strServerName, ObjectRef& objObject,
                                             ObjectRef& objCn, ObjectRef& objRs);

  // What the two operations on virtual directories share: lists the children of the object at
  // `strObjectPath`, whose path towards the security rows is `strParentPath`.
  void ListVirtualDirectories(const Text& strObjectPath, const Text& strParentPath, const Text& strId,
                              const Text& strDBName, TextView strCaller, TextView strFunctionName);

  // Writes the IP restrictions of one virtual directory, on a connection of its own.
  void GetVirtualDirSecurityProperties(const Text& strDirectoryName, const Text& strId,
                                       const Text& strDirectoryPath, const Text& strParentPath,
                                       const Text& strDBName);

  void SetProgressBarMax(std::int16_t intMax);
  void SetStatusBarMessage(Text strMessage);
  void SetProcessCountMessage(Text strMessage);

  ObjectRef objStatusBar;
  ObjectRef objProgressBar;
  ObjectRef objProcessCount;
};

}  // namespace TORVINFTPAppDataCom
