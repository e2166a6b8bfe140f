// The command-line program, run as a process.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "host/console/progress.h"
#include "host/report/report.h"
#include "tests/support/collection.h"
#include "tests/support/process.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using sqlite::Database;
using test::Arguments;
using test::Result;

const std::string kWeb01 = SAMPLES_DIRECTORY "/WEB01/MetaBase.xml";
const std::string kLegacy = SAMPLES_DIRECTORY "/LEGACY/MetaBase.xml";
constexpr const char* kWipe = "\r\x1b[K";

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> all;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) all.push_back(line);
  return all;
}

// Counts code points: continuation bytes take no column.
std::size_t columns(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0) != 0x80 && c != '\r';
  }));
}

class Host : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return (folder_ / name).string(); }

  std::string metabaseOf(const std::string& name, int sites) const {
    test::MetabaseOptions options = test::optionsForSites(sites);
    options.directories = 1;
    return test::generateMetabase(folder_, name, options);
  }

  Result run(const Arguments& arguments, int status = 0, const std::string& words = "",
             const std::function<void()>& prepare = {}) const {
    return test::runExpecting(folder_, arguments, status, words, prepare);
  }
  Result runCommand(Arguments arguments, int status = 0, const std::string& words = "",
                    const std::function<void()>& prepare = {}) const {
    arguments.insert(arguments.end(), {"--database", database_});
    return run(arguments, status, words, prepare);
  }
  Result collect(Arguments arguments, int status = 0, const std::string& words = "") const {
    arguments.insert(arguments.begin(), "collect");
    return runCommand(arguments, status, words);
  }

  json rows(const std::string& table) const {
    return json::parse(runCommand({"show", table, "--format", "json"}).out);
  }

  Result runOnTerminal(unsigned short width, Arguments arguments,
                       const std::function<void(pid_t, const std::string&)>& shown = {}) const {
    arguments.insert(arguments.end(), {"--database", database_});
    return test::runOnTerminal(folder_, width, arguments, shown);
  }

  test::Folder folder_;
  std::string database_ = path("inventory.db");
};

TEST_F(Host, RefusesWrongUsageAndCreatesNothing) {
  const std::string broken = folder_.file("broken.xml", "<configuration>");
  const std::string noDatabase = folder_.file("note.txt", std::string(2000, 'x'));
  const std::string here = path("new.db"), foreign = path("foreign.db");
  Database(foreign, Database::Mode::kCreate, {}).execute("create table other (a)");
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{}, "--help"},
      {{"gather"}, "no command 'gather'; commands: collect, "},
      {{"colect"}, "did you mean 'collect'?"},
      {{"collect", "--databse", here}, "no option '--databse' (did you mean '--database'?)"},
      {{"collect", "--database", here}, "METABASE is required"},
      {{"collect", kWeb01}, "--database is required"},
      {{"collect", kWeb01, "--database", path("no/such.db")}, "there is no directory '" + path("no") + "'"},
      {{"-d", here, "servers"}, "option '-d' must follow the command: iisinventory servers -d ..."},
      {{"servers", noDatabase, "-d", here}, "exclude each other"},
      {{"collect", kWeb01, "--database", noDatabase}, "it is not a database"},
      {{"collect", kWeb01, "web01=" + kLegacy, "--database", here}, "is given already"},
      {{"collect", "=x", "--database", here}, "it is empty"},
      {{"collect", kWeb01, "--database", here, "--only", "Health", "--site", "1"}, "--site: nothing"},
      {{"collect", kWeb01, "--database", here, "--jobs", "0"}, "--jobs"},
      {{"collect", kWeb01, "--database", here, "--max-size", "-1"}, "it must be greater than 0"},
      {{"collect", kWeb01, "--database", here, "--log-dir", broken}, "it is not a directory"},
      {{"collect", broken, "--database", here}, "broken: " + broken},
      {{"collect", path("gone.xml"), "--database", here}, "gone: " + path("gone.xml")},
      {{"collect", "-", "--database", here}, "put a name and '='"},
      {{"collect", "A=" SAMPLES_DIRECTORY, "--database", here}, "NAME= needs exactly one metabase; found 2"},
      {{"collect", folder_.folder("empty").string(), "--database", here}, "no metabase in "},
      {{"show", "--database", here}, "there is no such file"},
      {{"show", "--database", noDatabase}, "it is not a database"},
      {{"report", "--database", foreign}, "it has no inventory"},
  };
  for (const auto& [arguments, message] : cases) {
    const Result result = run(arguments, 2, message);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(result.err.starts_with("iisinventory: ")) << result.err;
    EXPECT_TRUE(arguments.empty() || lines(result.err).size() == 1);
    EXPECT_FALSE(fs::exists(here));
  }
  for (const char* command : {"", "collect", "check", "servers", "show", "report", "findings", "rules",
                              "diff", "rename", "remove", "copy", "verify", "schema", "redact"}) {
    const Result help =
        run(*command == '\0' ? Arguments{"--help"} : Arguments{command, "--help"}, 0, "Example");
    for (const std::string& line : lines(help.out)) EXPECT_LT(line.size(), 80U) << line;
  }
  run({"--version"}, 0, "iisinventory ");
}

TEST_F(Host, CollectsTheSampleAndShowsItInEachFormat) {
  const Result collected = collect({kWeb01}, 0, "no problems\n");
  for (const char* const command : {"show", "servers", "verify"})
    EXPECT_EQ(run({command, database_}).out, runCommand({command}).out);
  EXPECT_EQ(collected.err, "");
  for (const char c : collected.out) EXPECT_TRUE(c == '\n' || (c >= 0x20 && c < 0x7F)) << int{c};

  const json general = rows("TBLGENERAL");
  EXPECT_EQ(general.size(), 12U + 6U);
  EXPECT_TRUE(general[0]["Application pool name"].is_null());
  EXPECT_TRUE(general[17]["Identifier"].is_null());
  const std::string csv = runCommand({"show", "tblMessageSetting", "--format", "csv"}).out;
  EXPECT_TRUE(csv.starts_with("Server name,FTP site name,Identifier,Welcome Message,Exit Message,"));
  EXPECT_NE(csv.find("\r\nWEB01,Sales' site,3,"), std::string::npos);
  EXPECT_NE(csv.find("bis bald, \"\"Ostrelle\"\" "), std::string::npos);

  const std::string table = runCommand({"show", "tblAppPoolInfo"}).out;
  EXPECT_EQ(lines(table).size(), 2U + 6U);
  EXPECT_EQ(lines(table)[0], "Server name  Application pool name");
  EXPECT_NE(table.find("WEB01        Übersicht\n"), std::string::npos);

  const json collection = rows("Collections")[0];
  EXPECT_EQ(collection["Rows"], 210);
  EXPECT_EQ(collection["Rows by table"]["tblGeneral"], 12 + 6);
  EXPECT_TRUE(collection["Seconds"].is_number_float());
  EXPECT_EQ(lines(runCommand({"show"}).out).back(), "problem                         -");
}

TEST_F(Host, ReportsOnlyTheProblemsOfThisRun) {
  for (int time = 0; time < 2; ++time) {
    const Result result = collect({kLegacy}, 1, "LEGACY has no application pools (IIS 5 has none)");
    const auto records =
        lines(test::contents(path("LEGACY.log"))).size() / static_cast<std::size_t>(time + 1);
    for (const std::string& words :
         {"\n3 problems in " + std::to_string(records) + " places:\n  3 x GetVirtualDirSecurityProperties, ",
          "the logs in " + folder_.path().string() + "\n",
          std::string("\n  1 x GetServerGeneralProperty, 0x9\n      a value has too few parts (Subscript out "
                      "of range)\n"
                      "      at IIS://LEGACY/MSFTPSVC/7\n")})
      EXPECT_NE(result.out.find(words), std::string::npos) << words << result.out;
  }
  const Result quiet = collect({kLegacy, "--quiet", "--log-dir", folder_.folder("logs").string()}, 1,
                               "the logs in " + path("logs"));
  EXPECT_EQ(quiet.out, "");

  const Result mixed = collect({path("gone.xml"), kWeb01}, 1, "collected 1 server of 2 into");
  EXPECT_EQ(lines(mixed.err).size(), 1U);

  const std::string summary = collect({kLegacy, kWeb01, "--color", "always"}, 1).out;
  EXPECT_EQ(summary.find("WEB01"), std::string::npos) << summary;
  for (const char* words : {"replaced 241 rows of 2 servers", "\n\x1b[31m3 problems in 5 places\x1b[0m:\n",
                            "\n  on 1 server: LEGACY (5)\n"})
    EXPECT_NE(summary.find(words), std::string::npos) << words << summary;
  EXPECT_TRUE(collect({kLegacy, kWeb01, "-v"}, 1)
                  .out.starts_with("LEGACY: 31 rows (replaced 31), 5 problems\nWEB01: 210 rows (replaced "
                                   "210)\nLEGACY has "));
}

TEST_F(Host, DryRunReportsAndWritesNothing) {
  const auto dryRun = [&](Arguments arguments, int status) {
    arguments.push_back("--dry-run");
    return collect(arguments, status, "nothing was written\n").out;
  };
  const std::string fresh = dryRun({kLegacy, kWeb01, path("gone.xml"), "--site", "1"}, 1);
  EXPECT_NE(fresh.find("LEGACY          1      -    18         3  never            " + kLegacy + "\n"),
            fresh.npos);
  EXPECT_NE(fresh.find("would collect 2 servers of 3 into"), fresh.npos) << fresh;
  EXPECT_FALSE(fs::exists(database_) || fs::exists(path("LEGACY.log")));
  collect({kLegacy}, 1);
  const std::string before = test::contents(database_), log = test::contents(path("LEGACY.log"));
  const std::string again = dryRun({"legacy=" + kLegacy, kWeb01}, 1);
  EXPECT_NE(again.find("legacy          3      0    31         5  20"), again.npos) << again;
  EXPECT_NE(again.find("WEB01          12      6   210         0  never   "), again.npos) << again;
  EXPECT_TRUE(test::contents(database_) == before && test::contents(path("LEGACY.log")) == log);
  dryRun({path("gone.xml")}, 2);
}

TEST_F(Host, EscapesControlCharacters) {
  collect({kWeb01, "--only", "Health"});
  const std::string hostile = "\x1b[2J\r\n\u202E,\"\xFF\x9B";
  {
    Database database(database_, Database::Mode::kReadWrite, {});
    auto statement =
        database.prepare("insert into tblIdentity (id, \"Security account\") values (3 << 31, ?)");
    statement.bind(1, hostile);
    statement.step();
  }
  const std::string table = runCommand({"show", "tblIdentity"}).out;
  EXPECT_EQ(table.find_first_of("\x1b\r\xFF"), std::string::npos);
  EXPECT_EQ(table.find("\u202E"), std::string::npos);
  EXPECT_EQ(lines(table).size(), 3U);
  runCommand({"show", "tblIdentity", "--format", "csv"}, 0, "\r\n,,,\"\x1b[2J\r\n\u202E,\"\"\xFF\x9B\",\r\n");
  EXPECT_EQ(rows("tblIdentity")[0]["Security account"], "\x1b[2J\r\n\u202E,\"\uFFFD\uFFFD");
}

TEST_F(Host, FitsTheTerminalWidth) {
  collect({kWeb01});
  for (const std::string table : {"Performance", "tblExtendedLogSetting"}) {
    const Result shown = runOnTerminal(80, {"show", table}),
                 vertical = runOnTerminal(80, {"show", table, "--blocks"});
    // A header, a line per row, and the truncation note.
    EXPECT_EQ(lines(shown.out).size(), table == "Performance" ? 2U + 6U + 1U : 2U + 12U + 1U) << shown.out;
    EXPECT_GE(lines(vertical.out).size(), 18U);
    for (const std::string& line : lines(shown.out + vertical.out)) EXPECT_LE(columns(line), 80U) << line;
  }
  const Result wide = runOnTerminal(80, {"show", "Performance", "--wide"});
  EXPECT_GT(columns(lines(wide.out)[0]), 80U);
}

TEST_F(Host, ShowsSelectedRowsAndUnknownValues) {
  collect({kWeb01, kLegacy}, 1);
  const auto shown = [&](Arguments arguments, int status = 0, const std::string& words = "") {
    arguments.insert(arguments.begin(), "show");
    return runCommand(arguments, status, words).out;
  };
  const auto numbers = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--columns", "identifier", "--format", "csv"});
    std::string all;
    for (const std::string& line : lines(shown(arguments))) all += line.substr(0, line.find(',')) + " ";
    return all;
  };
  EXPECT_EQ(numbers({"tblFTPSiteInfo", "--sort", "Identifier", "--reverse", "--server", "web01", "--where",
                     "FTP site name~s", "--where", "Identifier!=2"}),
            "Identifier 1001 21 11 4 3 1 ");
  EXPECT_EQ(numbers({"tblGeneral", "--where", "state=RUNNING", "--server", "LEGACY"}), "Identifier 1 4 ");
  // The table format hides values of failed steps; the other formats show them.
  const std::vector<std::string> directory = {"Virtual Directories", "--where", "Directory name=private"};
  const std::string table = shown(directory);
  EXPECT_NE(table.find("\ntblvirtualDirSecurity\n"), std::string::npos);
  EXPECT_NE(table.find("private         1           not known"), std::string::npos) << table;
  EXPECT_EQ(table.find("Denied  "), std::string::npos) << table;
  const json row = json::parse(
      shown({"tblvirtualDirSecurity", "--where", "Directory name=private", "--format", "json"}))[0];
  EXPECT_EQ(row["All computer access"], "Denied");
  EXPECT_TRUE(std::string(row["Not known"]).starts_with("All computer access; Granted IP"));
  EXPECT_EQ(json::parse(shown({"Virtual Directories", "--format", "json"}))["tblvirtualDirectory"].size(),
            23U);
  const std::pair<std::vector<std::string>, const char*> wrong[] = {
      {{"Helth"}, "did you mean 'Health'?"},
      {{"Health", "--where", "Enable pinging"}, "COLUMN~TEXT"},
      {{"Health", "--columns", "Servername"}, "did you mean 'Server name'?"},
      {{"Health", "--server", "WEB02"}, "did you mean 'WEB01'?"},
      {{"Health", "Identity", "--format", "csv"}, "one table at a time"},
      {{"--sort", "Rows"}, "need a table"}};
  for (const auto& [arguments, words] : wrong) shown(arguments, 2, words);
}

TEST_F(Host, ReadsCollectionsOfTheHistory) {
  const auto listed = [&](Arguments arguments) {
    arguments.insert(arguments.end(), {"--format", "JSON"});
    return json::parse(runCommand(arguments).out);
  };
  collect({"WEB=" + kLegacy}, 1);
  runCommand({"servers", "--set-keep", "2"}, 0, "keeps 2 collections of each server (before: 1)");
  collect({"WEB=" + kWeb01});
  runCommand({"servers"}, 0, "keeps the latest 2 collections");
  const json history = listed({"servers", "--history", "--server", "web"});
  ASSERT_EQ(history.size(), 2U);
  EXPECT_EQ(history[0]["Current"], "no");
  EXPECT_EQ(history[1]["File"], kWeb01);
  const std::string time = history[0]["Collected"];
  EXPECT_EQ(listed({"show", "ftp_site"}).size(), 12U);
  const json sites = listed({"show", "FTP_site", "--at", time, "--where", "identifier!=1"});
  EXPECT_EQ(sites.size(), 2U);
  EXPECT_TRUE(sites[0]["identifier"].is_number() && sites[0]["logging"].is_boolean()) << sites[0];
  std::vector<std::string> described;
  for (const json& entry : json::parse(run({"schema", "ftp_SITE", "--format", "json"}).out))
    described.push_back(entry["Column"]);
  for (const auto& [name, value] : sites[0].items())
    EXPECT_NE(std::ranges::find(described, name), described.end()) << name;
  EXPECT_EQ(listed({"show", "--at", time})[0]["Rows"], 3);
  runCommand({"show", "--at", "2000-01-01"}, 2, "no collections at 2000-01-01T");
  run({"schema", "ftp_sit"}, 2, "did you mean 'ftp_site'?");
  runCommand({"verify"}, 0, ": 2 collections of 1 server, no problems found\n");
  runCommand({"remove", "WEB", "--before", "9999-01-01"}, 0, ": 31 rows\n");
  EXPECT_EQ(listed({"servers", "--history"}).size(), 1U);
}

// An existing file keeps its owner and permissions; the database and a read-only file are refused; a device
// stays a device.
TEST_F(Host, ReplacesReportFilesAtomically) {
  collect({kWeb01});
  const auto report = [&](const std::string& output, int status, const std::string& words = "") {
    run({"report", "-d", database_, "-o", output}, status, words);
  };
  const std::string page = folder_.file("page.html", "former");
  fs::permissions(page, fs::perms(0400));
  report(page, 2, "the file is read-only");
  EXPECT_EQ(test::contents(page), "former");
  fs::permissions(page, fs::perms(0600));
  const bool isRoot = ::chown(page.c_str(), 4321, 8765) == 0;
  fs::create_symlink(page, path("link.html"));
  report(path("no/such/page.html"), 2);
  report(path("link.html"), 0);
  EXPECT_TRUE(fs::is_symlink(path("link.html")));
  EXPECT_EQ(fs::status(page).permissions(), fs::perms(0600));
  struct stat status {};
  ASSERT_EQ(::stat(page.c_str(), &status), 0);
  EXPECT_TRUE(!isRoot || (status.st_uid == 4321 && status.st_gid == 8765));
  EXPECT_TRUE(test::contents(page).ends_with("</html>\n"));
  report("/dev/full", 2, "cannot write '/dev/full': No space left");
  EXPECT_TRUE(fs::is_character_file("/dev/full"));
  fs::create_symlink(database_, path("other.db"));
  report(path("other.db"), 2, "it is the database");
  EXPECT_FALSE(rows("tblFTPSiteInfo").empty());
  for (const auto& entry : fs::directory_iterator(folder_.path()))
    EXPECT_NE(entry.path().extension(), ".new");
}

// The pages link to each other. A run that fails leaves the index as it is; a page that is too large is not
// written. Notes are not problems.
TEST_F(Host, WritesAPageForEachServer) {
  collect({kWeb01, "<a>=" + kLegacy}, 1);
  const auto report = [&](const Arguments& more, int status, const std::string& words = "") {
    Arguments arguments{"report", "-d", database_, "-o", path("pages/")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    run(arguments, status, words);
  };
  report({}, 0);
  const std::string index = test::contents(path("pages/index.html"));
  std::set<std::string> found;
  for (const auto& entry : fs::directory_iterator(path("pages"))) {
    const std::string name = entry.path().filename();
    found.insert(name);
    if (name == "index.html") continue;
    EXPECT_NE(index.find("<a href=\"" + name + "\">"), index.npos) << name;
    EXPECT_NE(test::contents(entry.path()).find("<a href=\"index.html\">All servers</a>"), index.npos);
  }
  EXPECT_EQ(found.size(), 3U);
  EXPECT_TRUE(found.contains("server-web01.html"));
  fs::remove(path("pages/server-web01.html"));
  fs::create_directory(path("pages/server-web01.html"));
  report({"--server", "WEB01"}, 2, "server-web01.html': Is a directory");
  EXPECT_EQ(test::contents(path("pages/index.html")), index);
  fs::remove(path("pages/server-web01.html"));
  ASSERT_EQ(mkfifo(path("pages/server-web01.html").c_str(), 0600), 0);
  report({"--server", "WEB01"}, 2, "it is not a regular file");
  fs::remove(path("pages/server-web01.html"));
  folder_.file("pages/server-mine.html", "<!DOCTYPE html>");
  report({"--server", "WEB01"}, 0);  // removes only its own page of the other server
  EXPECT_EQ(std::distance(fs::directory_iterator(path("pages")), {}), 3);

  Database(database_, Database::Mode::kCreate, {}).execute("update Problems set Kind = 'note'");
  host::ReportOptions options{database_, {}, {}, path("page.html")};
  options.maxBytes = 1'000'000;
  host::Output output;
  EXPECT_NO_THROW(host::report(options, output));
  const std::string page = test::contents(path("page.html"));
  EXPECT_TRUE(page.find("<h3>Notes <") != page.npos && page.find("<h3>Problems") == page.npos);
  options.maxBytes = 10'000;
  EXPECT_THROW(host::report(options, output), std::runtime_error);
  EXPECT_EQ(test::contents(path("page.html")), page);
}

TEST_F(Host, ShowsProgressOnOneErasedLine) {
  const std::string many = metabaseOf("MANY", 400);
  const Result result = runOnTerminal(60, {"collect", many, kLegacy, "--only", "Message"});
  const std::size_t summary = result.out.find("collected 2 servers");
  ASSERT_NE(summary, std::string::npos);
  EXPECT_NE(result.out.find("1/2 MANY: Loading FTP Sites"), std::string::npos);
  EXPECT_NE(result.out.find("[--------"), std::string::npos);
  const std::size_t lastWipe = result.out.rfind(kWipe);
  ASSERT_NE(lastWipe, std::string::npos);
  for (const std::string& line : lines(result.out.substr(lastWipe + 4)))
    EXPECT_EQ(line.find('['), std::string::npos);
  for (std::size_t at = result.out.find(kWipe); at != lastWipe;) {
    const std::size_t next = result.out.find(kWipe, at + 1);
    EXPECT_LT(columns(result.out.substr(at + 4, next - at - 4)), 60U);
    at = next;
  }
  EXPECT_EQ(runOnTerminal(60, {"collect", many, "--quiet"}).out, "");
}

TEST(Progress, EstimatesTheRemainingTime) {
  using std::chrono::seconds;
  EXPECT_EQ(host::timeLeft(seconds(4), 1, 1000), "");
  EXPECT_EQ(host::timeLeft(seconds(60), 0, 2), "");
  EXPECT_EQ(host::timeLeft(seconds(60), 90, 98), "");
  EXPECT_EQ(host::timeLeft(seconds(60), 90, 107), "about 20 s left");
  EXPECT_EQ(host::timeLeft(seconds(60), 10, 26), "about 2 min left");
  EXPECT_EQ(host::timeLeft(seconds(60), 10, 1000), "about 2 h left");
}

TEST_F(Host, ErasesTheProgressLineOnASignal) {
  const std::string many = metabaseOf("MANY", 20000);
  bool sent = false;
  const Result result = runOnTerminal(80, {"collect", many}, [&](pid_t child, const std::string& shown) {
    if (sent || shown.find(": Processing") == std::string::npos) return;
    sent = true;
    kill(child, SIGINT);
  });
  EXPECT_EQ(result.status, -SIGINT);
  EXPECT_EQ(result.out.substr(result.out.rfind(kWipe) + 4),
            "iisinventory: ended by a signal; published: none; not published: MANY\r\n");
  collect({"MANY=" + kWeb01});
  EXPECT_EQ(rows("tblFTPSiteInfo").size(), 12U);
}

// The folder of one thread is removed while that of another one, with many files, remains for a while.
TEST_F(Host, PrintsOneLineAfterASignal) {
  Arguments arguments = {"collect", "--jobs", "2"};
  const std::string metabase = metabaseOf("S", 50).substr(2);
  for (int at = 0; at < 400; ++at) arguments.push_back("S" + std::to_string(at) + "=" + metabase);
  bool sent = false;
  const Result result = runOnTerminal(80, arguments, [&](pid_t child, const std::string& shown) {
    if (sent || shown.find(": Processing") == std::string::npos) return;
    sent = true;
    fs::path last;
    for (const auto& entry : fs::directory_iterator(fs::directory_iterator(folder_ / "temporary")->path()))
      if (entry.is_directory()) last = entry.path();
    for (int at = 0; at < 30000; ++at) std::ofstream(last / std::to_string(at));
    kill(child, SIGINT);
  });
  EXPECT_EQ(result.status, -SIGINT);
  const std::string end = result.out.substr(result.out.rfind(kWipe) + 4);
  EXPECT_TRUE(end.starts_with("iisinventory: ended by a signal; published: ")) << end;
  EXPECT_EQ(lines(end).size(), 1U) << end;
}

TEST_F(Host, RecommendsACommandThatWorks) {
  database_ = path("it's here.db");
  const std::string summary = collect({kLegacy}, 1).out, start = "\nlist them: ";
  const std::size_t at = summary.find(start) + start.size();
  const std::string command = summary.substr(at, summary.find('\n', at) - at);
  EXPECT_EQ(test::runShell(command + " --format csv"),
            runCommand({"show", "Problems", "--format", "csv"}).out);
  // The message is readable at 80 columns.
  std::string words;
  for (const std::string& line : lines(runOnTerminal(80, {"show", "Problems"}).out)) {
    EXPECT_LE(columns(line), 80U) << line;
    words += line.size() > 29 ? line.substr(29) : "";
  }
  EXPECT_NE(words.find("a value has too few parts (Subscript out of range)"), std::string::npos) << words;
}

TEST_F(Host, WritesTheResultsAsJson) {
  const auto document = [&](Arguments arguments, int status) {
    arguments.insert(arguments.end(), {"--format", "JSON"});
    return json::parse(run(arguments, status).out);
  };
  const Arguments both = {"collect", kLegacy, kWeb01, "-d", database_, "--fail-on", "unpublished"};
  const json first = document(both, 0), second = document(both, 0);
  EXPECT_EQ(first["end"], "complete");
  EXPECT_EQ(second["servers"][0]["replaced_rows"], 31);
  EXPECT_EQ(second["servers"][1]["tables"]["tblGeneral"], 18);
  EXPECT_EQ(second["totals"]["problem_records"], 5);
  const json problems = second["servers"][0]["problems"];
  ASSERT_EQ(problems.size(), 3U);
  EXPECT_EQ(problems[0]["records"], 3);
  EXPECT_EQ(document({"check", kLegacy}, 1)["servers"][0]["problems"], problems);
  const json partial =
      document({"collect", kLegacy, path("gone.xml"), "-d", database_, "--fail-on", "unpublished"}, 1);
  EXPECT_EQ(partial["servers"][1]["state"], "not published");
  EXPECT_EQ(partial["servers"][1]["errors"].size(), 1U);
  const json failed = document({"collect", kWeb01, "-d", folder_.file("x.db", std::string(2000, 'x'))}, 2);
  EXPECT_EQ(failed["end"], "failed");
  EXPECT_EQ(failed["errors"].size(), 1U);
  Database locking(database_, Database::Mode::kReadWrite, {});
  const sqlite::Transaction lock(locking);
  fs::remove(path("LEGACY.log"));  // its next record comes after the signal handler
  Arguments waiting = both;
  waiting.insert(waiting.end(), {"--format", "json", "--wait", "100000"});
  test::Program program(folder_, waiting);
  while (program.isRunning() && !fs::exists(path("LEGACY.log"))) usleep(1000);
  kill(program.id(), SIGTERM);
  const json interrupted = json::parse(program.wait().out);
  EXPECT_EQ(interrupted["end"], "interrupted");
  EXPECT_EQ(interrupted["totals"]["published"], 0);
}

TEST_F(Host, IgnoresAClosedOutputPipe) {
  collect({kWeb01});
  // The exit status doesn't depend on how much of the output was read.
  const std::pair<Arguments, int> commands[] = {
      {{"show", "tblGeneral"}, 0}, {{"collect", kWeb01}, 0}, {{"findings", "--fail-on", "stopped"}, 1}};
  for (const auto& [arguments, status] : commands)
    EXPECT_EQ(runCommand(arguments, status, "", test::breakOutputPipe).err, "");
  EXPECT_EQ(rows("tblFTPSiteInfo").size(), 12U);
  runCommand({"show", "tblGeneral"}, 2, "cannot write the output", [] { close(STDOUT_FILENO); });
  const auto toFullDevice = [] { dup2(open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO); };
  runCommand({"collect", kWeb01, "--fail-on", "unpublished"}, 1, "cannot write the output", toFullDevice);
  // A change is made before it is reported.
  const std::pair<Arguments, std::string> changes[] = {
      {{"copy", "--from", database_, "--to", path("copy.db")}, "copied 1 server"},
      {{"rename", "WEB01", "WEB9", "-d", database_}, "renamed WEB01 to WEB9"},
      {{"remove", database_, "WEB9"}, "removed WEB9"}};
  for (const auto& [arguments, words] : changes) {
    const Result result = run(arguments, 0, words, toFullDevice);
    EXPECT_TRUE(result.err.ends_with("(cannot write the output: No space left on device)\n")) << result.err;
  }
}

}  // namespace
