// The class that inventories the application pools of a server, its web service extensions, and the
// applications of a pool.
#pragma once

#include <cstdint>

#include "frame/component.h"

namespace TORVINFTPAppDataCom {

// Reads the web service of a server's metabase and adds rows to the tables of a database. Public operations
// report failures as records in the log `mstrErrorLogPath` and in the application error log, and as a result
// of 0 where documented, and never throw: a record that cannot be written is lost. An object belongs to the
// thread that created it and keeps nothing open between two calls.
//
// Arguments: `strServerName` or `strIISServerName` is the name of the server as in an IIS:// path;
// `strDBName` is the full path of the database file, which contains all tables.
class AppPoolCollection {
 public:
  // Full path of the object's error log file.
  Text mstrErrorLogPath;

 private:
  // The name of the current pool.
  Text mstrAppPoolName;

 public:
  // The collector of the tab "Memory Recycling": `objObject` is the metabase object of a pool, `objRs` a
  // recordset open on tblMemoryRecycling.
  void GetMemoryRecyclingProperties(const Text& strServerName, ObjectRef& objObject, ObjectRef& objCn,
                                    ObjectRef& objRs);

  // Adds the server's web service extension restrictions to tblWSExtension, then derives a status for each
  // extension.
  void GetWebServiceExtension(const Text& strServerName, const Text& strDBName);

  // Fills tblAppPoolInfo with the pools of a server unless it already contains a row of that server. Returns
  // the number of its rows, or 0 if the database cannot be opened. Stays: the name.
  std::int16_t GetAppPoolsCount(const Text& strIISServerName, const Text& strDBName);

  // Sets the log locations: the directory of the application error log, without a trailing backslash, and the
  // full path of this object's error log. Neither is validated.
  void SetErrorLogPath(const Text& strAppErrLogPath, const Text& strErrorLogPath);

  // Appends a record to this object's error log. A record that cannot be written is lost.
  void WriteToLog(std::int32_t aErrorNumber, const Text& aErrorMessage, const Text& aObjectName,
                  const Text& aFunctionName);

  // Adds the web sites and virtual directories that the pool `strSelectedNode` serves to tblAppliedObject.
  void EnumAppsInPool(const Text& strServerName, const Text& strDBName, const Text& strSelectedNode);

  // Sets the host's progress objects, which may be null: `message` of the status bar, `Max` and `increment`
  // of the progress bar, `message` of the process count.
  void SetProcessStatusUpdater(ObjectRef& objStatusBar, ObjectRef& objProgressBar,
                               ObjectRef& objProcessCount);

  // Adds the rows of one tab: of the pool `strApplicationPoolName` if `bApplicationLevel` is True, else of
  // all pools. An unknown tab adds nothing.
  void GetAppPoolPropertyInfo(const Text& strServerName, const Text& strDBName, const Text& StrSelectedTab,
                              VariantBool bApplicationLevel, const Text& strApplicationPoolName = {});

  // The number of application pools; 0 if they cannot be reached.
  std::int16_t GetTotalAppPools(Text& strIISServerName);

 private:
  // Returns the table and the collector of a tab, or null for an unknown tab name.
  struct Tab;
  static const Tab* FindTab(TextView strName);

  // The collectors of the tabs. They receive the metabase object of a pool, the open connection, and the
  // recordset on the tab's table.
  void GetAppPoolGeneralProperty(const Text& strServerName, ObjectRef& objObject, ObjectRef& objCn,
                                 ObjectRef& objRs);
  void GetWorkerProcessRecycling(const Text& strServerName, ObjectRef& objObject, ObjectRef& objCn,
                                 ObjectRef& objRs);
  void GetPerformanceProperties(const Text& strServerName, ObjectRef& objObject, ObjectRef& objCn,
                                ObjectRef& objRs);
  void GetHealthProperties(const Text& strServerName, ObjectRef& objObject, ObjectRef& objCn,
                           ObjectRef& objRs);
  void GetIdentityProperties(const Text& strServerName, ObjectRef& objObject, ObjectRef& objCn,
                             ObjectRef& objRs);

  // Adds the row of the application at the metabase path `strAppPath`, on a separate connection.
  void GetAppliedObjectProperties(const Text& strServerName, const Text& strDBName, const Text& strAppPath,
                                  const Text& strPoolName);

  void IncrementProgressBar();
  void SetProgressBarMax(std::int16_t intMax);
  void SetStatusBarMessage(Text strMessage);
  void SetProcessCountMessage(Text strMessage);

  ObjectRef objStatusBar;
  ObjectRef objProgressBar;
  ObjectRef objProcessCount;
};

}  // namespace TORVINFTPAppDataCom
