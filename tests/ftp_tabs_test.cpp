// The tabs of FTP sites: the dispatcher, and each collector with the table that it fills.

#include <gtest/gtest.h>

#include "tests/support/component.h"

namespace test {
namespace {

using namespace automation;
using Rows = std::vector<std::string>;

const std::string kName = "TORVINFTPAppDataCom";
const TextView kExtended = u"{ff160663-DE82-11CF-BC0A-00AA006111E0} ";
const std::string kW3C = "W3C Extended Log File Format";
const std::string kOwn = "Microsoft IIS Log File Format";

void collect(ComponentEnvironment& environment, TextView tab, TextView id = u"1") {
  environment.ftp.GetFTPPropertyInfo(environment.server, environment.database, Text(tab), True, Text(id));
}

void collectAll(ComponentEnvironment& environment, TextView tab) {
  environment.ftp.GetFTPPropertyInfo(environment.server, environment.database, Text(tab), False);
}

void addThreeSites(ComponentEnvironment& environment) {
  environment.site(u"1", u"Sales' site");
  environment.node(u"MSFTPSVC/Info");
  environment.site(u"2", Null);
  environment.site(u"3", u"Third");
}

TEST(FtpDispatch, AdvanceTheProgressForEachRow) {
  ComponentEnvironment environment;
  addThreeSites(environment);
  collectAll(environment, u"General");
  EXPECT_EQ(environment.progress(),
            (Rows{"status.message = Loading FTP Sites from 'WEB01'", "count.message = 0/3", "bar.Max = 3",
                  "status.message = Processing 'Sales'' site'", "bar.increment()", "count.message = 1/3",
                  "status.message = Processing 'Value not set'", "bar.increment()", "count.message = 2/3",
                  "status.message = Processing 'Third'", "bar.increment()", "count.message = 3/3"}));
  // This collector resets the pointer for each child, including Info.
  EXPECT_EQ(environment.journal->linesWith("screen.MousePointer = 0").size(), 5u);
  EXPECT_EQ(environment.journal->excerpt("Connection2.Close()", "/MSFTPSVC/1.Name"),
            operations(R"(Connection2.Close(); count.message = 0/3; bar.Max = 3; CreateObject ADODB.Recordset
Recordset2.CursorLocation = 2; Recordset2.LockType = 3; Recordset2.CursorType = 0
Recordset2.ActiveConnection = Connection1; Recordset2.Open(Select * from tblGeneral where 1=2)
children of /MSFTPSVC; next of /MSFTPSVC; /MSFTPSVC/1.Name)"));
  // An unknown tab and an unknown site; and no progress for a single site.
  collect(environment, u"general");
  collect(environment, u"General", u"Info");
  collect(environment, u"General", u"3");
  EXPECT_EQ(environment.rows(u"tblGeneral").size(), 4u);
  EXPECT_EQ(environment.progress().size(), 13u);
  EXPECT_EQ(environment.log() + environment.appLog(), "");

  // The total remains that of the table of sites, and a failed site doesn't count.
  environment.node(u"MSFTPSVC/2").unset(u"Status");
  environment.site(u"4", u"a");
  environment.site(u"5", u"b");
  collectAll(environment, u"General");
  EXPECT_EQ(environment.journal->linesWith("count.").back(), "count.message = 4/3");
  EXPECT_EQ(environment.log(), record(kName, "GetServerGeneralProperty", "80005006", "No property Status"));
}

TEST(FtpDispatch, RejectsUnknownSites) {
  ComponentEnvironment environment;
  addThreeSites(environment);
  // The failure, then a record of the error that its handler has cleared.
  environment.ftp.GetFTPPropertyInfo(environment.server, environment.database, u"General", True);
  EXPECT_EQ(environment.log(),
            record(kName, "GetFTPPropertyInfo", "80070003", "No path IIS://WEB01/MSFTPSVC/") +
                record(kName, "GetFTPPropertyInfo", "0", ""));
}

TEST(FtpDispatch, LimitsNumbersTo16Bits) {
  ComponentEnvironment environment;
  environment.site(u"1", u"s").set(u"Anonymousonly", 32768);
  collect(environment, u"Security Accounts");
  for (int at = 2; at <= 32768; ++at)
    environment.node(u"MSFTPSVC").add(decimalText(at)).set(u"servercomment", u"s");
  EXPECT_EQ(environment.ftp.GetFTPSitesCount(environment.server), 32766);
  EXPECT_EQ(environment.log(), record(kName, "GetSecurityAccountsProperties", "6", "Overflow") +
                                   record("FTPCollection", "GetFTPSitesCount", "6", "Overflow"));
}

// A site with a value to convert in each tab.
void addSite(ComponentEnvironment& environment) {
  FakeObject& site = environment.site(u"1", u" s ").set(u"logfileperiod", 0).set(u"logtype", -1);
  site.set(u"AllowAnonymous", 0).set(u"Anonymousonly", 32767).set(u"Anonymoususername", u"");
  site.set(u"GreetingMessage", texts({u" one ", u"two "}));
  environment.directory(u"MSFTPSVC/1/other", u" \\\\FILE01\\share ")
      .set(u"accesswrite", 1)
      .set(u"dontlog", true);
  environment.node(u"MSFTPSVC/1/ROOT")
      .set(u"IPSecurity",
           Environment::ipSecurity(false, {u"10.0.0.5, 255.255.255.255", u"10.1.0.0 ,255.255.0.0,x"}));
}

TEST(FtpTabs, PerformOperationsInTheirOrder) {
  const std::string begin = "site.Name; site.servercomment; status.message = Processing ' s '";
  const std::string names =
      "row.AddNew(); row[Server name] = WEB01; row[FTP site name] = s; row[Identifier] = 1";
  const struct {
    TextView tab, format;
    std::string steps;
  } cases[] = {
      {u"General", kExtended, begin + R"(
site.ServerBindings; site.Maxconnections; site.connectiontimeout; site.Status
)" + names + R"(; row[IP Address] = 10.0.0.1; row[TCP Port] = 21; row[Maximum Connections] = 100000
row[Connection Timeout (seconds)] = 120; row[State] = Running; row.Update())"},
      {u"Log File Settings", kExtended, begin + "; site.logtype; site.logpluginclsid; " + names + R"(
row[Enable Logging] = No; row[Active log format] = W3C Extended Log File Format; site.logfileperiod
site.logfiletruncatesize; site.logfilelocaltimerollover; site.logfiledirectory
row[New Log Time Period] = When File Size Reaches: 20 MB
row[Use local time for file naming and rollover] = No; row[Log file directory] = C:\Logs
row[Log file name] = MSFTPSVC1\extend#.log; row.Update())"},
      {u"Log File Settings", u"", begin + "; site.logtype; site.logpluginclsid; " + names + R"(
row[Enable Logging] = No; row[Active log format] = Microsoft IIS Log File Format; site.logfileperiod
site.logfiletruncatesize; site.logfiledirectory; row[New Log Time Period] = When File Size Reaches: 20 MB
row[Log file directory] = C:\Logs; row[Log file name] = MSFTPSVC1\inetsv#.log; row.Update())"},
      {u"Log File Settings", u" {ff16065b-anything",
       begin + "; site.logtype; site.logpluginclsid; " + names + R"(
row[Enable Logging] = No; row[Active log format] = ODBC Logging; site.logOdbcDataSource
row[ODBC Data Source Name (DSN)] = HTTPLOG; site.logOdbcusername; row[ODBC User name] = InternetAdmin
site.logOdbctablename; row[ODBC Table name] = FTPLog; row.Update())"},
      {u"Extended Log Properties", kExtended, R"(ICommonFunction1.getos(WEB01); site.Name; row.AddNew()
site.servercomment; status.message = Processing ' s '; row[Server name] = WEB01; row[FTP site name] = s
row[Identifier] = 1; site.logpluginclsid; site.logextfileDate; row[Date] = Yes; site.logextfiletime
row[Time] = Yes; site.logextfileclientip; row[Client IP Address] = Yes; site.logextfileusername
row[User Name] = Yes; site.logextfilesitename; row[Service Name] = Yes; site.logextfilecomputername
row[Computer Name] = No; site.logextfileserverip; row[Server IP Address] = Yes; site.logextfileserverport
row[Server Port] = No; site.logextfilemethod; row[Method] = Yes; site.logextfileuristem; row[URI Stem] = No
site.logextfileuriquery; row[URI Query] = Yes; site.logextfilehttpstatus; row[Protocol Status] = No
site.logextfilewin32status; row[Win32 Status] = Yes; site.logextfilebytessent; row[Bytes Sent] = No
site.logextfilebytesrecv; row[Bytes Received] = No; site.logextfiletimetaken; row[Time Taken] = Yes
site.logextfileprotocolversion; row[Protocol Version] = No; site.logextfilehost; row[Host] = Yes
site.logextfileuseragent; row[User Agent] = No; site.logextfilecookie; row[Cookie] = Yes
site.logextfilereferer; row[Referer] = No; row.Update())"},
      {u"Security Accounts", kExtended, begin + R"(
site.AllowAnonymous; site.Anonymoususername; site.Anonymousonly; site.Anonymouspasswordsync
)" + names + R"(; row[Allow Anonymous Connections] = No
row[User name] = ; row[Allow only anonymous connections] = Yes; row[Allow IIS to control password] = Yes; row.Update())"},
      {u"Message", kExtended, "ICommonFunction1.getos(WEB01); " + begin + R"(
site.GreetingMessage; site.Exitmessage; site.bannerMessage; site.MaxClientsMessage
)" + names + R"(; row[Welcome Message] = one two; row[Exit Message] = Bye; row[Banner Message] = Banner
row[Maximum connections message] = Full; row.Update())"},
      {u"Home Directory", kExtended, begin + "; " + names + R"(
GetObject IIS://WEB01/MSFTPSVC/1; children of /MSFTPSVC/1; next of /MSFTPSVC/1; /MSFTPSVC/1/ROOT.Path
/MSFTPSVC/1/ROOT.accessread; /MSFTPSVC/1/ROOT.accesswrite; /MSFTPSVC/1/ROOT.dontlog
row[Content source] = A directory located on this computer; row[Path] = C:\ftp\1; row[Read] = Yes
row[Write] = No; row[Log visits] = Yes; next of /MSFTPSVC/1; /MSFTPSVC/1/other.Path
/MSFTPSVC/1/other.accessread; /MSFTPSVC/1/other.accesswrite; /MSFTPSVC/1/other.dontlog
row[Content source] = A directory located on this computer; row[Path] = \\FILE01\share; row[Read] = Yes
row[Write] = Yes; row[Log visits] = No; next of /MSFTPSVC/1; site.msdosdiroutput
row[Directory Listing Style] = MS-DOS; row.Update())"},
      {u"Directory Security", kExtended, begin + "; " + names + R"(
GetObject IIS://WEB01/MSFTPSVC/1/Root; /MSFTPSVC/1/Root.GetEx(IPSecurity)
/MSFTPSVC/1/Root.GetEx.GrantByDefault; row[All computer access] = Denied; /MSFTPSVC/1/Root.GetEx.IPGrant
row[Granted IP Address (Subnet mask)] = 10.0.0.5
)" + names + R"(; row[All computer access] = Denied
row[Granted IP Address (Subnet mask)] = 10.1.0.0  (255.255.0.0); row.Update())"},
  };
  for (const auto& each : cases) {
    ComponentEnvironment environment;
    addSite(environment);
    environment.node(u"MSFTPSVC/1").set(u"logpluginclsid", each.format);
    collect(environment, each.tab);
    const std::string from = each.steps[0] == 'I' ? "ICommonFunction1.getos(WEB01)" : "/MSFTPSVC/1.Name";
    EXPECT_EQ(environment.journal->excerpt(from, "Recordset1.Update()",
                                           {{"/MSFTPSVC/1.", "site."}, {"Recordset1", "row"}}),
              operations(each.steps));
  }
}

TEST(FtpGeneral, ConvertsBindingsAndStates) {
  const struct {
    std::vector<Text> bindings;
    Variant status;
    std::string expected;  // from the address on
    std::string failure = {};
  } cases[] = {
      {{u"10.0.0.1:21:", u"10.0.0.2:2121:"}, 4, "10.0.0.2|2121|100000|120|Stopped"},
      {{u":21:"}, u"6", "(All Unassigned)|21|100000|120|Paused"},
      {{u" : 21 "}, 3, "|21|100000|120|3"},
      {{u"10.0.0.1:21"}, u"", "10.0.0.1|21|100000|120|"},
      {{u"10.0.0.1"}, 2, "", "9"},
      {{u":21:"}, Null, "", "5E"},
  };
  for (const auto& each : cases) {
    ComponentEnvironment environment;
    environment.site(u"1", u"s").set(u"ServerBindings", texts(each.bindings)).set(u"Status", each.status);
    collect(environment, u"General");
    if (each.failure.empty()) {
      EXPECT_EQ(environment.rows(u"tblGeneral"), Rows{"WEB01|s|1|" + each.expected + "|-"});
    } else {
      EXPECT_EQ(environment.rows(u"tblGeneral"), Rows{});
      EXPECT_NE(environment.log().find(" " + each.failure + "\t"), std::string::npos) << environment.log();
    }
  }
}

TEST(FtpLogFile, ConvertsFormatsPeriodsAndSizes) {
  const struct {
    TextView format;
    int period;
    std::int32_t size;
    std::string name, expected, file;  // expected: the period and the use of local time
  } cases[] = {
      {kExtended, 0, -1, kW3C, "Unlimited Filesize|Yes", "extend#"},
      {kExtended, 0, 524288, kW3C, "When File Size Reaches: 0 MB|Yes", "extend#"},
      {kExtended, 0, 1572864, kW3C, "When File Size Reaches: 2 MB|Yes", "extend#"},
      // 512.5 kilobytes are rounded to the even 512, and these to none. Rounded once it would be 1.
      {kExtended, 0, 524800, kW3C, "When File Size Reaches: 0 MB|Yes", "extend#"},
      {kExtended, 1, 0, kW3C, "Daily|Yes", "exyymmdd"},
      {kExtended, 2, 0, kW3C, "Weekly|Yes", "exyymmww"},
      {kExtended, 3, 0, kW3C, "Monthly|Yes", "exyymm"},
      {kExtended, 4, 0, kW3C, "Hourly|Yes", "exyymmddhh"},
      {kExtended, 7, 0, kW3C, "|Yes", ""},
      {u"ff160663-DE82", 0, -1, kOwn, "Unlimited Filesize|-", "inetsv#"},
      {u"", 1, 0, kOwn, "Daily|-", "inyymmdd"},
      {u"{", 2, 0, kOwn, "Weekly|-", "inyymmww"},
      {u"{ff160657", 3, 0, kOwn, "Monthly|-", "inyymm"},
      {u"{ff160657", 4, 0, kOwn, "Hourly|-", "inyymmddhh"},
      {u"{ff160657", 7, 0, kOwn, "|-", ""},
  };
  for (const auto& each : cases) {
    ComponentEnvironment environment;
    FakeObject& site = environment.site(u"1", u"s").set(u"logpluginclsid", each.format);
    site.set(u"logfileperiod", each.period).set(u"logfilelocaltimerollover", -1);
    // The size is read for the first period only.
    each.period == 0 ? site.set(u"logfiletruncatesize", each.size) : site.unset(u"logfiletruncatesize");
    collect(environment, u"Log File Settings");
    const std::string file = each.file.empty() ? "" : "MSFTPSVC1\\" + each.file + ".log";
    EXPECT_EQ(environment.rows(u"tblLogFileSetting"),
              Rows{"WEB01|s|1|Yes|" + each.name + "|" + each.expected + "|C:\\Logs|" + file + "|-|-|-"});
  }
}

TEST(FtpLogFile, SavesAPendingRowWithTheNextSiteAndDropsItAtTheEnd) {
  ComponentEnvironment environment;
  addThreeSites(environment);
  environment.node(u"MSFTPSVC/1").unset(u"logfiledirectory");
  environment.node(u"MSFTPSVC/3").set(u"logfilelocaltimerollover", Null);
  collectAll(environment, u"Log File Settings");
  EXPECT_EQ(
      environment.rows(u"tblLogFileSetting"),
      (Rows{"WEB01|Sales' site|1|Yes|" + kW3C + "|-|-|-|-|-|-|-",
            "WEB01|Value not set|2|Yes|" + kW3C + R"(|Daily|No|C:\Logs|MSFTPSVC2\exyymmdd.log|-|-|-)"}));
  EXPECT_EQ(environment.journal->linesWith("Recordset2.CancelUpdate()").size(), 1u);
  EXPECT_EQ(environment.log(),
            record(kName, "GetLogFileSetting", "80005006", "No property logfiledirectory") +
                record(kName, "GetLogFileSetting", "5E", "Invalid use of Null"));
  EXPECT_EQ(environment.appLog(), record(kName + "-mFTPAppPoolSupport", "CloseRecordset", "C93",
                                         "cannot close the recordset: it has an unsaved row"));
}

TEST(FtpExtendedLog, DependsOnVersionAndFormat) {
  ComponentEnvironment environment;
  environment.version = 5;
  addThreeSites(environment);
  environment.node(u"MSFTPSVC/1").unset(u"logextfilehost").set(u"logextfilecookie", 1);
  environment.node(u"MSFTPSVC/2").set(u"logpluginclsid", u"{FF16065B-DE82").unset(u"logextfiledate");
  collectAll(environment, u"Extended Log Properties");
  ASSERT_EQ(environment.rows(u"tblExtendedLogSetting").size(), 3u);
  // Host, User Agent, Cookie, Referer.
  EXPECT_TRUE(environment.rows(u"tblExtendedLogSetting")[0].ends_with("|No||No|Yes|No"));
  EXPECT_TRUE(environment.rows(u"tblExtendedLogSetting")[1].starts_with("WEB01|Value not set|2|-|-|-"));
  EXPECT_EQ(environment.journal->linesWith("ICommonFunction1.ErrorLogPath"),
            Rows{"ICommonFunction1.ErrorLogPath = " + toUtf8(environment.ftp.mstrErrorLogPath)});
  environment.node(u"MSFTPSVC/1").set(u"GreetingMessage", texts({})).unset(u"bannerMessage");
  collect(environment, u"Message");
  EXPECT_EQ(environment.rows(u"tblMessageSetting"), Rows{"WEB01|Sales' site|1||Bye||Full"});
  // The version is read before Info is recognised, so its failure is recorded for that child as well.
  environment.journal->failAt("ICommonFunction", 1, 1000);
  collectAll(environment, u"Extended Log Properties");
  EXPECT_EQ(recordsIn(environment.log()), 4u);
}

TEST(FtpMessages, FailureClosesTheDatabaseForAllLaterSites) {
  const std::string failure = record(kName, "GetMessageSettings", "5E", "Invalid use of Null");
  const std::string later = record(kName, "GetMessageSettings", "5B", "Object variable not set") +
                            record(kName, "GetFTPPropertyInfo", "5B", "Object variable not set");
  // A failing handler leaves the database open for later sites.
  for (const bool handled : {true, false}) {
    ComponentEnvironment environment;
    addThreeSites(environment);
    environment.site(u"4", u"s");
    environment.node(u"MSFTPSVC/2").set(u"Exitmessage", Null);
    if (!handled) environment.journal->failAt("Recordset2.State");
    collectAll(environment, u"Message");
    EXPECT_EQ(environment.rows(u"tblMessageSetting").size(), handled ? 1u : 3u);
    EXPECT_EQ(environment.journal->linesWith("count.").back(),
              handled ? "count.message = 1/4" : "count.message = 3/4");
    EXPECT_EQ(environment.log(),
              failure + (handled ? later + later : injectedFailure(kName, "GetFTPPropertyInfo")));
    EXPECT_EQ(environment.appLog(), "");
    if (!handled) continue;
    EXPECT_EQ(environment.journal->excerpt("/MSFTPSVC/2.Exitmessage", "next of /MSFTPSVC"),
              operations(R"(/MSFTPSVC/2.Exitmessage; Recordset2.State; Recordset2.State; Recordset2.Close()
Connection1.State; Connection1.State; Connection1.Close(); next of /MSFTPSVC)"));
  }
}

TEST(FtpDirectories, WriteAddressListsOfAllKinds) {
  const struct {
    bool grant;
    std::vector<Text> list;
    std::string rows;
    std::size_t records;
  } cases[] = {
      {true, {}, "Granted|-|-", 0},
      {true, {u"1.3.4,255.255.255.255 ", u"1.2,255.0"}, "Granted|-|1.3.4; Granted|-|1.2 (255.0)", 0},
      {false, {u"1.2,255.0", u"1.3.4"}, "Denied|1.2 (255.0)|-; Denied|1.3.4 ()|-", 1},
      {false, {u"1.3.4,255.255.255.255", u""}, "Denied|1.3.4|-; Denied| ()|-", 2},
  };
  for (const auto& each : cases) {
    ComponentEnvironment environment;
    environment.site(u"1", u"s");
    environment.node(u"MSFTPSVC/1/ROOT").set(u"IPSecurity", Environment::ipSecurity(each.grant, each.list));
    collectAll(environment, u"Directory Security");
    std::string rows;
    for (const std::string& row : environment.rows(u"tblDirectorySecuritySetting"))
      rows += row.substr(10) + "\n";
    EXPECT_EQ(rows, operations(each.rows));
    EXPECT_EQ(recordsIn(environment.log()), each.records) << environment.log();
  }
}

TEST(FtpDirectories, HandleIncompleteRoots) {
  ComponentEnvironment environment;
  environment.node(u"MSFTPSVC/2").set(u"servercomment", Null).set(u"msdosdiroutput", 0);
  environment.site(u"3", u"s");
  environment.node(u"MSFTPSVC/3/ROOT").set(u"Path", u"\\\\FILE01\\share").set(u"IPSecurity", Null);
  collectAll(environment, u"Home Directory");
  EXPECT_EQ(environment.rows(u"tblHomeDirectorySetting")[0], "WEB01|Value not set|2|-|-|-|-|-|UNIX");
  EXPECT_TRUE(environment.rows(u"tblHomeDirectorySetting")[1].starts_with(
      "WEB01|s|3|A directory located on another computer|"));
  collectAll(environment, u"Directory Security");
  EXPECT_EQ(environment.rows(u"tblDirectorySecuritySetting"),
            (Rows{"WEB01|Value not set|2|-|-|-", "WEB01|s|3|Denied|-|-"}));
  const std::string null = record(kName, "GetRestrictedIPAddress", "5B", "Object variable not set");
  EXPECT_EQ(environment.log(),
            record(kName, "GetRestrictedIPAddress", "80070003", "No path IIS://WEB01/MSFTPSVC/2/Root") +
                null + null);
}

}  // namespace
}  // namespace test
