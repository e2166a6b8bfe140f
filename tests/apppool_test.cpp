// The tabs of application pools, the web service extensions and the applications of a pool.

#include <gtest/gtest.h>

#include <cstdint>

#include "inventory/catalog/catalog.h"
#include "tests/support/component.h"

namespace test {
namespace {

using namespace automation;
using Rows = std::vector<std::string>;

const std::string kName = "TORVINFTPAppDataCom";

void collect(ComponentEnvironment& environment, TextView tab, TextView pool = u"Shop") {
  environment.pools.GetAppPoolPropertyInfo(environment.server, environment.database, Text(tab), True,
                                           Text(pool));
}

TEST(PoolDispatch, CountsFailedPools) {
  ComponentEnvironment environment;
  environment.pool(u"One");
  environment.pool(u"Two").unset(u"AppPoolState");
  environment.pool(u"Info");
  environment.pools.GetAppPoolPropertyInfo(environment.server, environment.database, u"General", False);
  EXPECT_EQ(
      environment.progress(),
      (Rows{"status.message = Loading Application Pools from 'WEB01'", "count.message = 0/3", "bar.Max = 3",
            "status.message = Processing 'One'", "bar.increment()", "count.message = 1/3",
            "status.message = Processing 'Two'", "bar.increment()", "count.message = 2/3",
            "status.message = Processing 'Info'", "bar.increment()", "count.message = 3/3"}));
  EXPECT_EQ(environment.rows(u"tblGeneral"),
            (Rows{"WEB01|-|-|-|-|-|-|Running|One", "WEB01|-|-|-|-|-|-|Running|Info"}));
  // The failure's source is recorded as the object.
  EXPECT_EQ(environment.log(),
            record("FakeObject", "GetAppPoolGeneralProperty", "80005006", "No property AppPoolState"));
}

TEST(PoolDispatch, RejectsUnknownPoolsAndTabs) {
  ComponentEnvironment environment;
  environment.pool(u"Shop");
  environment.pools.GetAppPoolPropertyInfo(environment.server, environment.database, u"General", True);
  EXPECT_EQ(environment.log(),
            record(kName, "GetAppPoolPropertyInfo", "80070003", "No path IIS://WEB01/W3SVC/AppPools/") +
                record(kName, "GetAppPoolPropertyInfo", "0", ""));
  collect(environment, u"Message");
  EXPECT_EQ(environment.journal->linesWith("CreateObject ADODB.Recordset"), Rows{});
}

TEST(PoolTabs, ReadAllPropertiesBeforeWritingTheRow) {
  const struct {
    const char16_t* tab;
    const char* steps;
  } cases[] = {
      {u"General",
       "pool.AppPoolState; row.AddNew(); row[Server name] = WEB01; row[Application pool name] = Shop\n"
       "row[State] = Running; row.Update()"},
      {u"Worker Process Recycling", R"(pool.PeriodicRestartTime; pool.PeriodicRestartRequests
pool.PeriodicRestartSchedule; row.AddNew(); row[Server name] = WEB01; row[Application pool name] = Shop
row[Recycle settings] = Enabled; row[Recycle (in minutes)] = 1740; row[Recycle request settings] = Disabled
row[Number of recycle requests] = 0; row[Recycle schedule settings] = Disabled; row[Scheduled recycle at] =
row.Update())"},
      {u"Memory Recycling", R"(pool.PeriodicRestartMemory; pool.PeriodicRestartPrivateMemory; row.AddNew()
row[Server name] = WEB01; row[Application pool name] = Shop; row[Maximum virtual memory settings] = Enabled
row[Maximum virtual memory (mb)] = 500; row[Maximum used memory settings] = Disabled
row[Maximum used memory (mb)] = 0; row.Update())"},
      {u"Performance", R"(pool.IdleTimeout; pool.AppPoolQueueLength; pool.CPULimit; pool.CPUResetInterval
pool.CPUAction; pool.MaxProcesses; row.AddNew(); row[Server name] = WEB01; row[Application pool name] = Shop
row[Idle timeout settings] = Enabled; row[Idle timeout (in minutes)] = 20
row[Request queue limit settings] = Enabled; row[Number of request queues] = 4000
row[Enable CPU monitoring] = False; row[Maximum CPU use (percentage)] = 0
row[Refresh CPU usage numbers (in minutes)] = 5
row[Action performed when CPU usage exceeds maximum CPU use] = No action
row[Maximum number of worker processes] = 1; row.Update())"},
      {u"Health", R"(pool.PingingEnabled; pool.PingInterval; pool.RapidFailProtection
pool.RapidFailProtectionmaxCrashes; pool.RapidFailProtectionInterval; pool.StartupTimeLimit
pool.ShutdownTimeLimit; row.AddNew(); row[Server name] = WEB01; row[Application pool name] = Shop
row[Enable pinging] = True; row[Ping worker process (frequency in seconds)] = 30
row[Enable rapid-fail protection] = True; row[Rapid-fail protection failures] = 5
row[Rapid-fail protection time period (in minutes)] = 6; row[Startup time limit (in seconds)] = 90
row[Shutdown time limit (in seconds)] = 91; row.Update())"},
      {u"Identity", R"(pool.AppPoolIdentityType; row.AddNew(); row[Server name] = WEB01
row[Application pool name] = Shop; row[Application pool identity settings] = Predefined
row[Security account] = Network Service; row.Update())"},
  };
  for (const auto& each : cases) {
    ComponentEnvironment environment;
    environment.pool(u"Shop");
    collect(environment, each.tab);
    EXPECT_EQ(environment.journal->excerpt(
                  "/W3SVC/AppPools/Shop.Name", "Recordset1.Update()",
                  {{"/W3SVC/AppPools/Shop.", "pool."}, {"Recordset1", "row"}, {"] = \n", "] =\n"}}),
              operations("pool.Name; status.message = Processing 'Shop'\n" + std::string(each.steps)));
  }
}

TEST(PoolTabs, ConvertNumbersToTexts) {
  const TextView recycling = u"Worker Process Recycling", memory = u"Memory Recycling";
  // The columns after the names, or the number of the failure if no row is written.
  const struct {
    TextView tab, property;
    Variant value;
    std::string expected, failure = {};
  } cases[] = {
      {recycling, u"PeriodicRestartTime", u" 60 ", "Enabled|60|Disabled|0|Disabled|"},
      {recycling, u"PeriodicRestartTime", 0, "Disabled|0|Disabled|0|Disabled|"},
      {recycling, u"PeriodicRestartRequests", 35000, "Enabled|1740|Enabled|35000|Disabled|"},
      {recycling, u"PeriodicRestartSchedule", texts({u" 03:00", u"15:30"}),
       "Enabled|1740|Disabled|0|Enabled|03:00WEB01|Shop|Enabled|1740|Disabled|0|Enabled|15:30"},
      {memory, u"PeriodicRestartMemory", 1536, "Enabled|2|Disabled|0"},
      {memory, u"PeriodicRestartMemory", 2560, "Enabled|2|Disabled|0"},
      {memory, u"PeriodicRestartMemory", 512, "Enabled|0|Disabled|0"},
      {memory, u"PeriodicRestartPrivateMemory", 513, "Enabled|500|Enabled|1"},
      {u"Performance", u"IdleTimeout", 0, "Disabled|0|Enabled|4000|False|0|5|No action|1"},
      {u"Performance", u"AppPoolQueueLength", 65535, "Enabled|20|Disabled|65535|False|0|5|No action|1"},
      {u"Performance", u"AppPoolQueueLength", 0, "Enabled|20|Enabled|0|False|0|5|No action|1"},
      {u"Performance", u"CPULimit", 2500, "Enabled|20|Enabled|4000|True|2|5|No action|1"},
      {u"Performance", u"CPULimit", 2501, "Enabled|20|Enabled|4000|True|3|5|No action|1"},
      {u"Performance", u"CPUAction", -1, "Enabled|20|Enabled|4000|False|0|5|Shutdown|1"},
      {u"Performance", u"MaxProcesses", 32768, "Enabled|20|Enabled|4000|False|0|5|No action|32768"},
      {u"Health", u"PingingEnabled", false, "False|30|True|5|6|90|91"},
      {u"Identity", u"AppPoolIdentityType", 0, "Predefined|Local System"},
      {u"Identity", u"AppPoolIdentityType", 1, "Predefined|Local Service"},
      {u"Identity", u"AppPoolIdentityType", 3, "Configurable|IWAM"},
      {u"Identity", u"AppPoolIdentityType", -4, "|"},
      {u"General", u"AppPoolState", 1, "-|-|-|-|-|-|Stopped"},
      {recycling, u"PeriodicRestartTime", u" ", "", "D"},
      {recycling, u"PeriodicRestartSchedule", u"12:00", "", "D"},
      {u"Performance", u"CPUAction", 32768, "", "6"},
      {u"Performance", u"CPUResetInterval", 32768, "", "6"},
      {u"Health", u"RapidFailProtection", 65536, "", "6"},
      {u"Identity", u"AppPoolIdentityType", Null, "", "5E"},
      {u"General", u"AppPoolState", 32768, "", "6"},
  };
  for (const auto& each : cases) {
    ComponentEnvironment environment;
    environment.pool(u"Shop").set(each.property, each.value);
    collect(environment, each.tab);
    std::string rows;
    for (const inventory::Table& table : inventory::tables()) {
      for (const std::string& row : environment.rows(fromUtf8(table.name))) rows += row;
    }
    if (each.failure.empty()) {
      const bool general = each.tab == u"General";
      EXPECT_EQ(rows, general ? "WEB01|" + each.expected + "|Shop" : "WEB01|Shop|" + each.expected);
    } else {
      EXPECT_EQ(rows, "") << toUtf8(each.property);
      EXPECT_NE(environment.log().find(" " + each.failure + "\t"), std::string::npos) << environment.log();
    }
  }
}

FakeObject& extensions(ComponentEnvironment& environment, const std::vector<Text>& entries) {
  return environment.node(u"W3SVC").set(u"WebSvcExtRestrictionList", texts(entries));
}

void collectExtensions(ComponentEnvironment& environment) {
  environment.pools.GetWebServiceExtension(environment.server, environment.database);
}

TEST(Extensions, ExecuteTheExactStatementsOfBothPasses) {
  ComponentEnvironment environment;
  extensions(environment, {u"0,*.EXE", u"-1,a.dll,1,X,Thing, cut", u"0,b.dll,1,X,Thing", u"1,*.dll"});
  collectExtensions(environment);
  EXPECT_EQ(environment.rows(u"tblWSExtension"),
            (Rows{"WEB01|CGI Extensions|All Unknown CGI Extensions|Prohibited|*.EXE|Prohibited",
                  "WEB01|X|Thing|Custom|a.dll|Allowed", "WEB01|X|Thing|Custom|b.dll|Prohibited",
                  "WEB01|ISAPI Extensions|All Unknown ISAPI Extensions|Allowed|*.dll|Allowed"}));
  EXPECT_EQ(environment.progress(), Rows{});
  EXPECT_EQ(environment.journal->excerpt("Recordset1.Open(Select * from tblWSExtension where 1=2)",
                                         "Recordset1[File access] = Allowed"),
            operations(R"(Recordset1.Open(Select * from tblWSExtension where 1=2); Recordset1.AddNew()
Recordset1[Web service extension] = CGI Extensions; Recordset1[Description] = All Unknown CGI Extensions
Recordset1[Server name] = WEB01; Recordset1[Status] = Prohibited; Recordset1[Required files path] = *.EXE
Recordset1[File access] = Prohibited; Recordset1.Update(); Recordset1.AddNew()
Recordset1[Server name] = WEB01; Recordset1[Web service extension] = X; Recordset1[Description] = Thing)") +
                "Recordset1[Status] = \n" +
                operations("Recordset1[Required files path] = a.dll; Recordset1[File access] = Allowed"));
  EXPECT_EQ(environment.journal->excerpt("Recordset1.State", "Recordset2.MoveNext()"),
            operations(R"(Recordset1.State; Recordset1.Close(); CreateObject ADODB.Recordset
Recordset2.CursorLocation = 2; Recordset2.LockType = 3; Recordset2.CursorType = 0
Recordset2.ActiveConnection = Connection1
Recordset2.Open(Select Distinct [Web service extension] from tblWSExtension where [Server name] = 'WEB01' )
Recordset2.EOF; Recordset2[Web service extension]; CreateObject ADODB.Recordset; Recordset3.CursorLocation = 3
Recordset3.LockType = 3; Recordset3.CursorType = 0; Recordset3.ActiveConnection = Connection1
Recordset3.Open(Select Distinct [File access] from tblWSExtension where [Server name] = 'WEB01' and [Web service extension]= 'CGI Extensions')
Recordset3.Recordcount; Recordset3[File access]
Connection1.Execute(Update tblWSExtension set Status= 'Prohibited' Where [Server name] ='WEB01' and [Web service extension]= 'CGI Extensions')
Recordset3.State; Recordset3.Close(); Recordset2.MoveNext())"));
  EXPECT_EQ(environment.journal->linesWith("Connection1.Execute")[1],
            "Connection1.Execute(Update tblWSExtension set Status= 'Custom' Where [Server name]='WEB01' and "
            "[Web service extension]= 'X')");
}

TEST(Extensions, KeepTheFieldsOfMalformedEntries) {
  ComponentEnvironment environment;
  extensions(environment,
             {u"7", u"no number,a.dll,1,A,First", u"0,b.dll,1,A,Second", u"1,c.dll,0,It's,Quoted"});
  collectExtensions(environment);
  EXPECT_EQ(environment.rows(u"tblWSExtension"),
            (Rows{"WEB01|||Allowed||Allowed", "WEB01|A|First|Custom|a.dll|Allowed",
                  "WEB01|A|Second|Custom|b.dll|Prohibited", "WEB01|It's|Quoted||c.dll|Allowed"}));
  std::string missing = record(kName, "GetWebServiceExtension", "9", "Subscript out of range");
  EXPECT_EQ(environment.log(),
            missing + missing + missing + record(kName, "GetWebServiceExtension", "D", "Type mismatch"));
  EXPECT_EQ(recordsIn(environment.appLog()), 1u) << "the name with the quote";
}

TEST(Extensions, TerminateAfterAnyFailure) {
  ComponentEnvironment environment;
  extensions(environment, {}).set(u"WebSvcExtRestrictionList", u"no array");
  environment.openDatabase()->execute(
      "insert into tblWSExtension values ('WEB01', 'Old', '', '', 'o.dll', 'Allowed')");
  collectExtensions(environment);
  EXPECT_EQ(environment.rows(u"tblWSExtension"), Rows{"WEB01|Old||Allowed|o.dll|Allowed"});
  EXPECT_EQ(environment.log(), record(kName, "GetWebServiceExtension", "D", "Type mismatch"));

  // The failure's source is recorded as the object.
  environment.journal->failAt("GetObject IIS://WEB01/w3svc");
  collectExtensions(environment);
  EXPECT_TRUE(environment.log().ends_with(injectedFailure("FaultInjector", "GetWebServiceExtension")));
  for (const char* operation : {"Recordset2.EOF", "Recordset2.MoveNext", "Recordset2[", "Recordset2."}) {
    ComponentEnvironment stuck;
    extensions(stuck, {u"1,a.dll,1,X,Thing", u"0,b.dll,1,Y,Thing"});
    stuck.journal->failAt(operation, 1, SIZE_MAX);
    collectExtensions(stuck);
    EXPECT_EQ(stuck.rows(u"tblWSExtension").size(), 2u);
  }
}

void enumerate(ComponentEnvironment& environment, const Text& pool = u"Shop") {
  environment.pools.EnumAppsInPool(environment.server, environment.database, pool);
}

// A web site with two bindings, whose second child has no path, and a directory in it.
void addWebSite(ComponentEnvironment& environment) {
  FakeObject& site = environment.node(u"W3SVC/1");
  site.set(u"servercomment", u" Sales' ").set(u"ServerBindings", texts({u"10.0.0.1:80:h", u":8080:h"}));
  site.set(u"Status", 1);
  environment.node(u"W3SVC/1/ROOT").set(u"Path", u"C:\\web ");
  environment.node(u"W3SVC/1/filters");
  environment.node(u"W3SVC/1/ROOT/App").set(u"Path", u"C:\\app");
}

TEST(AppliedObjects, RecordSitesAndDirectories) {
  ComponentEnvironment environment;
  addWebSite(environment);
  environment.applications(u"Other", texts({u"/LM/W3SVC/9/ROOT/"}));
  environment.applications(u"SHOP", texts({u"/LM/W3SVC/1/ROOT/", u"", u"/LM/W3SVC/1/ROOT/App/"}));
  enumerate(environment);
  EXPECT_EQ(environment.rows(u"tblAppliedObject"),
            (Rows{"WEB01|Shop|Sales'|Web site|(All Unassigned)|8080|1|C:\\web",
                  "WEB01|Shop|App|Virtual directory|-|-|-|C:\\app"}));
  EXPECT_EQ(
      environment.progress(),
      (Rows{"status.message = Loading Applied objects from 'WEB01'", "count.message = 0/3", "bar.Max = 3",
            "status.message = Processing ' Sales'' '", "bar.increment()", "count.message = 1/3",
            "status.message = Processing 'App'", "bar.increment()", "count.message = 2/3"}));
  EXPECT_EQ(environment.log(),
            record("FakeObject", "GetAppliedObjectProperties", "80005006", "No property Path"));
  const std::vector<std::pair<std::string, std::string>> names = {
      {"WMI.ExecQuery/W3SVC/APPPOOLS/", ""}, {"/W3SVC/1", "SITE"}, {"Recordset1", "row"}};
  EXPECT_EQ(environment.journal->excerpt("status.message = Loading Applied objects from 'WEB01'",
                                         "count.message = 0/3", names),
            operations(R"(status.message = Loading Applied objects from 'WEB01'
GetObject winmgmts:{authenticationLevel=pktPrivacy}\\WEB01\root\microsoftiisv2
WMI.ExecQuery(Select Name From IIsApplicationPool); children of WMI.ExecQuery; next of WMI.ExecQuery
Other.Name; next of WMI.ExecQuery; SHOP.Name; SHOP.EnumAppsInPool((empty)); count.message = 0/3)"));
  EXPECT_EQ(
      environment.journal->excerpt("GetObject IIS://WEB01/W3SVC/1", "Connection1.Close()", names),
      operations(R"(GetObject IIS://WEB01SITE; SITE.servercomment; status.message = Processing ' Sales'' '
SITE.ServerBindings; SITE.Status; children of SITE; next of SITE; SITE/ROOT.Path; next of SITE
SITE/filters.Path !; next of SITE; row.AddNew(); row[Server name] = WEB01; row[Application pool name] = Shop
row[Object name] = Sales'; row[Object type] = Web site; row[IP address] = (All Unassigned)
row[TCP port] = 8080; row[State] = 1; row[Local path] = C:\web; row.Update(); row.State; row.Close()
Connection1.State; Connection1.Close())"));
  EXPECT_EQ(environment.journal->excerpt("GetObject IIS://WEB01/W3SVC/1/ROOT/App", "Recordset2.Update()"),
            operations(R"(GetObject IIS://WEB01/W3SVC/1/ROOT/App; /W3SVC/1/ROOT/App.Name
status.message = Processing 'App'; /W3SVC/1/ROOT/App.Path; Recordset2.AddNew()
Recordset2[Server name] = WEB01; Recordset2[Application pool name] = Shop; Recordset2[Object name] = App
Recordset2[Object type] = Virtual directory; Recordset2[Local path] = C:\app; Recordset2.Update())"));
}

TEST(AppliedObjects, HandleEveryResultOfThePool) {
  const struct {
    Variant applications;
    Rows progress;
    std::size_t records;
  } cases[] = {
      {texts({u""}), {"count.message = 0/1"}, 0},
      // A condition that fails on the first element counts as true.
      {texts({}), {"count.message = 0/0", "bar.Max = 0"}, 1},
      {u"no array", {"count.message = 0/0", "bar.Max = 0"}, 3},
  };
  for (const auto& each : cases) {
    ComponentEnvironment environment;
    environment.applications(u"Shop", each.applications);
    enumerate(environment, u"sHOP");
    Rows expected = each.progress;
    expected.insert(expected.begin(), "status.message = Loading Applied objects from 'WEB01'");
    EXPECT_EQ(environment.progress(), expected);
    EXPECT_EQ(environment.rows(u"tblAppliedObject"), Rows{});
    EXPECT_EQ(recordsIn(environment.log()), each.records) << environment.log();
    enumerate(environment, u"Shops");
    EXPECT_EQ(environment.progress().size(), expected.size() + 1) << "no such pool";
  }
}

TEST(AppliedObjects, WriteRowsWithTheAvailableFields) {
  ComponentEnvironment environment;
  addWebSite(environment);
  environment.node(u"W3SVC/1")
      .set(u"servercomment", Null)
      .set(u"ServerBindings", texts({}))
      .set(u"Status", Null);
  environment.node(u"W3SVC/1/ROOT").unset(u"Path");
  environment.applications(u"Shop", texts({u"/LM/W3SVC/1/ROOT/", u"/LM/W3SVC/2/ROOT/", u"/LM/W3SVC/1/"}));
  enumerate(environment);
  EXPECT_EQ(environment.rows(u"tblAppliedObject"),
            (Rows{"WEB01|Shop||Web site|(All Unassigned)|||", "WEB01|Shop||Web site|(All Unassigned)|||",
                  "WEB01|Shop|1|Virtual directory|-|-|-|"}));
  EXPECT_EQ(environment.journal->linesWith("count.").back(), "count.message = 3/3");

  // An application whose row cannot be opened counts as processed.
  environment.dropTable("tblAppliedObject");
  const std::string log = environment.log();
  enumerate(environment);
  EXPECT_EQ(environment.journal->linesWith("count.").back(), "count.message = 3/3");
  EXPECT_EQ(environment.log(), log);
}

}  // namespace
}  // namespace test
