// The findings of each rule: something that it holds for, and something that it does not.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "sqlite/database.h"
#include "tests/support/process.h"

namespace {

using nlohmann::json;
using test::Arguments;
using Strings = std::vector<std::string>;

const std::string kWeb01 = SAMPLES_DIRECTORY "/WEB01/MetaBase.xml";
const std::string kLegacy = SAMPLES_DIRECTORY "/LEGACY/MetaBase.xml";

// Two sites and three pools each of which differ in what the rules look at; everything else is harmless.
const std::string kServer = R"(<?xml version="1.0"?>
<configuration xmlns="urn:microsoft-catalog:XML_Metabase_V64_0"><MBProperty>
<IIsFtpService Location="/LM/MSFTPSVC" LogPluginClsid="{FF160663-DE82-11CF-BC0A-00AA006111E0}" LogFilePeriod="1"
 LogFileTruncateSize="20971520" LogFileDirectory="C:\Logs" LogFileLocaltimeRollover="FALSE" LogExtFileFlags="0"
 MaxConnections="10" ConnectionTimeout="120" MSDOSDirOutput="TRUE" AllowAnonymous="FALSE" AnonymousOnly="FALSE"
 AnonymousUserName="IUSR_ONE" AnonymousPasswordSync="TRUE" ExitMessage="" MaxClientsMessage="" DontLog="FALSE"
 GreetingMessage="" BannerMessage="" LogType="1"/>
<IIsFtpServer Location="/LM/MSFTPSVC/1" ServerComment="Bad" ServerBindings=":21:" ServerState="4"
 AllowAnonymous="TRUE" AnonymousUserName="HOME\ftp" LogType="0"/>
<IIsFtpVirtualDir Location="/LM/MSFTPSVC/1/ROOT" Path="\\FILES\drop" AccessFlags="AccessRead | AccessWrite"/>
<IIsFtpVirtualDir Location="/LM/MSFTPSVC/1/ROOT/more" Path="E:\More" AccessFlags="AccessRead"/>
<IIsFtpServer Location="/LM/MSFTPSVC/2" ServerComment="Good" ServerBindings=":2121:" ServerState="2"/>
<IIsFtpVirtualDir Location="/LM/MSFTPSVC/2/ROOT" Path="C:\Files" AccessFlags="AccessRead | AccessWrite"/>
<IIsFtpVirtualDir Location="/LM/MSFTPSVC/2/ROOT/more" Path="c:\More" AccessFlags="AccessRead"/>
</MBProperty></configuration>
)";

class Findings : public testing::Test {
 protected:
  void collect(Arguments arguments) const {
    arguments.insert(arguments.begin(), "collect");
    arguments.insert(arguments.end(), {"--database", database_, "--quiet"});
    const test::Result result = test::run(folder_, arguments);
    EXPECT_LT(result.status, 2) << result.err;
  }

  // The names of what a rule holds for, by rule, and why others could not be evaluated.
  std::map<std::string, Strings> found(Arguments arguments = {}) const {
    arguments.insert(arguments.begin(), {"findings", "--database", database_, "--format", "json"});
    const test::Result result = test::run(folder_, arguments);
    EXPECT_EQ(result.status, 0) << result.err;
    std::map<std::string, Strings> all;
    for (const json& row : json::parse(result.out)) {
      const json& why = row["Could not evaluate"];
      all[row["Rule"].get<std::string>() + (why.is_null() ? "" : "?")].push_back(
          why.is_null() ? row["Object"].get<std::string>() + " " + row["Name"].get<std::string>()
                        : why.get<std::string>());
    }
    return all;
  }

  int status(Arguments arguments) const {
    arguments.insert(arguments.begin(), {"findings", "--database", database_});
    return test::run(folder_, arguments).status;
  }

  const test::Folder folder_;
  const std::string database_ = (folder_ / "inventory.db").string();
};

TEST_F(Findings, HoldForWhatHasThemAndNothingElse) {
  collect({"ONE=" + folder_.file("one.xml", kServer)});
  const std::string more = "directory IIS://ONE/MSFTPSVC/1/ROOT/more", bad = "site 1 (Bad)";
  EXPECT_EQ(found(), (std::map<std::string, Strings>{{"anonymous-write", {bad}},
                                                     {"anonymous-from-anywhere", {bad}},
                                                     {"logging-off", {bad}},
                                                     {"network-share", {bad}},
                                                     {"other-drive", {more}},
                                                     {"named-account", {bad}},
                                                     {"stopped", {bad}}}));
  // Write permission of a directory alone, and logging of it, and addresses that are listed.
  sqlite::Database(database_, sqlite::Database::Mode::kReadWrite, {})
      .execute(
          "update tblHomeDirectorySetting set Write = 'No', \"Log visits\" = 'No'; update tblLogFileSetting "
          "set "
          "\"Enable Logging\" = 'Yes', \"ODBC User name\" = case Identifier when '2' then 'logger' end; "
          "update "
          "tblvirtualDirectory set Write = 'Yes'; update tblDirectorySecuritySetting set \"Denied IP Address "
          "(Subnet mask)\" = '10.0.0.1'; update tblSecurityAccounts set \"User name\" = 'iusr_one'");
  const auto changed = found();
  EXPECT_EQ(changed.at("anonymous-write"), Strings{bad});
  EXPECT_FALSE(changed.contains("anonymous-from-anywhere"));
  EXPECT_EQ(changed.at("logging-off"), (Strings{bad, "site 2 (Good)"}));
  EXPECT_EQ(changed.at("named-account"), Strings{"site 2 (Good)"});
}

TEST_F(Findings, OfPoolsAndExtensions) {
  collect({kWeb01});
  auto all = found();
  EXPECT_EQ(all["pool-local-system"], Strings{"pool reportsPOOL"});
  EXPECT_EQ(all["pool-no-pinging"], Strings{"pool Batch Pool"});
  EXPECT_EQ(all["pool-no-rapid-fail"], Strings{"pool Batch Pool"});
  EXPECT_EQ(all["pool-serves-nothing"], Strings{"pool IdleSpare"});
  EXPECT_EQ(std::ranges::count(all["stopped"], "pool IdleSpare"), 1);
  EXPECT_EQ(std::ranges::count(all["named-account"], "pool Intranet Pool"), 1);
  EXPECT_EQ(std::ranges::count(all["network-share"], "application Batch Pool: HR"), 1);
  EXPECT_EQ(all.count("unknown-extensions-allowed"), 0U);
  sqlite::Database(database_, sqlite::Database::Mode::kReadWrite, {})
      .execute(
          "update tblWSExtension set Status = 'Allowed' where Description like 'All Unknown CGI%' or "
          "Description = 'Server Side Includes'");
  EXPECT_EQ(found()["unknown-extensions-allowed"], Strings{"extension CGI Extensions"});
  for (const auto& [rule, names] : all) EXPECT_FALSE(rule.ends_with("?")) << rule << names.front();
  EXPECT_EQ(status({"--fail-on", "pool-local-system"}), 1);
  EXPECT_EQ(status({"--fail-on", "any", "--server", "WEB01"}), 1);
  sqlite::Database(database_, sqlite::Database::Mode::kReadWrite, {}).execute("delete from tblHealth");
  EXPECT_EQ(status({"--fail-on", "pool-no-pinging"}), 0);
  EXPECT_EQ(status({"--fail-on", "pool-no-pings"}), 2);
  EXPECT_EQ(status({"--server", "WEB02"}), 2);
}

TEST_F(Findings, RestOnNothingThatIsNotKnownOrNotCollected) {
  collect({kLegacy});
  const auto legacy = found();
  EXPECT_EQ(legacy.at("anonymous-write?"), Strings{"not known of site 4 (Mirror)"});
  EXPECT_EQ(legacy.at("network-share?"), Strings{"not known of site 4 (Mirror)"});
  EXPECT_EQ(legacy.at("stopped?"), Strings{"not known of site 7 (Old price lists)"});
  EXPECT_EQ(status({"--fail-on", "stopped"}), 1);
  collect({"PART=" + kWeb01, "--only", "Health", "--only", "Home Directory", "--site", "4", "--pool",
           "IdleSpare"});
  const auto part = found({"--server", "part"});
  EXPECT_EQ(part.at("pool-local-system?"), Strings{"not collected: tblIdentity"});
  EXPECT_EQ(part.at("anonymous-write?").front(), "not collected: tblSecurityAccounts, tblvirtualDirectory");
  EXPECT_EQ(
      part.at("pool-no-pinging?"),
      Strings{"not known of pool DefaultAppPool, pool Intranet Pool, pool reportsPOOL, pool Batch Pool, pool "
              "\u00DCbersicht"});
}

TEST_F(Findings, GoByWhatTheLatestCollectionLookedAt) {
  collect({"S=" + kWeb01, "--only", "General"});
  const auto all = found();
  EXPECT_EQ(all.at("stopped").size(), 3U);
  EXPECT_EQ(all.at("pool-no-pinging?"), Strings{"not collected: tblHealth"});
  EXPECT_FALSE(all.contains("anonymous-write"));
  collect({"S=" + kWeb01});
  EXPECT_EQ(std::ranges::count(found()["anonymous-write"], "site 9 (Print room)"), 1);
  // It looked and found nothing.
  collect({"PART=" + kWeb01, "--only", "Applied Objects", "--pool", "IdleSpare"});
  EXPECT_EQ(found({"--server", "PART"}).at("pool-serves-nothing"), Strings{"pool IdleSpare"});
}

}  // namespace
