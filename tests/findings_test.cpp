// What is told to be worth a look: for each rule something that it holds for, and something that it doesn't.

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

  // The names of what a rule holds for, by rule, and why others weren't judged.
  std::map<std::string, Strings> found(Arguments arguments = {}) const {
    arguments.insert(arguments.begin(), {"findings", "--database", database_, "--format", "json"});
    const test::Result result = test::run(folder_, arguments);
    EXPECT_EQ(result.status, 0) << result.err;
    std::map<std::string, Strings> all;
    for (const json& row : json::parse(result.out)) {
      const bool isJudged = row["Not judged"].is_null();
      all[row["Rule"].get<std::string>() + (isJudged ? "" : "?")].push_back(
          isJudged ? row["Thing"].get<std::string>() + " " + row["Name"].get<std::string>()
                   : row["Not judged"].get<std::string>());
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

// What comes and goes between collections: nothing is known of what only the later one's list has, and what
// it hasn't any more isn't judged.
TEST_F(Findings, GoByTheLatestListAndByWhatWasLookedAt) {
  std::string text = test::contents(kWeb01);
  const auto hide = [&](const std::string& name) {
    for (std::size_t at = 0; (at = text.find("<", at)) != std::string::npos; ++at) {
      const std::size_t end = text.find('>', at);
      if (text.substr(at, end - at).find("\"/LM/" + name) == std::string::npos) continue;
      const std::size_t behind = text[end - 1] == '/' ? end + 1 : text.find("</IIs", end);
      text.erase(at, (text[end - 1] == '/' ? behind : text.find('>', behind) + 1) - at);
    }
  };
  hide("MSFTPSVC/9");
  hide("W3SVC/AppPools/Intranet Pool");
  const std::string without = "S=" + folder_.file("without.xml", text), with = "S=" + kWeb01;
  const std::string site = "site 9 (Print room)", pool = "pool Intranet Pool";
  collect({without});
  collect({with, "--only", "General"});
  auto all = found();
  EXPECT_EQ(std::ranges::count(all["anonymous-write"], site), 0);
  EXPECT_EQ(all["anonymous-write?"], Strings{"not known of " + site});
  EXPECT_EQ(all["pool-serves-nothing"], Strings{"pool IdleSpare"});
  EXPECT_EQ(all["pool-serves-nothing?"], Strings{"not known of " + pool});
  collect({with});
  all = found();
  EXPECT_EQ(std::ranges::count(all["anonymous-write"], site), 1);
  EXPECT_EQ(std::ranges::count(all["named-account"], pool), 1);
  collect({without, "--only", "General"});
  for (const auto& [rule, names] : found()) {
    EXPECT_EQ(std::ranges::count(names, site) + std::ranges::count(names, "site 9"), 0) << rule;
    EXPECT_EQ(std::ranges::count(names, pool), 0) << rule;
  }
  // Whoever has looked and found nothing knows that.
  collect({"PART=" + kWeb01, "--only", "Applied Objects", "--pool", "IdleSpare"});
  EXPECT_EQ(found({"--server", "PART"}).at("pool-serves-nothing"), Strings{"pool IdleSpare"});
}

}  // namespace
