// Every public operation with each of its external operations failing.
//
// Runs a call once to count its operations, then once per operation with that one failing, and again with all
// failing from one on; the same with unwritable logs and with host objects that always fail.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <set>

#include "platform/store/store.h"
#include "server/portable/server.h"
#include "tests/support/environment.h"

namespace test {
namespace {

using namespace automation;

std::filesystem::path pathOf(const Environment& environment) {
  return toUtf8(environment.database);
}

// What fails during a whole call: a log, or the host's object whose operations start with the text.
const std::string kNothing = "nothing";
const std::string kBothLogs = "both logs";
const std::string kAppLog = "application log";
const std::string kBroken[] = {kBothLogs, kAppLog, "status.", "bar.", "count.", "screen."};

// A call by name, as a host makes it. kDatabase among its arguments represents the database.
const Text kDatabase = u"(database)";
struct Call {
  bool ofPools;
  std::string name;
  std::vector<Variant> arguments;
  std::vector<Text> tables = {};
  // The container whose sites, directories or pools are enumerated.
  std::string walked = {};
  // The collector of one site or pool, where a failed step leaves a single record.
  std::string collector = {};
};

struct Outcome {
  std::vector<std::string> lines;
  std::multiset<std::string> rows;
  std::string log, appLog, fatalError;
  int pointer = 0;
  bool threw = false;
};

void fill(Environment& environment) {
  environment.site(u"1", u"Sales").set(u"logpluginclsid", u"{FF16065B");
  environment.node(u"MSFTPSVC/1/ROOT")
      .set(u"IPSecurity",
           Environment::ipSecurity(false, {u"10.0.0.1,255.255.255.255", u"10.1.0.0,255.255.0.0"}));
  environment.node(u"MSFTPSVC/Info");
  environment.site(u"2", Null).set(u"logfileperiod", 0);
  environment.site(u"3", u"Third").set(u"logpluginclsid", u"");
  environment.directory(u"MSFTPSVC/1/ROOT/a", u"C:\\a")
      .set(u"IPSecurity", Environment::ipSecurity(true, {u"1,255.255.255.255", u"2,3"}));
  environment.directory(u"MSFTPSVC/1/ROOT/b", u"\\\\F\\b");
  environment.pool(u"Batch Pool").set(u"PeriodicRestartSchedule", texts({u"03:00", u"15:00"}));
  environment.pool(u"Back").set(u"AppPoolIdentityType", 3);
  environment.node(u"W3SVC").set(
      u"WebSvcExtRestrictionList",
      texts({u"0,*.dll", u"1,a.dll,1,X,Thing", u"0,b.dll,1,X,Thing", u"1,c.dll,0,Y,Other"}));
  environment.node(u"W3SVC/1")
      .set(u"servercomment", u"Web")
      .set(u"ServerBindings", texts({u":80:"}))
      .set(u"Status", 2);
  environment.node(u"W3SVC/1/ROOT").set(u"Path", u"C:\\web");
  environment.node(u"W3SVC/1/ROOT/App").set(u"Path", u"C:\\app");
  environment.applications(u"Batch Pool", texts({u"/LM/W3SVC/1/ROOT/", u"/LM/W3SVC/1/ROOT/App/"}));
}

std::vector<Call> calls() {
  const Text server = u"WEB01";
  const Text root = u"IIS://WEB01/MSFTPSVC/1/ROOT";
  const Text pool = u"Batch Pool";
  const std::vector<Text> trees = {u"tblvirtualDirectory", u"tblvirtualDirSecurity"};
  const std::string sites = "/MSFTPSVC";
  const std::string directories = sites + "/1/ROOT";
  const std::string pools = "/W3SVC/apppools";
  std::vector<Call> all = {
      {false, "GetFTPSitesCount", {server}},
      {false, "GenerateFTPSiteInfo", {server, kDatabase}, {u"tblFTPSiteInfo"}, sites},
      {false, "GenerateFTPVirDirInfo", {root}},
      {false, "GetRootVirtualDirectory", {server, u"1", root, kDatabase}, trees, "/MSFTPSVC/1/root"},
      {false, "GetChildVirtualDirectories", {server, u"1", root, kDatabase}, trees, directories},
      {true, "GetTotalAppPools", {server}},
      {true, "GetAppPoolsCount", {server, kDatabase}, {u"tblAppPoolInfo"}, pools},
      {true, "GetWebServiceExtension", {server, kDatabase}, {u"tblWSExtension"}},
      {true, "EnumAppsInPool", {server, kDatabase, pool}, {u"tblAppliedObject"}},
  };
  const struct {
    bool ofPools;
    const char16_t* tab;
    const char16_t* table;
    const char* collector;
  } tabs[] = {{false, u"General", u"tblGeneral", "GetServerGeneralProperty"},
              {false, u"Log File Settings", u"tblLogFileSetting", "GetLogFileSetting"},
              {false, u"Extended Log Properties", u"tblExtendedLogSetting", "GetExtendedLogProperties"},
              {false, u"Security Accounts", u"tblSecurityAccounts", "GetSecurityAccountsProperties"},
              {false, u"Message", u"tblMessageSetting", "GetMessageSettings"},
              {false, u"Home Directory", u"tblHomeDirectorySetting", "GetHomeDirectoryProperties"},
              {false, u"Directory Security", u"tblDirectorySecuritySetting", ""},
              {true, u"General", u"tblGeneral", "GetAppPoolGeneralProperty"},
              {true, u"Worker Process Recycling", u"tblWProcessRecycling", "GetWorkerProcessRecycling"},
              {true, u"Memory Recycling", u"tblMemoryRecycling", "GetMemoryRecyclingProperties"},
              {true, u"Performance", u"tblPerformance", "GetPerformanceProperties"},
              {true, u"Health", u"tblHealth", "GetHealthProperties"},
              {true, u"Identity", u"tblIdentity", "GetIdentityProperties"}};
  for (const auto& [ofPools, tab, table, collector] : tabs) {
    const std::string name = ofPools ? "GetAppPoolPropertyInfo" : "GetFTPPropertyInfo";
    const Text one = ofPools ? pool : u"1";
    all.push_back({ofPools, name, {server, kDatabase, tab, True, one}, {table}, "", collector});
    all.push_back(
        {ofPools, name, {server, kDatabase, tab, False}, {table}, ofPools ? pools : sites, collector});
  }
  return all;
}

// Runs a call in a new environment, with the operations from the `first`-th to the `last`-th failing, or, if
// `disturb` is given, calling that before the `first`-th and after the call.
Outcome runOnce(const Call& call, const std::string& broken, Layer layer, std::size_t first, std::size_t last,
                const std::function<void(Environment&)>& disturb = nullptr) {
  Environment environment(layer);
  if (layer == Layer::kFakes) fill(environment);
  const Text nowhere = environment.appLogDirectory + u"/nowhere";
  if (broken == kBothLogs) environment.logFile = nowhere + u"/object.log";
  if (broken == kBothLogs || broken == kAppLog) environment.appLogDirectory = nowhere;
  const ObjectRef object = CreateObject(call.ofPools ? u"TORVINFTPAppDataCom.AppPoolCollection"
                                                     : u"TORVINFTPAppDataCom.FTPCollection");
  automation::call(object, u"SetErrorLogPath", environment.appLogDirectory, environment.logFile);
  automation::call(object, u"SetProcessStatusUpdater", environment.status, environment.bar,
                   environment.count);
  std::vector<Variant> arguments = call.arguments;
  for (Variant& argument : arguments) {
    if (argument.as<Text>() != nullptr && toText(argument) == kDatabase) argument = environment.database;
  }
  write(Screen(), u"MousePointer", std::int16_t{5});
  environment.journal->lines.clear();
  environment.journal->fails = [&](std::size_t number, const std::string& line) {
    if (number > 20000) {
      std::fprintf(stderr, "%s does not end\n", call.name.c_str());
      std::abort();
    }
    if (disturb) {
      if (number == first) disturb(environment);
      return false;
    }
    return (number >= first && number <= last) || line.starts_with(broken);
  };
  Outcome outcome;
  try {
    automation::callWith(object, fromUtf8(call.name), arguments);
  } catch (const Failure& failure) {
    outcome.threw = true;
    EXPECT_TRUE(toUtf8(failure.description()).starts_with("Can't write the log")) << failure.what();
  }
  EXPECT_EQ(environment.openConnections(), 0);
  outcome.lines = environment.journal->lines;
  if (disturb) disturb(environment);
  outcome.fatalError = environment.fatalError();
  for (const Text& table : call.tables) {
    if (!outcome.fatalError.empty()) break;  // unusable
    for (const std::string& row : environment.rows(table))
      outcome.rows.insert(toUtf8(table) + "|" + row + "|");
  }
  outcome.log = environment.log();
  outcome.appLog = environment.appLog();
  outcome.pointer = environment.pointer();
  return outcome;
}

// The name of the child during whose enumeration step an operation occurs, and of the children after it;
// empty for an operation outside the enumeration. Considers the last enumeration of its kind.
std::vector<std::string> childrenFrom(const Outcome& clean, const Call& call, std::size_t operation) {
  constexpr std::string_view kName = ".Name";
  std::vector<std::size_t> turns;
  for (std::size_t at = 0; at < clean.lines.size(); ++at) {
    if (call.walked.empty()) break;
    if (clean.lines[at] == "children of " + call.walked) turns.clear();
    if (clean.lines[at] == "next of " + call.walked) turns.push_back(at + 1);
  }
  std::vector<std::string> names;
  for (std::size_t turn = 0; turn + 1 < turns.size(); ++turn) {
    const bool here = operation > turns[turn] && operation < turns[turn + 1];
    if (!here && names.empty()) continue;
    for (std::size_t at = turns[turn]; at < turns[turn + 1]; ++at) {
      const std::string& line = clean.lines[at];
      if (!line.ends_with(kName)) continue;
      const std::size_t slash = line.rfind('/') + 1;
      names.push_back(line.substr(slash, line.size() - kName.size() - slash));
      break;
    }
  }
  return names;
}

std::size_t countOf(const Outcome& outcome, const std::string& beginning) {
  std::size_t count = 0;
  for (const std::string& line : outcome.lines) count += line.starts_with(beginning);
  return count;
}

void expectClosed(const Outcome& outcome) {
  for (const std::string& line : outcome.lines) {
    const std::size_t at = line.find(".Open(");
    if (at == std::string::npos || line.ends_with(" !")) continue;
    if (countOf(outcome, line.substr(0, at) + ".Close()") != 0) continue;
    // The lists of sites and pools release a connection without a Close if its recordset cannot be opened.
    EXPECT_TRUE(line.starts_with("Connection") && outcome.log.find("Recordset failure") != std::string::npos)
        << line << " is never closed";
  }
}

// Rows are compared as "table|value|value|", null as "-".
void expectRows(const Call& call, const Outcome& clean, const Outcome& outcome, std::size_t operation) {
  const std::string& failed = clean.lines[operation - 1];
  std::vector<std::string> children = childrenFrom(clean, call, operation);
  const bool harmless =
      failed.starts_with("bar.") || failed.starts_with("count.") || failed.starts_with("screen.");
  if (children.empty() && !harmless) return;
  // This collector closes the database for all later sites.
  if (call.collector != "GetMessageSettings") children.resize(std::min<std::size_t>(children.size(), 1));
  for (const std::string& row : clean.rows) {
    if (outcome.rows.count(row) >= clean.rows.count(row)) continue;
    // A row of a failed step, without even a server.
    if (row.substr(row.find('|')).starts_with("|-|")) continue;
    EXPECT_FALSE(harmless) << row;
    bool expected = false;
    for (const std::string& name : children) expected |= row.find("|" + name + "|") != std::string::npos;
    EXPECT_TRUE(expected) << "lost " << row;
  }
}

void expectRecords(const Call& call, const Outcome& clean, const Outcome& outcome, std::size_t operation) {
  EXPECT_GE(recordsIn(outcome.log) + recordsIn(outcome.appLog), 1u);
  // From the opening of the recordset to the read of its state.
  Outcome before;
  before.lines.assign(clean.lines.begin(), clean.lines.begin() + static_cast<std::ptrdiff_t>(operation));
  const bool inside = countOf(before, "Recordset1.Open(") != 0 && countOf(before, "Recordset1.State") == 0;
  if (!call.walked.empty() || call.collector.empty() || !inside ||
      clean.lines[operation - 1].starts_with("Recordset1.Open("))
    return;
  EXPECT_EQ(outcome.log,
            injectedFailure(call.ofPools ? "FaultInjector" : "TORVINFTPAppDataCom", call.collector));
}

// Checks the mouse pointer after a call that ran to its end.
void expectPointer(const Call& call, const Outcome& clean, const Outcome& outcome, std::size_t operation) {
  if (clean.lines.front() == "screen.MousePointer = 11") {
    std::size_t number = clean.lines.size();
    while (!clean.lines[number - 1].starts_with("screen.")) --number;
    EXPECT_TRUE(outcome.pointer == 0 || operation == number) << outcome.pointer;
  } else if (call.name.find("VirtualDirector") != std::string::npos) {
    EXPECT_EQ(countOf(outcome, "screen.MousePointer = 0"), countOf(outcome, "status."));
  } else {
    EXPECT_EQ(outcome.pointer, 5);
  }
}

// Fails every `step`-th operation from the `first`-th on.
void sweep(const Call& call, const std::string& broken, Layer layer, std::size_t step,
           std::size_t first = 1) {
  const Outcome clean = runOnce(call, broken, layer, 0, 0);
  const std::string place =
      call.tables.empty() ? "" : ", " + toUtf8(call.tables[0]) + ", walk: " + call.walked;
  const bool logs = broken != kBothLogs;
  // Without the application log, a failure to read the state of an object to close leaves the routine.
  const bool closes = logs && broken != kAppLog;
  if (broken == kNothing) {
    EXPECT_EQ(clean.log + clean.appLog, "") << call.name << place;
    EXPECT_EQ(clean.rows.empty(), call.tables.empty()) << call.name << place;
  }
  for (std::size_t operation = first; operation <= clean.lines.size(); operation += step) {
    SCOPED_TRACE(call.name + place + ", failing: " + broken + ", operation " + std::to_string(operation) +
                 ": " + clean.lines[operation - 1]);
    const Outcome single = runOnce(call, broken, layer, operation, operation);
    EXPECT_FALSE(single.threw && (logs || call.ofPools));
    if (logs || call.ofPools) {
      expectRows(call, clean, single, operation);
      if (broken != "screen.") expectPointer(call, clean, single, operation);
    }
    if (closes) expectClosed(single);
    if (broken == kNothing) expectRecords(call, clean, single, operation);
    if ((operation - first) / step % 4 != 0) continue;
    const Outcome all = runOnce(call, broken, layer, operation, SIZE_MAX);
    EXPECT_FALSE(all.threw && (logs || call.ofPools));
    if (closes) expectClosed(all);
  }
}

class EverySingleFault : public testing::Test {
 protected:
  EverySingleFault() { DllRegisterServer(); }
  ~EverySingleFault() override { DllUnregisterServer(); }
};

TEST_F(EverySingleFault, IsHandledForEveryOperation) {
  for (const Call& call : calls()) sweep(call, kNothing, Layer::kFakes, 1);
}

TEST_F(EverySingleFault, IsHandledWithUnwritableLogsAndFailingHostObjects) {
  // Together they fail every operation.
  for (std::size_t at = 0; at < std::size(kBroken); ++at) {
    for (const Call& call : calls()) sweep(call, kBroken[at], Layer::kFakes, std::size(kBroken), at + 1);
  }
}

// The same on the platform layer as a host uses it: a sample server's file and a private database.
TEST_F(EverySingleFault, IsHandledOnTheRealLayer) {
  for (const Call& call : calls()) {
    const bool every = call.collector == "GetServerGeneralProperty" || call.name == "GetRootVirtualDirectory";
    sweep(call, kNothing, Layer::kWaiting, every ? 1 : 7);
  }
}

// Locks the database in the middle of a call, and unlocks it when called again.
struct Locked {
  void operator()(Environment& environment) {
    if (lock != nullptr) return lock.reset();
    blocker = environment.openDatabase();
    lock = std::make_shared<sqlite::Transaction>(*blocker);
  }

  std::shared_ptr<sqlite::Database> blocker = nullptr;
  std::shared_ptr<sqlite::Transaction> lock = nullptr;
};

// Makes a database unable to grow. Rows of nulls use the free space of a file; a private database has no
// memory, and they use the beginning of its temporary file.
class Full {
 public:
  Full(std::vector<Text> tables, Layer layer)
      : tables_(std::move(tables)), isPrivate_(layer == Layer::kPrivate) {}

  void operator()(Environment& environment) {
    full_ = !full_;
    if (!full_) limitFiles(RLIM_INFINITY);
    if (full_ && !isPrivate_) limitFiles(std::filesystem::file_size(pathOf(environment)));
    if (!full_ && !environment.fatalError().empty()) return;
    const auto database = environment.openDatabase();
    if (isPrivate_) database->execute("pragma cache_size = 1");
    for (const Text& name : tables_) {
      const std::string table = toUtf8(name);
      const char* const first = table.starts_with("tblvirtual") ? "IISPath" : "Server name";
      if (!full_) database->execute("delete from " + table + " where \"" + first + "\" is null");
      for (int row = 0; full_ && (row < 1000 || !isPrivate_); ++row) {
        try {
          database->execute("insert into " + table + " default values");
        } catch (const sqlite::Error&) {
          break;
        }
      }
    }
    if (full_ && isPrivate_) limitFiles(8 * 1024);
  }

 private:
  static void limitFiles(rlim_t size) {
    rlimit limit{};
    ::getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = size;
    ::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  }

  std::vector<Text> tables_;
  bool isPrivate_;
  bool full_ = false;
};

// Moves the database file away and back.
class Gone {
 public:
  void operator()(Environment& environment) {
    const std::filesystem::path path = pathOf(environment), aside = path.string() + ".aside";
    std::filesystem::rename(gone_ ? aside : path, gone_ ? path : aside);
    gone_ = !gone_;
  }

 private:
  bool gone_ = false;
};

// A call that cannot save its rows ends, closes what it opened and logs the failure; rows in the database are
// complete. A private database reports that rows may be missing.
TEST_F(EverySingleFault, IsHandledForALockedFullOrMissingDatabase) {
  platform::store::setLockWait(std::chrono::milliseconds(0));
  std::map<std::string, int> losses;
  for (const Call& call : calls()) {
    if (call.tables.empty()) continue;
    const Outcome clean = runOnce(call, kNothing, Layer::kPrivate, 0, 0);
    for (std::size_t part = 0; part < 6; ++part) {
      const std::size_t operation = 1 + part * (clean.lines.size() - 1) / 5;
      const struct {
        std::string name;
        Layer layer;
        std::function<void(Environment&)> disturb;
      } disturbances[] = {{"full, private", Layer::kPrivate, Full(call.tables, Layer::kPrivate)},
                          {"full", Layer::kFile, Full(call.tables, Layer::kFile)},
                          {"locked", Layer::kFile, Locked()},
                          {"gone", Layer::kFile, Gone()}};
      for (const auto& [name, layer, disturb] : disturbances) {
        if (layer == Layer::kFile && part % 2 == 1) continue;
        SCOPED_TRACE(call.name + ", " + name + " before operation " + std::to_string(operation) + ": " +
                     clean.lines[operation - 1]);
        const Outcome outcome = runOnce(call, kNothing, layer, operation, operation, disturb);
        EXPECT_FALSE(outcome.threw);
        expectClosed(outcome);
        if (outcome.rows != clean.rows && name != "gone") {
          ++losses[name];
          EXPECT_NE(outcome.log + outcome.appLog, "");
          EXPECT_EQ(layer == Layer::kPrivate, outcome.fatalError != "");
        }
        // The second pass of the extensions changes existing rows.
        if (name == "locked" && call.name != "GetWebServiceExtension") {
          EXPECT_TRUE(
              std::includes(clean.rows.begin(), clean.rows.end(), outcome.rows.begin(), outcome.rows.end()));
        }
      }
    }
  }
  for (const char* trouble : {"locked", "full", "full, private"}) EXPECT_GT(losses[trouble], 0) << trouble;
}

}  // namespace
}  // namespace test
