// Which sites and pools there are, and what the component writes into its logs.

#include <gtest/gtest.h>

#include "tests/support/component.h"

namespace test {
namespace {

using namespace automation;
using Rows = std::vector<std::string>;

TEST(FtpDiscovery, FillsTheTableOnceInTheOrderOfTheMetabase) {
  ComponentWorld world;
  world.site(u"1", u" Sales ");
  world.node(u"MSFTPSVC/INFO");
  world.site(u"2", Null);
  world.site(u"30", u"O'Neil's");
  EXPECT_EQ(world.ftp.GenerateFTPSiteInfo(world.server, world.database), 3);
  EXPECT_EQ(world.journal->excerpt("status.message = Loading FTP Sites from 'WEB01'", "/MSFTPSVC/INFO.Name",
                                   {{toUtf8(world.database), "FILE"}}),
            operations(R"(status.message = Loading FTP Sites from 'WEB01'
CreateObject ADODB.Connection; Connection1.Provider = Microsoft.Jet.OLEDB.4.0; Connection1.Open(FILE)
CreateObject ADODB.Recordset; Recordset1.CursorLocation = 3; Recordset1.LockType = 2
Recordset1.CursorType = 2; Recordset1.ActiveConnection = Connection1
Recordset1.Open(Select * from tblFTPSiteInfo where [Server name] = 'WEB01')
Recordset1.EOF; GetObject IIS://WEB01/MSFTPSVC; children of /MSFTPSVC; next of /MSFTPSVC
/MSFTPSVC/1.Name; Recordset1.AddNew(); /MSFTPSVC/1.servercomment
Recordset1[Server name] = WEB01; Recordset1[FTP site name] = Sales; Recordset1[Identifier] = 1
Recordset1.Update(); next of /MSFTPSVC; /MSFTPSVC/INFO.Name)"));

  // The rows stand: the metabase isn't asked again, and what was added to it doesn't show.
  world.site(u"4", u"New");
  world.journal->lines.clear();
  EXPECT_EQ(world.ftp.GenerateFTPSiteInfo(world.server, world.database), 3);
  EXPECT_EQ(world.journal->linesWith("GetObject"), Rows{});
  EXPECT_EQ(world.rows(u"tblFTPSiteInfo"),
            (Rows{"WEB01|Sales|1", "WEB01|Value not set|2", "WEB01|O'Neil's|30"}));
  EXPECT_EQ(world.log() + world.appLog(), "");

  // A failed test counts as passed.
  world.journal->failAt("Recordset3.EOF");
  EXPECT_EQ(world.ftp.GenerateFTPSiteInfo(world.server, world.database), 7);
}

TEST(FtpDiscovery, AFailedReadKeepsTheValueOfTheChildBefore) {
  ComponentWorld world;
  world.server = u"O'Hara ";
  world.site(u"1", u" Sales ");
  world.node(u"MSFTPSVC/2");
  EXPECT_EQ(world.ftp.GenerateFTPSiteInfo(world.server, world.database), 2);
  EXPECT_EQ(world.rows(u"tblFTPSiteInfo"), (Rows{"O'Hara|Sales|1", "O'Hara|Sales|2"}));
  const std::string function = "GenerateFTPSiteInfo('O''Hara ', '" + toUtf8(world.database) + "')";
  EXPECT_EQ(world.log(), record("TORVINFTPAppDataCom", function, "80005006", "No property servercomment"));
  // The query takes the server's name as it is.
  EXPECT_EQ(world.journal->linesWith("Recordset1.Open"),
            Rows{"Recordset1.Open(Select * from tblFTPSiteInfo where [Server name] = 'O''Hara ')"});
}

TEST(FtpDiscovery, AStoreThatCannotBeOpenedLeavesARecordInEachLog) {
  ComponentWorld world;
  EXPECT_EQ(world.ftp.GenerateFTPSiteInfo(world.server, u"nowhere.mdb"), 0);
  world.store.tables.erase(u"tblftpsiteinfo");
  EXPECT_EQ(world.ftp.GenerateFTPSiteInfo(world.server, world.database), 0);
  EXPECT_EQ(world.log(), record("TORVINFTPAppDataCom", "GenerateFTPSiteInfo", "0", "Connection failure") +
                             record("TORVINFTPAppDataCom", "GenerateFTPSiteInfo", "0", "Recordset failure"));
  const std::string module = "TORVINFTPAppDataCom-mFTPAppPoolSupport";
  EXPECT_EQ(world.appLog(), record(module, "OpenConnection(FTPSiteInfo)", "80004005", "No file nowhere.mdb") +
                                record(module, "OpenRecordset", "80040E37", "No table tblFTPSiteInfo"));
}

TEST(Counts, CountChildrenWhateverTheyAre) {
  ComponentWorld world;
  EXPECT_EQ(world.ftp.GetFTPSitesCount(world.server), -1);
  EXPECT_EQ(world.pools.GetTotalAppPools(world.server), 0);
  EXPECT_EQ(world.ftp.GenerateFTPVirDirInfo(u"IIS://WEB01/MSFTPSVC"), 0);
  EXPECT_EQ(recordsIn(world.log()), 3u);
  EXPECT_TRUE(world.log().starts_with(
      record("FTPCollection", "GetFTPSitesCount", "80070003", "No path IIS://WEB01/MSFTPSVC")));

  for (const TextView id : {u"1", u"INFO", u"2", u"30"}) world.site(id, Null);
  world.pool(u"One");
  EXPECT_EQ(world.ftp.GetFTPSitesCount(world.server), 3);
  EXPECT_EQ(world.ftp.GenerateFTPVirDirInfo(u"IIS://WEB01/MSFTPSVC"), 4);
  EXPECT_EQ(world.pools.GetTotalAppPools(world.server), 1);
  // A walk that breaks off gives what it has counted.
  world.journal->failAt("next of /MSFTPSVC", 3, 3);
  EXPECT_EQ(world.ftp.GetFTPSitesCount(world.server), 1);
  world.journal->failAt("next of /MSFTPSVC", 3, 3);
  EXPECT_EQ(world.ftp.GenerateFTPVirDirInfo(u"IIS://WEB01/MSFTPSVC"), 2);
}

TEST(PoolDiscovery, FillsTheTableOnceAndSkipsNoChild) {
  ComponentWorld world;
  world.pool(u" Shop ");
  world.pool(u"Info");
  world.pool(u"Two");
  world.journal->failAt("/W3SVC/apppools/Two.Name");
  EXPECT_EQ(world.pools.GetAppPoolsCount(world.server, world.database), 3);
  EXPECT_EQ(world.progress(), Rows{"status.message = Loading Application Pools from 'WEB01'"});
  EXPECT_EQ(world.journal->excerpt("GetObject IIS://WEB01/W3SVC/apppools", "Recordset1.Update()"),
            operations(R"(GetObject IIS://WEB01/W3SVC/apppools; children of /W3SVC/apppools
next of /W3SVC/apppools; /W3SVC/apppools/ Shop .Name; Recordset1.AddNew()
Recordset1[Server name] = WEB01; Recordset1[Application pool name] = Shop; Recordset1.Update())"));
  EXPECT_EQ(world.pools.GetAppPoolsCount(world.server, world.database), 3);
  EXPECT_EQ(world.rows(u"tblAppPoolInfo"), (Rows{"WEB01|Shop", "WEB01|Info", "WEB01|"}));
  EXPECT_EQ(world.journal->linesWith("GetObject").size(), 1u);
  EXPECT_EQ(world.pools.GetAppPoolsCount(world.server, u"nowhere.mdb"), 0);
  EXPECT_EQ(world.log(), sabotaged("AppPoolCollection", "GetAppPoolsCount") +
                             record("TORVINFTPAppDataCom", "GetAppPoolsCount", "0", "Connection failure"));
}

TEST(Logs, ARecordIsALineOfFiveFields) {
  ComponentWorld world;
  world.ftp.WriteToLog(0, u"", u"", u"f");
  world.pools.WriteToLog(-1, u"two\r\nlines\tand a tab", Text(40, u'o'), Text(41, u'f'));
  world.ftp.WriteToLog(0x1aB, u"M\u00FCller", u"M\u00FCller", u"f");
  const std::string blanks(40, ' ');
  EXPECT_EQ(world.log(), "<time>\t" + blanks + "\tf" + blanks.substr(1) + "\t         0\t\r\n" + "<time>\t" +
                             std::string(40, 'o') + "\t" + std::string(41, 'f') +
                             "\t  FFFFFFFF\ttwo\r\nlines\tand a tab\r\n" + "<time>\tM\xC3\xBCller" +
                             blanks.substr(6) + "\tf" + blanks.substr(1) + "\t       1AB\tM\xC3\xBCller\r\n");
}

TEST(Logs, AnUnusableLogIsAFailureOfSitesAndALostRecordOfPools) {
  ComponentWorld world;
  world.spoilLog();
  EXPECT_THROW(world.ftp.WriteToLog(1, u"m", u"o", u"f"), Failure);
  EXPECT_NO_THROW(world.pools.WriteToLog(1, u"m", u"o", u"f"));
  EXPECT_THROW(world.ftp.GetFTPSitesCount(world.server), Failure);
  EXPECT_EQ(world.pools.GetTotalAppPools(world.server), 0);
}

}  // namespace
}  // namespace test
