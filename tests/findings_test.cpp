// The built-in rules, each with a match and a non-match, and how the program processes findings.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "sqlite/database.h"
#include "tests/support/process.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using test::Arguments;
using test::Result;
using Strings = std::vector<std::string>;

const std::string kWeb01 = SAMPLES_DIRECTORY "/WEB01/MetaBase.xml";
const std::string kLegacy = SAMPLES_DIRECTORY "/LEGACY/MetaBase.xml";

// Ids below this are those of the first collection.
constexpr const char* kSecondCollection = "8589934592";

// Values that match no rule, at the thresholds of the rules that have some.
constexpr const char* kNoMatches = R"_(
tblGeneral set State = 'Running', "IP Address" = '10.0.0.1', "TCP Port" = 2000 + Identifier,
  "Maximum Connections" = '10'
tblLogFileSetting set "Enable Logging" = 'Yes', "Active log format" = 'W3C Extended Log File Format',
  "ODBC User name" = ''
tblExtendedLogSetting set "User Name" = 'Yes', "Client IP Address" = 'Yes'
tblSecurityAccounts set "Allow Anonymous Connections" = 'Yes', "User name" = 'Iusr_X',
  "Allow only anonymous connections" = 'Yes'
tblMessageSetting set "Banner Message" = 'Welcome'
tblHomeDirectorySetting set Path = '\Files' || Identifier, Write = 'No', "Log visits" = 'Yes',
  "Directory Listing Style" = 'UNIX'
tblDirectorySecuritySetting set "All computer access" = 'Denied', "Granted IP Address (Subnet mask)" = '',
  "Denied IP Address (Subnet mask)" = ''
tblvirtualDirectory set Path = '\More' || Identifier, Write = 'No'
tblWProcessRecycling set "Recycle settings" = 'True', "Recycle (in minutes)" = '1740',
  "Recycle request settings" = 'True', "Number of recycle requests" = '35000'
tblMemoryRecycling set "Maximum virtual memory settings" = 'True', "Maximum used memory settings" = 'True'
tblPerformance set "Idle timeout settings" = 'True', "Idle timeout (in minutes)" = '20',
  "Request queue limit settings" = 'True'
tblHealth set "Enable pinging" = 'True', "Enable rapid-fail protection" = 'True',
  "Rapid-fail protection failures" = '5'
tblIdentity set "Application pool identity settings" = 'Predefined', "Security account" = 'Network Service'
tblWSExtension set Status = 'Prohibited'
tblAppliedObject set "Local path" = 'c:\Web'
)_";

// RULE; TABLE; COLUMN; VALUE; UNKNOWN; EXPECTED: the findings of the rule if the first row of the table has
// the value and the view's column UNKNOWN is unknown for the last row. "+" marks findings and "?" unknown
// results; empty for "+site 1, ?site 3", or the pools of these numbers.
constexpr const char* kCases = R"_(
anonymous-write; tblHomeDirectorySetting; Write; Yes; may_write
anonymous-write; tblvirtualDirectory; Write; Yes; may_write
anonymous-from-anywhere; tblDirectorySecuritySetting; All computer access; Granted; grants_others
logging-off; tblLogFileSetting; Enable Logging; No; logging
logging-off; tblHomeDirectorySetting; Log visits; No; logs_visits
network-share; tblHomeDirectorySetting; Path; \\FILES\drop; path
network-share; tblvirtualDirectory; Path; \\FILES\drop; path; +directory 1/ROOT/dir0, ?directory 3/ROOT/dir0
other-drive; tblHomeDirectorySetting; Path; e:/Files; path
other-drive; tblAppliedObject; Local path; E:\; path; +application Pool 1: Web site number 1, ?application Pool 3: app2
named-account; tblIdentity; Application pool identity settings; Configurable; identity; +pool Pool 1, ?pool Pool 3
named-account; tblSecurityAccounts; User name; HOME\ftp; anonymous_user
named-account; tblLogFileSetting; ODBC User name; logger; odbc_user
stopped; tblGeneral; State; Stopped; state; +site 1, ?pool Pool 3
ftp-anonymous-domain-account; tblSecurityAccounts; User name; HOME\ftp; anonymous_user
ftp-anonymous-domain-account; tblSecurityAccounts; User name; all\ftp; only_anonymous; -
ftp-banner-names-product; tblMessageSetting; Banner Message; MICROSOFT FTP; banner_message
ftp-clear-text-accounts; tblSecurityAccounts; Allow only anonymous connections; No; only_anonymous
ftp-home-on-system-drive; tblHomeDirectorySetting; Path; c:\Files; path
ftp-log-format; tblLogFileSetting; Active log format; ODBC Logging; log_format
ftp-log-without-identity; tblExtendedLogSetting; User Name; No; log_user_name
ftp-log-without-identity; tblExtendedLogSetting; Client IP Address; No; log_client_ip
ftp-msdos-listing; tblHomeDirectorySetting; Directory Listing Style; MS-DOS; listing_style
ftp-nested-home; tblHomeDirectorySetting; Path; \; path
ftp-nested-home; tblvirtualDirectory; Path; \FILES2\x; path; +site 2, ?directory 3/ROOT/dir0
ftp-nested-home; tblvirtualDirectory; Path; \files1\x; path; ?directory 3/ROOT/dir0
ftp-nested-home; tblHomeDirectorySetting; Path; \Files; path; ?site 3
ftp-no-user-can-log-on; tblSecurityAccounts; Allow Anonymous Connections; No; allows_anonymous
ftp-same-binding; tblGeneral; TCP Port; 2002; state; +site 1, +site 2
ftp-shared-directory; tblHomeDirectorySetting; Path; \FILES2; path; +site 1, +site 2, ?site 3
ftp-shared-directory; tblvirtualDirectory; Path; \files2; path; +directory 1/ROOT/dir0, +site 2, ?directory 3/ROOT/dir0
ftp-unlimited-connections; tblGeneral; Maximum Connections; -1; state; +site 1
ftp-unlimited-connections; tblGeneral; Maximum Connections; 0; state; +site 1
pool-idle-timeout; tblPerformance; Idle timeout settings; False; ends_when_idle
pool-idle-timeout; tblPerformance; Idle timeout (in minutes); 21; idle_minutes
pool-local-system; tblIdentity; Security account; Local System; account
pool-no-pinging; tblHealth; Enable pinging; False; pinging
pool-no-rapid-fail; tblHealth; Enable rapid-fail protection; False; rapid_fail_protection
pool-rapid-fail-limit; tblHealth; Enable rapid-fail protection; False; rapid_fail_protection
pool-rapid-fail-limit; tblHealth; Rapid-fail protection failures; 6; rapid_fail_failures
pool-recycling-requests; tblWProcessRecycling; Recycle request settings; False; recycles_by_requests
pool-recycling-requests; tblWProcessRecycling; Number of recycle requests; 35001; recycle_requests
pool-recycling-time; tblWProcessRecycling; Recycle settings; False; recycles_by_time
pool-recycling-time; tblWProcessRecycling; Recycle (in minutes); 1741; recycle_minutes
pool-request-queue; tblPerformance; Request queue limit settings; False; limits_requests
pool-used-memory; tblMemoryRecycling; Maximum used memory settings; False; limits_used_memory
pool-virtual-memory; tblMemoryRecycling; Maximum virtual memory settings; False; limits_virtual_memory
extension-to-install; tblWSExtension; Status; Allowed; status; ?extension EXT0
)_";

// RULE; SQL; EXPECTED, for other edits.
constexpr const char* kSqlCases = R"_(
anonymous-from-anywhere; update tblDirectorySecuritySetting set "All computer access" = 'Granted',
  "Denied IP Address (Subnet mask)" = case Identifier when '2' then '10.0.0.1' end;
  update objects set incomplete = '|ftp_access|' where key = '3'; +site 1, ?site 3
anonymous-write; update tblSecurityAccounts set "Allow Anonymous Connections" = 'No';
  update tblvirtualDirectory set Write = 'Yes', not_known = '|path|'; -
ftp-nested-home; update tblvirtualDirectory set Path = case id when (select min(id) from tblvirtualDirectory)
  then '\files1\a' when (select max(id) from tblvirtualDirectory) then '\FILES1\b\' else Path end; +site 1
anonymous-write; update objects set incomplete = '|ftp_directory|' where key = '3'; ?site 3
ftp-same-binding; update tblGeneral set not_known = '|tcp_port|' where Identifier = '3'; ?site 3
ftp-unlimited-connections; update tblGeneral set not_known = '|maximum_connections|' where Identifier = '3'; ?site 3
pool-serves-nothing; update objects set parent = 0 where kind = 5 and key <> 'app1';
  update objects set incomplete = '|application|' where key = 'Pool 3'; +pool Pool 1, ?pool Pool 3
extension-to-install; update tblWSExtension set Status = 'Custom'; +extension EXT0
unknown-extensions-allowed; update tblWSExtension set Status = 'Allowed',
  not_known = case "Web service extension" when 'EXT0' then '|description|' end;
  +extension CGI Extensions, +extension ISAPI Extensions, ?extension EXT0
)_";

Strings split(const std::string& text, char separator) {
  Strings pieces;
  std::istringstream stream(text);
  for (std::string piece; std::getline(stream, piece, separator);)
    pieces.push_back(piece.substr(std::min(piece.find_first_not_of(' '), piece.size())));
  return pieces;
}

// The lines of a text after the first line break; lines that start with two blanks continue the previous one.
Strings lines(std::string text) {
  text.erase(0, 1);
  while (const auto at = text.find("\n  ") + 1) text.erase(at - 1, 2);
  return split(text, '\n');
}

class Findings : public testing::Test {
 protected:
  void collect(Arguments arguments) const {
    arguments.insert(arguments.begin(), "collect");
    arguments.insert(arguments.end(), {"--database", database_, "--quiet"});
    const Result result = test::run(folder_, arguments);
    EXPECT_LT(result.status, 2) << result.err;
  }

  Result run(Arguments arguments, int status = 0, const std::string& words = "") const {
    if (arguments[0].starts_with("--")) arguments.insert(arguments.begin(), "findings");
    arguments.insert(arguments.end(), {"--database", database_});
    const Result result = test::run(folder_, arguments);
    const std::string all = testing::PrintToString(arguments) + result.out + result.err;
    EXPECT_EQ(result.status, status) << all;
    EXPECT_NE((result.err + result.out).find(words), std::string::npos) << words << all;
    return result;
  }
  json rows(Arguments arguments) const {
    arguments.insert(arguments.begin(), {"--format", "json"});
    return json::parse(run(arguments).out);
  }

  // A rule's results for the server ALL, as "+site 1, ?site 3", and whether others were not collected.
  std::pair<std::string, bool> found(const std::string& rule) const {
    Strings all;
    bool isOmitted = false;
    for (const json& row : rows({"--rule", rule})) {
      const bool isAll = row["server"] == "ALL", isFinding = row["state"] == "finding";
      EXPECT_TRUE(isAll ? isFinding || row["state"] == "unknown" : row["state"] == "not collected") << row;
      isOmitted = isOmitted || !isAll;
      const std::string object = row["object"];
      if (isAll)
        all.push_back((isFinding ? "+" : "?") + row["object_kind"].get<std::string>() + " " +
                      object.substr(0, object.find(" (FTP")));
    }
    std::ranges::sort(all);
    std::string text;
    for (const std::string& each : all) text += (text.empty() ? "" : ", ") + each;
    return {text.empty() ? "-" : text, isOmitted};
  }

  void edit(const std::string& sql) const {
    sqlite::Database(database_, sqlite::Database::Mode::kReadWrite, {}).execute(sql);
  }
  std::string path(const std::string& name) const { return (folder_ / name).string(); }

  const test::Folder folder_;
  std::string database_ = (folder_ / "inventory.db").string();
};

TEST_F(Findings, MatchEachRulesConditions) {
  test::MetabaseOptions options{.sites = 3, .directories = 1, .pools = 3, .applications = 3, .extensions = 1};
  const std::string all = test::generateMetabase(folder_, "ALL", options);
  collect({all});
  collect({"MESSAGES" + all.substr(3), "--only", "Message"});
  collect({"HEALTH" + all.substr(3), "--only", "Health"});
  for (const std::string& sql : lines(kNoMatches)) edit("update " + sql + " where id < " + kSecondCollection);
  for (const json& row : rows({"--rule", "*", "--server", "ALL"})) ADD_FAILURE() << row;

  std::set<std::string> tested;
  const std::string base = database_;
  database_ = path("edited.db");
  const auto expect = [&](const std::string& rule, const std::string& sql, std::string expected) {
    SCOPED_TRACE(rule + ": " + sql);
    fs::copy_file(base, database_, fs::copy_options::overwrite_existing);
    edit(sql);
    if (expected.empty())
      expected = rule.starts_with("pool-") ? "+pool Pool 1, ?pool Pool 3" : "+site 1, ?site 3";
    EXPECT_EQ(found(rule), std::pair(expected, true));
    tested.insert(rule);
  };
  for (const std::string& line : lines(kCases)) {
    Strings parts = split(line, ';');
    parts.resize(6);
    const std::string where = " where id = (select ";
    const std::string from = " from " + parts[1] + " where id < " + kSecondCollection + ")";
    expect(parts[0],
           "update " + parts[1] + " set \"" + parts[2] + "\" = '" + parts[3] + "'" + where + "min(id)" +
               from + "; update " + parts[1] + " set not_known = '|" + parts[4] + "|'" + where + "max(id)" +
               from,
           parts[5]);
  }
  for (const std::string& line : lines(kSqlCases)) {
    const std::size_t first = line.find(';'), last = line.rfind("; ");
    expect(line.substr(0, first), line.substr(first + 1, last - first), line.substr(last + 2));
  }
  std::set<std::string> rules;
  for (const auto& file : fs::directory_iterator(SAMPLES_DIRECTORY "/../rules")) {
    if (file.path().extension() == ".sql") rules.insert(file.path().stem().string());
  }
  EXPECT_EQ(tested, rules);
}

TEST_F(Findings, DetermineTheExitStatus) {
  collect({kWeb01});
  collect({"PART" + ("=" + kWeb01), "--only", "Message"});
  const std::string pinging = "update tblHealth set not_known = '|pinging|', \"Enable pinging\" = 'True'";
  edit(pinging + " where \"Application pool name\" = 'Batch Pool'");
  const struct {
    Arguments arguments;
    int status;
    const char* words;
  } cases[] = {
      {{"--fail-on", "critical"}, 0, ""},
      {{"--fail-on", "HIGH"}, 1, ""},
      {{"--fail-on", "critical,pool-local-*"}, 1, ""},
      {{"--fail-on", "any", "--rule", "pool-serves-nothing"}, 1, ""},
      {{"--fail-on", "medium", "--rule", "pool-serves-nothing"}, 0, ""},
      {{"--rule", "pool-no-pinging"}, 0, ", 1 could not be evaluated, 1 not collected"},
      {{"--rule", "pool-no-pinging", "--fail-on", "any"},
       1,
       "could not evaluate pool-no-pinging for 1 object"},
      {{"--rule", "pool-no-pinging", "--fail-on", "any", "--server", "part"}, 0, "Not collected: PART"},
      {{"--rule", "pool-no-pinging", "--fail-on", "any", "--server", "part", "--strict"},
       1,
       "not collected for pool-no-pinging: 1 server"},
      {{"--fail-on", "pool-no-pings"}, 2, "no rule 'pool-no-pings' is evaluated"},
      {{"--rule", "stopped", "--fail-on", "logging-off"}, 2, "no rule 'logging-off' is evaluated"},
      {{"--server", "WEB02"}, 2, "WEB02"},
      {{"--rule", "stoped"}, 2, "stopped"},
      {{"--category", "safety"}, 2, "no category 'safety'"},
      {{"--min-severity", "worst"}, 2, "no severity 'worst'"},
      {{"--fail-on", ","}, 2, "--fail-on: the value is empty"},
      {{"--profile", "migration", "--rule", "pool-local-system"}, 2, "no rule matches these options"},
      {{"--profile", "defalt"}, 2, "default"},
      {{"--no-builtin"}, 2, "--no-builtin needs --rules"},
      {{"--format", "xml"}, 2, "unknown format 'xml'"},
      {{"--output", path("findings")}, 2, "unknown format"},
  };
  for (const auto& [arguments, status, words] : cases) run(arguments, status, words);
}

TEST_F(Findings, AreLimitedToSelectedRules) {
  const auto chosen = [&](Arguments arguments, int status = 0) {
    arguments.insert(arguments.begin(), {"rules", "--format", "json"});
    const Result result = test::run(folder_, arguments);
    EXPECT_EQ(result.status, status) << result.err;
    if (status != 0) return result.err;
    std::string all;
    for (const json& rule : json::parse(result.out)) {
      const std::string parameters = rule["Parameters"];
      all += rule["Severity"].get<std::string>() + " " + rule["Rule"].get<std::string>() +
             (parameters.empty() ? "" : " " + parameters) + "\n";
    }
    return all;
  };
  EXPECT_EQ(chosen({"--min-severity", "high", "--category", "security"}),
            "high anonymous-write\nhigh pool-local-system\nhigh unknown-extensions-allowed\n");
  EXPECT_EQ(chosen({"--rule", "stopped,pool-i*", "--rule", "FTP-HOME-ON-SYSTEM-DRIV?"}),
            "medium pool-idle-timeout minutes = 20\nlow ftp-home-on-system-drive drive = C:\ninfo stopped\n");
  EXPECT_EQ(chosen({}).find("pool-idle-timeout"), std::string::npos);
  EXPECT_NE(chosen({"--profile", "stig-iis6"}).find("pool-idle-timeout"), std::string::npos);
  const std::string own = folder_.file(
      "own.profile", "# Ours\nstop*  severity=critical\n\npool-idle-timeout minutes=5 # short\n");
  EXPECT_EQ(chosen({"--profile", own}), "critical stopped\nmedium pool-idle-timeout minutes = 5\n");
  const std::pair<std::string, std::string> malformed[] = {
      {"stopped severity=worst", "bad.profile:2: unknown severity 'worst'"},
      {"stopped severity", "bad.profile:2: 'severity' is not"},
      {"stopped minutes=5", "the rule stopped has no parameter 'minutes'"},
      {"pool-idle-timeout minutes=9999999999999999999", "'9999999999999999999' is not a valid value"},
      {"stoped", "no rule 'stoped'"}};
  for (const auto& [line, words] : malformed) {
    const std::string error = chosen({"--profile", folder_.file("bad.profile", "\n" + line)}, 2);
    EXPECT_NE(error.find(words), std::string::npos) << error;
  }
}

TEST_F(Findings, AreSuppressedByIgnoreFiles) {
  collect({kWeb01});
  const json all = rows({});
  const std::string ignored = path("base.ignore");
  run({"--write-ignore", ignored});
  EXPECT_GT(all.size(), 5U);
  EXPECT_EQ(rows({"--ignore-file", ignored}), json::array());
  run({"--ignore-file", ignored, "--fail-on", "any"}, 0, std::to_string(all.size()) + " suppressed");
  fs::copy_file(ignored, database_ + ".ignore");
  EXPECT_EQ(rows({}), json::array());
  const json shown = rows({"--show-suppressed"});
  ASSERT_EQ(shown.size(), all.size());
  for (std::size_t at = 0; at < all.size(); ++at) {
    EXPECT_EQ(shown[at]["fingerprint"], all[at]["fingerprint"]);
    EXPECT_EQ(shown[at]["state"], "suppressed");
  }
  // Writing it again keeps its entries; new findings are reported afterwards.
  run({"--write-ignore", ignored});
  EXPECT_EQ(test::contents(ignored), test::contents(database_ + ".ignore"));
  edit("update tblHealth set \"Enable pinging\" = 'False' where \"Application pool name\" = 'IdleSpare'");
  EXPECT_EQ(rows({}).size(), 1U);
  EXPECT_EQ(rows({})[0]["object"], "IdleSpare");

  folder_.file("inventory.db.ignore",
               "# Ours\n\nstop*: web01/pool/idle* | 2999-12-31 | spare | since May\r\n"
               "stopped: WEB01/site/* | 2000-01-01 | old\nlogging-off: WEB09/* |  | gone\n");
  const std::string stopped =
      run({"--rule", "stopped", "--show-suppressed"}, 0, "line 4 expired on 2000-01-01: old").out;
  EXPECT_NE(stopped.find("Suppressed: spare | since May (until 2999-12-31)"), std::string::npos) << stopped;
  EXPECT_NE(stopped.find("1 suppressed"), std::string::npos) << stopped;
  EXPECT_NE(stopped.find("site "), std::string::npos) << stopped;
  EXPECT_EQ(run({"--rule", "stopped"}).err.find("gone"), std::string::npos);
  run({"--format", "csv"}, 0, "line 5 matches no finding of these rules: gone");

  const std::string own = "# Ours\nstopped: * | | kept\n", kept = folder_.file("kept.ignore", own);
  run({"--rule", "stopped,logging-off", "--ignore-file", kept, "--write-ignore", kept});
  EXPECT_TRUE(test::contents(kept).starts_with(own)) << test::contents(kept);
  EXPECT_NE(test::contents(kept).find("logging-off: WEB01/site/"), std::string::npos);
  for (const char* const option : {"--write-ignore", "--output"}) {
    const std::string copy = path("copy.csv");
    fs::copy_file(database_, copy, fs::copy_options::overwrite_existing);
    const test::Result result = test::run(folder_, {"findings", "--database", copy, option, copy});
    EXPECT_EQ(result.status, 2) << result.err;
    EXPECT_EQ(test::contents(copy), test::contents(database_)) << option;
  }

  const std::pair<const char*, const char*> malformed[] = {
      {"0123 |  | why", "line 2: '0123' is neither"},
      {"stopped: WEB01/* | soon | why", "'soon' is not a date"},
      {"stopped: WEB01/* | 2026-12-31 | ", "the reason is missing"},
      {"stopped: WEB01/*", "line 2: expected"}};
  for (const auto& [line, words] : malformed)
    run({"--ignore-file", folder_.file("bad.ignore", std::string("#\n") + line)}, 2, words);
  run({"--ignore-file", path("none.ignore")}, 2, "it does not exist");
}

TEST_F(Findings, KeepTheirFingerprintsAcrossCollections) {
  const auto element = [](const std::string& kind, const std::string& location, const std::string& rest) {
    return "<" + kind + " Location='/LM/MSFTPSVC" + location + "' " + rest + "/>\n";
  };
  Strings sites;
  for (const std::string id : {"7", "2"}) {
    sites.push_back(element("IIsFtpServer", "/" + id, "ServerBindings=':21:' ServerComment='Old" + id + "'") +
                    element("IIsFtpVirtualDir", "/" + id + "/ROOT", "Path='D:\\" + id + "'") +
                    element("IIsFtpVirtualDir", "/" + id + "/ROOT/a", "Path='\\\\F\\a'"));
  }
  const auto fingerprints = [&](const std::string& text) {
    collect({"S=" + folder_.file("s.xml", "<configuration><MBProperty>" + element("IIsFtpService", "", "") +
                                              text + "</MBProperty></configuration>")});
    std::map<std::string, std::string> all;
    for (const json& row : rows({"--rule", "*"})) {
      if (row["state"] != "finding") continue;
      EXPECT_TRUE(
          all.emplace(row["fingerprint"], row["rule"].get<std::string>() + row["object"].dump()).second)
          << row;
    }
    return all;
  };
  const auto first = fingerprints(sites[0] + sites[1]);
  EXPECT_GT(first.size(), 8U);
  EXPECT_EQ(fingerprints(sites[1] + "\n\n" + sites[0]), first);
  std::string moved = sites[0];
  moved.replace(moved.find("D:"), 2, "E:");
  const auto after = fingerprints(sites[1] + moved);
  const std::string drive = "other-drive\"7 (Old7)\"";
  for (const auto& [print, object] : first) EXPECT_EQ(after.contains(print), object != drive) << object;
}

TEST_F(Findings, AreWrittenInTheFormatOfTheFileExtension) {
  collect({kWeb01, kLegacy});
  const std::string csv = path("a.CSV"), sarif = path("a.sarif"), lines = path("a.jsonl"),
                    text = path("a.txt");
  EXPECT_EQ(run({"--output", csv, "-o", sarif, "-o", lines, "-o", text}).out, "");
  const json all = rows({});
  const auto lineCount = [](const std::string& file) {
    return std::ranges::count(test::contents(file), '\n');
  };
  EXPECT_EQ(lineCount(csv), std::ssize(all) + 1);
  EXPECT_EQ(lineCount(lines), std::ssize(all));
  EXPECT_EQ(json::parse(test::contents(lines).substr(0, test::contents(lines).find('\n'))), all[0]);
  const json run = json::parse(test::contents(sarif))["runs"][0];
  ASSERT_EQ(run["results"].size(), all.size());
  for (std::size_t at = 0; at < all.size(); ++at) {
    const json& result = run["results"][at];
    EXPECT_EQ(result["ruleId"], all[at]["rule"]);
    if (all[at]["line"].is_null()) continue;
    EXPECT_EQ(result["locations"][0]["physicalLocation"]["region"]["startLine"], all[at]["line"]);
  }
  EXPECT_EQ(test::contents(text), test::run(folder_, {"findings", "-d", database_}).out);
}

TEST_F(Findings, OfAUserRuleMatchItsDocumentation) {
  const std::string page = test::contents(SAMPLES_DIRECTORY "/../docs/writing-rules.md");
  const std::size_t from = page.find("```sql\n") + 7;
  std::string rule = page.substr(from, page.find("```", from) - from);
  for (std::size_t at = 0; (at = rule.find("   ", at)) != rule.npos;) rule.erase(at, 3);
  const fs::path folder = folder_.folder("my-rules");
  folder_.file("my-rules/ftp-port.sql", rule);
  collect({kWeb01});
  run({"--rules", folder.string(), "--no-builtin"}, 0, "low: FTP on another port than 21 [ftp-port]");
  const auto test = [&](int status, const std::string& words) {
    const Result result = test::run(folder_, {"rules", "test", folder.string()});
    EXPECT_EQ(result.status, status) << result.err;
    EXPECT_NE(result.out.find(words), std::string::npos) << result.out;
    return result.out;
  };
  test(1, "ftp-port: no fixture");
  fs::copy_file(kWeb01, folder / "ftp-port.xml");
  const std::string out = test(1, "ftp-port: failed, there is no '");
  std::string expected;
  for (std::size_t at = out.find("  + "); at != out.npos; at = out.find("  + ", at + 1))
    expected += out.substr(at + 4, out.find('\n', at) - at - 3);
  folder_.file("my-rules/ftp-port.expected", expected);
  EXPECT_NE(expected, "");
  test(0, "ftp-port: passed\n");
  folder_.file("my-rules/ftp-port.expected", expected + "finding site 99: tcp_port = 1\n");
  test(1, "ftp-port: failed\n  - finding site 99: tcp_port = 1\n");
  run({"--rules", folder.string(), "--rule", "ftp-*"}, 0, "[ftp-unlimited-connections]");
  folder_.file("stopped.sql", rule);
  run({"--rules", (folder_ / "stopped.sql").string()}, 2,
      "stopped.sql:1: duplicate rule stopped, also in rules/stopped.sql");
  run({"--rules", folder_.folder("none").string()}, 2, "it contains no *.sql file");
}

TEST_F(Findings, OfOtherRulesRemainIfOneFails) {
  collect({kWeb01});
  const std::string header =
      "-- title: T\n-- severity: low\n-- category: security\n-- why: W\n-- fix: F\n-- requires: object\n"
      "-- columns: text text\nselect object_id, true as holds, ";
  const std::string a(32, 'a'), b(32, 'b'), c(65, 'c');
  const std::pair<std::string, const char*> cases[] = {
      {"'' as text from (select a.object_id, count(*) from object a, object b, object c, object d, object e, "
       "object f, "
       "object g group by a.object_id) x",
       "own.sql:8: the query took too long"},
      {"'' as text from (select 7 as object_id from object) x",
       "own.sql:8: an object_id identifies no object"},
      {"abs(-9223372036854775807 - length(key)) as text from object", "inventory.db': integer overflow"},
      {"replace(replace('" + a + "', 'a', '" + b + "'), 'b', '" + c + "') as text from object",
       "the column text has a value longer than 64 KiB"}};
  for (const auto& [sql, words] : cases) {
    const Result result = run({"--rules", folder_.file("own.sql", header + sql), "--rule", "stopped,own",
                               "--fail-on", "any", "--rule-timeout", "0.5"},
                              2, words);
    EXPECT_NE(result.out.find("[stopped]"), std::string::npos) << result.out;
    EXPECT_EQ(result.out.find("[own]"), std::string::npos) << result.out;
  }
}

}  // namespace
