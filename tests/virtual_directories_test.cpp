// The tree of virtual directories and its IP restrictions.

#include <gtest/gtest.h>

#include "tests/support/component.h"

namespace test {
namespace {

using namespace automation;
using Rows = std::vector<std::string>;

const std::string kName = "TORVINFTPAppDataCom";

void listRoot(ComponentEnvironment& environment, const Text& hostPath = u"IIS://WEB01/MSFTPSVC/1/ROOT") {
  environment.ftp.GetRootVirtualDirectory(environment.server, u"1", hostPath, environment.database);
}

FakeObject& addDirectory(ComponentEnvironment& environment, TextView name, TextView path) {
  return environment.directory(u"MSFTPSVC/1/ROOT/" + Text(name), path);
}

TEST(VirtualDirectories, WriteSecurityFirstOnASeparateConnection) {
  ComponentEnvironment environment;
  addDirectory(environment, u"it's ", u" C:\\a ")
      .set(u"IPSecurity", Environment::ipSecurity(false, {u"10.0.0.0,255.0.0.0"}));
  addDirectory(environment, u"share", u"\\\\FILE01\\b").set(u"accesswrite", -1).set(u"dontlog", true);
  listRoot(environment);
  const std::vector<std::pair<std::string, std::string>> names = {
      {toUtf8(environment.database), "FILE"}, {"/MSFTPSVC/1/root", "ROOT"}, {"/MSFTPSVC/1/ROOT", "HOST"}};
  EXPECT_EQ(environment.journal->excerpt("GetObject IIS://WEB01/MSFTPSVC/1/root", "bar.increment()", names),
            operations(R"(GetObject IIS://WEB01ROOT; children of ROOT
next of ROOT; next of ROOT; next of ROOT; count.message = 0/2; GetObject IIS://WEB01ROOT
CreateObject ADODB.Connection; Connection1.Provider = Microsoft.Jet.OLEDB.4.0; Connection1.Open(FILE)
CreateObject ADODB.Recordset; Recordset1.CursorLocation = 2; Recordset1.LockType = 3
Recordset1.CursorType = 0; Recordset1.ActiveConnection = Connection1
Recordset1.Open(Select * from tblvirtualDirectory where 1=2); bar.Max = 2
children of ROOT; next of ROOT; ROOT/it's .Name
CreateObject ADODB.Connection; Connection2.Provider = Microsoft.Jet.OLEDB.4.0; Connection2.Open(FILE)
CreateObject ADODB.Recordset; Recordset2.CursorLocation = 2; Recordset2.LockType = 3
Recordset2.CursorType = 0; Recordset2.ActiveConnection = Connection2
Recordset2.Open(Select * from tblvirtualDirSecurity where 1=2)
GetObject IIS://WEB01HOST/it's ; HOST/it's .GetEx(IPSecurity); Recordset2.AddNew()
Recordset2[IISPath] = IIS://WEB01HOST; Recordset2[Directory name] = it's; Recordset2[Identifier] = 1
HOST/it's .GetEx.GrantByDefault; Recordset2[All computer access] = Denied; HOST/it's .GetEx.IPGrant
Recordset2[Granted IP Address (Subnet mask)] = 10.0.0.0 (255.0.0.0); Recordset2.Update()
Recordset2.State; Recordset2.Close(); Connection2.State; Connection2.Close(); screen.MousePointer = 0
status.message = Processing  'it''s '
ROOT/it's .Path; ROOT/it's .accessread; ROOT/it's .accesswrite; ROOT/it's .dontlog
Recordset1.AddNew(); ROOT.adspath; Recordset1[IISPath] = IIS://WEB01HOST; Recordset1[Identifier] = 1
Recordset1[Directory name] = it's; Recordset1[Content source] = A directory located on this computer
Recordset1[Path] = C:\a; Recordset1[Read] = Yes; Recordset1[Write] = No; Recordset1[Log visits] = Yes
Recordset1.Update(); bar.increment())"));
  EXPECT_EQ(
      environment.rows(u"tblvirtualDirectory")[1],
      "IIS://WEB01/MSFTPSVC/1/ROOT|1|share|A directory located on another computer|\\\\FILE01\\b|Yes|Yes|No");
  EXPECT_EQ(environment.rows(u"tblvirtualDirSecurity")[1], "IIS://WEB01/MSFTPSVC/1/ROOT|share|1|Granted|-|-");
  EXPECT_EQ(environment.journal->excerpt("Recordset1.State", "Connection1.Close()"),
            operations("Recordset1.State; Recordset1.Close(); Connection1.State; Connection1.Close()"));
  EXPECT_EQ(environment.log() + environment.appLog(), "");
}

TEST(VirtualDirectories, KeepThePreviousValuesAfterAFailedRead) {
  ComponentEnvironment environment;
  addDirectory(environment, u"bare", u"")
      .unset(u"Path")
      .unset(u"accessread")
      .set(u"accesswrite", Null)
      .unset(u"dontlog");
  addDirectory(environment, u"full", u"\\\\F\\x").set(u"dontlog", true);
  addDirectory(environment, u"last", u"").set(u"Path", Null).unset(u"accessread").unset(u"dontlog");
  listRoot(environment);
  const std::string path = "IIS://WEB01/MSFTPSVC/1/ROOT|1|";
  const std::string elsewhere = "|A directory located on another computer|\\\\F\\x|Yes|No|No";
  EXPECT_EQ(environment.rows(u"tblvirtualDirectory"),
            (Rows{path + "bare|A directory located on this computer||||Yes", path + "full" + elsewhere,
                  path + "last" + elsewhere}));
  EXPECT_EQ(environment.journal->linesWith("count.").back(), "count.message = 3/3");
}

TEST(VirtualDirectories, WriteRowsForDirectoriesThatCannotBeOpened) {
  ComponentEnvironment environment;
  addDirectory(environment, u"a", u"C:\\a");
  listRoot(environment, u"IIS://WEB01/gone");
  EXPECT_EQ(environment.rows(u"tblvirtualDirSecurity"), Rows{"IIS://WEB01/gone|a|1|Denied|-|-"});
  EXPECT_EQ(environment.rows(u"tblvirtualDirectory").size(), 1u);
  const std::string notSet =
      record(kName, "GetVirtualDirSecurityProperties", "5B", "Object variable not set");
  EXPECT_EQ(environment.log(),
            record(kName, "GetVirtualDirSecurityProperties", "80070003", "No path IIS://WEB01/gone/a") +
                notSet + notSet + notSet);
}

TEST(VirtualDirectories, ListTheNextLevelByPath) {
  ComponentEnvironment environment;
  addDirectory(environment, u"a/b", u"C:\\b");
  Text server = u"unused";
  Text id = u"1 ";
  Text path = u"IIS://WEB01/msftpsvc/1/root/A";
  environment.ftp.GetChildVirtualDirectories(server, id, path, environment.database);
  EXPECT_EQ(environment.rows(u"tblvirtualDirectory"),
            Rows{"IIS://WEB01/MSFTPSVC/1/ROOT/a|1|b|A directory located on this computer|C:\\b|Yes|No|Yes"});
  EXPECT_EQ(environment.rows(u"tblvirtualDirSecurity"),
            Rows{"IIS://WEB01/msftpsvc/1/root/A|b|1|Granted|-|-"});

  environment.journal->lines.clear();
  path = u"IIS://WEB01/MSFTPSVC/1/ROOT/a/b";
  environment.ftp.GetChildVirtualDirectories(server, id, path, environment.database);
  EXPECT_EQ(environment.progress(), (Rows{"count.message = 0/0", "bar.Max = 0"}));
  EXPECT_EQ(environment.log() + environment.appLog(), "");
}

TEST(VirtualDirectories, FailWithoutARoot) {
  ComponentEnvironment environment;
  listRoot(environment);
  const std::string missing = "No path IIS://WEB01/MSFTPSVC/1/root";
  EXPECT_EQ(environment.log(), record(kName, "GenerateFTPVirDirInfo", "80070003", missing) +
                                   record(kName, "GetRootVirtualDirectory", "80070003", missing));
  EXPECT_EQ(environment.progress(), Rows{"count.message = 0/0"});
}

}  // namespace
}  // namespace test
