// Discovery of sites and pools, and the component's log records.

#include <gtest/gtest.h>

#include "tests/support/component.h"

namespace test {
namespace {

using namespace automation;
using Rows = std::vector<std::string>;

TEST(FtpDiscovery, FillsTheTableOnceInMetabaseOrder) {
  ComponentEnvironment environment;
  environment.site(u"1", u" Sales ");
  environment.node(u"MSFTPSVC/INFO");
  environment.site(u"2", Null);
  environment.site(u"30", u"O'Neil's");
  EXPECT_EQ(environment.ftp.GenerateFTPSiteInfo(environment.server, environment.database), 3);
  EXPECT_EQ(environment.journal->excerpt("status.message = Loading FTP Sites from 'WEB01'",
                                         "/MSFTPSVC/INFO.Name", {{toUtf8(environment.database), "FILE"}}),
            operations(R"(status.message = Loading FTP Sites from 'WEB01'
CreateObject ADODB.Connection; Connection1.Provider = Microsoft.Jet.OLEDB.4.0; Connection1.Open(FILE)
CreateObject ADODB.Recordset; Recordset1.CursorLocation = 3; Recordset1.LockType = 2
Recordset1.CursorType = 2; Recordset1.ActiveConnection = Connection1
Recordset1.Open(Select * from tblFTPSiteInfo where [Server name] = 'WEB01')
Recordset1.EOF; GetObject IIS://WEB01/MSFTPSVC; children of /MSFTPSVC; next of /MSFTPSVC
/MSFTPSVC/1.Name; Recordset1.AddNew(); /MSFTPSVC/1.servercomment
Recordset1[Server name] = WEB01; Recordset1[FTP site name] = Sales; Recordset1[Identifier] = 1
Recordset1.Update(); next of /MSFTPSVC; /MSFTPSVC/INFO.Name)"));

  // The table is already filled: the metabase is not read again, and a new site is not added.
  environment.site(u"4", u"New");
  environment.journal->lines.clear();
  EXPECT_EQ(environment.ftp.GenerateFTPSiteInfo(environment.server, environment.database), 3);
  EXPECT_EQ(environment.journal->linesWith("GetObject"), Rows{});
  EXPECT_EQ(environment.rows(u"tblFTPSiteInfo"),
            (Rows{"WEB01|Sales|1", "WEB01|Value not set|2", "WEB01|O'Neil's|30"}));
  EXPECT_EQ(environment.log() + environment.appLog(), "");

  // A condition that fails counts as true.
  environment.journal->failAt("Recordset3.EOF");
  EXPECT_EQ(environment.ftp.GenerateFTPSiteInfo(environment.server, environment.database), 7);
}

TEST(FtpDiscovery, KeepsThePreviousValueAfterAFailedRead) {
  ComponentEnvironment environment;
  environment.server = u"O'Hara ";
  environment.site(u"1", u" Sales ");
  environment.node(u"MSFTPSVC/2");
  EXPECT_EQ(environment.ftp.GenerateFTPSiteInfo(environment.server, environment.database), 2);
  EXPECT_EQ(environment.rows(u"tblFTPSiteInfo"), (Rows{"O'Hara|Sales|1", "O'Hara|Sales|2"}));
  const std::string function = "GenerateFTPSiteInfo('O''Hara ', '" + toUtf8(environment.database) + "')";
  EXPECT_EQ(environment.log(),
            record("TORVINFTPAppDataCom", function, "80005006", "No property servercomment"));
  // The query contains the server's name without escaping.
  EXPECT_EQ(environment.journal->linesWith("Recordset1.Open"),
            Rows{"Recordset1.Open(Select * from tblFTPSiteInfo where [Server name] = 'O''Hara ')"});
}

TEST(Counts, CountAllChildren) {
  ComponentEnvironment environment;
  EXPECT_EQ(environment.ftp.GetFTPSitesCount(environment.server), -1);
  EXPECT_EQ(environment.pools.GetTotalAppPools(environment.server), 0);
  EXPECT_EQ(environment.ftp.GenerateFTPVirDirInfo(u"IIS://WEB01/MSFTPSVC"), 0);
  EXPECT_EQ(recordsIn(environment.log()), 3u);
  EXPECT_TRUE(environment.log().starts_with(
      record("FTPCollection", "GetFTPSitesCount", "80070003", "No path IIS://WEB01/MSFTPSVC")));

  for (const TextView id : {u"1", u"INFO", u"2", u"30"}) environment.site(id, Null);
  environment.pool(u"One");
  EXPECT_EQ(environment.ftp.GetFTPSitesCount(environment.server), 3);
  EXPECT_EQ(environment.ftp.GenerateFTPVirDirInfo(u"IIS://WEB01/MSFTPSVC"), 4);
  EXPECT_EQ(environment.pools.GetTotalAppPools(environment.server), 1);
  // An aborted enumeration returns the count so far.
  environment.journal->failAt("next of /MSFTPSVC", 3, 3);
  EXPECT_EQ(environment.ftp.GetFTPSitesCount(environment.server), 1);
  environment.journal->failAt("next of /MSFTPSVC", 3, 3);
  EXPECT_EQ(environment.ftp.GenerateFTPVirDirInfo(u"IIS://WEB01/MSFTPSVC"), 2);
}

TEST(PoolDiscovery, FillsTheTableOnceWithAllChildren) {
  ComponentEnvironment environment;
  environment.pool(u" Shop ");
  environment.pool(u"Info");
  environment.pool(u"Two");
  environment.journal->failAt("/W3SVC/apppools/Two.Name");
  EXPECT_EQ(environment.pools.GetAppPoolsCount(environment.server, environment.database), 3);
  EXPECT_EQ(environment.progress(), Rows{"status.message = Loading Application Pools from 'WEB01'"});
  EXPECT_EQ(environment.journal->excerpt("GetObject IIS://WEB01/W3SVC/apppools", "Recordset1.Update()"),
            operations(R"(GetObject IIS://WEB01/W3SVC/apppools; children of /W3SVC/apppools
next of /W3SVC/apppools; /W3SVC/apppools/ Shop .Name; Recordset1.AddNew()
Recordset1[Server name] = WEB01; Recordset1[Application pool name] = Shop; Recordset1.Update())"));
  EXPECT_EQ(environment.pools.GetAppPoolsCount(environment.server, environment.database), 3);
  EXPECT_EQ(environment.rows(u"tblAppPoolInfo"), (Rows{"WEB01|Shop", "WEB01|Info", "WEB01|"}));
  EXPECT_EQ(environment.journal->linesWith("GetObject").size(), 1u);
  EXPECT_EQ(environment.pools.GetAppPoolsCount(environment.server, u"nowhere.mdb"), 0);
  EXPECT_EQ(environment.log(),
            injectedFailure("AppPoolCollection", "GetAppPoolsCount") +
                record("TORVINFTPAppDataCom", "GetAppPoolsCount", "0", "Connection failure"));
}

TEST(Logs, RecordsAreLinesOfFiveFields) {
  ComponentEnvironment environment;
  environment.ftp.WriteToLog(0, u"", u"", u"f");
  environment.pools.WriteToLog(-1, u"two\r\nlines\tand a tab", Text(40, u'o'), Text(41, u'f'));
  environment.ftp.WriteToLog(0x1aB, u"M\u00FCller", u"M\u00FCller", u"f");
  const std::string blanks(40, ' ');
  EXPECT_EQ(environment.log(), "<time>\t" + blanks + "\tf" + blanks.substr(1) + "\t         0\t\r\n" +
                                   "<time>\t" + std::string(40, 'o') + "\t" + std::string(41, 'f') +
                                   "\t  FFFFFFFF\ttwo\r\nlines\tand a tab\r\n" + "<time>\tM\xC3\xBCller" +
                                   blanks.substr(6) + "\tf" + blanks.substr(1) +
                                   "\t       1AB\tM\xC3\xBCller\r\n");
}

TEST(Logs, RecordTheCallerOfAFailedOpen) {
  ComponentEnvironment environment;
  environment.site(u"1", u"s");
  environment.directory(u"MSFTPSVC/1/ROOT/a", u"C:\\a");
  environment.pool(u"Shop");
  Text& server = environment.server;
  Text root = u"IIS://WEB01/MSFTPSVC/1/ROOT", nowhere = u"nowhere.mdb";
  EXPECT_EQ(environment.ftp.GenerateFTPSiteInfo(server, nowhere), 0);
  environment.ftp.GetFTPPropertyInfo(server, nowhere, u"Message", True, u"1");
  environment.ftp.GetChildVirtualDirectories(server, root, root, nowhere);
  environment.pools.GetAppPoolPropertyInfo(server, nowhere, u"Health", True, u"Shop");
  environment.dropTable("tblvirtualDirSecurity");
  environment.ftp.GetRootVirtualDirectory(server, u"1", root, environment.database);
  EXPECT_EQ(environment.rows(u"tblvirtualDirectory").size(), 1u);
  environment.dropTable("tblGeneral");
  environment.ftp.GetFTPPropertyInfo(server, environment.database, u"General", False);
  environment.dropTable("tblFTPSiteInfo");
  EXPECT_EQ(environment.ftp.GenerateFTPSiteInfo(server, environment.database), 0);

  const std::string component = "TORVINFTPAppDataCom", module = component + "-mFTPAppPoolSupport";
  std::string expected;
  for (const std::string purpose : {"FTPSiteInfo", "Message", "Child Virtual Directory", ""}) {
    expected += record(module, "OpenConnection(" + purpose + ")", "80004005",
                       "cannot use the database 'nowhere.mdb': there is no such file");
  }
  for (const std::string table : {"tblvirtualDirSecurity", "tblGeneral", "tblFTPSiteInfo"})
    expected += record(module, "OpenRecordset", "80040E37", "temporary database: no such table: " + table);
  EXPECT_EQ(environment.appLog(), expected);
  EXPECT_EQ(environment.log(), record(component, "GenerateFTPSiteInfo", "0", "Connection failure") +
                                   record(component, "GenerateFTPSiteInfo", "0", "Recordset failure"));
}

TEST(Logs, UnwritableLogsFailSitesAndLoseRecordsOfPools) {
  ComponentEnvironment environment;
  environment.ftp.mstrErrorLogPath = environment.appLogDirectory + u"/nowhere/object.log";
  environment.pools.mstrErrorLogPath = environment.ftp.mstrErrorLogPath;
  EXPECT_THROW(environment.ftp.WriteToLog(1, u"m", u"o", u"f"), Failure);
  EXPECT_NO_THROW(environment.pools.WriteToLog(1, u"m", u"o", u"f"));
  EXPECT_THROW(environment.ftp.GetFTPSitesCount(environment.server), Failure);
  EXPECT_EQ(environment.pools.GetTotalAppPools(environment.server), 0);
}

}  // namespace
}  // namespace test
