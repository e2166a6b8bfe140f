// The class that inventories the FTP sites of a server.
#pragma once

#include <cstdint>

#include "frame/component.h"

namespace TORVINFTPAppDataCom {

// Reads the FTP service of a server's metabase and adds rows to the tables of a database. Public operations
// report failures as records in the log `mstrErrorLogPath` and in the application error log, and as a result
// of 0 or -1 where documented; they throw only if the log itself cannot be written. An object belongs to the
// thread that created it and keeps nothing open between two calls.
//
// Arguments: `strServerName` or `strIISServerName` is the name of the server as in an IIS:// path;
// `strDBName` is the full path of the database file, which contains all tables; `strId` or `StrIdentifier` is
// the metabase name of a site.
class FTPCollection {
 public:
  // Full path of the object's error log file.
  Text mstrErrorLogPath;

  // Returns "No" for 0, "Yes" for any other value.
  Text GetPropEnabledStatus(std::int16_t PropVal) const;

  // Adds the directories directly below the root of a site to tblvirtualDirectory, and their IP restrictions
  // to tblvirtualDirSecurity. `strFullPath` is the root's path as the host stores it.
  void GetRootVirtualDirectory(const Text& strServerName, const Text& strId, const Text& strFullPath,
                               const Text& strDBName);

  // The same for the directories directly below the object at `strPath`, an IIS:// path.
  void GetChildVirtualDirectories(Text& strServerName, Text& strId, Text& strPath, Text& strDBName);

  // The number of FTP sites; -1 if the service cannot be reached.
  std::int16_t GetFTPSitesCount(Text& strIISServerName);

  // Sets the log locations: the directory of the application error log, without a trailing backslash, and the
  // full path of this object's error log. Neither is validated.
  void SetErrorLogPath(const Text& strAppErrLogPath, const Text& strErrorLogPath);

  // Appends a record to this object's error log. Throws Failure if it cannot be written.
  void WriteToLog(std::int32_t aErrorNumber, const Text& aErrorMessage, const Text& aObjectName,
                  const Text& aFunctionName);

  // Sets the host's progress objects, which may be null: `message` of the status bar, `Max` and `increment`
  // of the progress bar, `message` of the process count.
  void SetProcessStatusUpdater(ObjectRef& objStatusBar, ObjectRef& objProgressBar,
                               ObjectRef& objProcessCount);

  // Fills tblFTPSiteInfo with the sites of a server unless it already contains a row of that server. Returns
  // the number of its rows, or 0 if the database cannot be opened.
  std::int16_t GenerateFTPSiteInfo(const Text& strServerName, const Text& strDBName);

  // The number of children of the object at `strBindingPath`; 0 if it cannot be reached. Writes nothing.
  // Stays: the name.
  std::int16_t GenerateFTPVirDirInfo(const Text& strBindingPath);

  // Adds the rows of one tab: of the site `StrIdentifier` if `bSiteLevel` is True, else of all sites. An
  // unknown tab adds nothing.
  void GetFTPPropertyInfo(const Text& strIISServerName, const Text& strDBName, const Text& StrSelectedTab,
                          VariantBool bSiteLevel, const Text& StrIdentifier = {});

 private:
  // Returns the table and the collector of a tab, or null for an unknown tab name.
  struct Tab;
  static const Tab* FindTab(TextView strName);

  // The collectors of the tabs. They receive the metabase object of a site, the open connection, and the
  // recordset on the tab's table. Return True if a row was written, False for the service's Info node and
  // after a failure.
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

  // Writes the IP restrictions of a site's root and leaves the last row pending.
  void GetRestrictedIPAddress(const Text& strServerName, const Text& strSiteName, const Text& strId,
                              ObjectRef objRs);

  void IncrementProgressBar();

  VariantBool GetDirectorySecurityProperties(const Text& strServerName, ObjectRef& objObject,
                                             ObjectRef& objCn, ObjectRef& objRs);

  // Common part of the two operations on virtual directories: lists the children of the object at
  // `strObjectPath`, whose path in the security rows is `strParentPath`.
  void ListVirtualDirectories(const Text& strObjectPath, const Text& strParentPath, const Text& strId,
                              const Text& strDBName, TextView strCaller, TextView strFunctionName);

  // Writes the IP restrictions of one virtual directory, on a separate connection.
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
