// A host that calls every public operation of the component and records the results. It is built twice: for
// Windows, where both sides of the component are COM, and for this machine, where neither is. Both builds
// must write the same.
//
//   run all SERVER           operations.txt, progress.txt and results.txt
//   run sweep SERVER         sweep.txt: the operations of four calls failed one by one, with the rows and
//                            records
//   run measure SERVER       the seconds that the lists and tabs of all sites take, and those of as many
//                            single rows, on the standard output
//   run apartments A,B,...   rows and records only: the servers in parallel, each in a separate thread with
//                            logs in a separate folder
//
// in the working directory, whose inventory.db has the tables and whose folder logs is empty. The native
// build also takes NAME=FILE arguments, the metabases of the servers; SERVER is one of them.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "automation/object.h"
#include "automation/runtime.h"

#ifdef _WIN32
#include "automation/com/runtime.h"
#include "automation/com/system.h"
#else
#include "platform/metabase/servers.h"
#include "tests/support/collection.h"
#include "tests/support/journal.h"
#endif

namespace test {
namespace {

using namespace automation;

constexpr TextView kDatabase = u"inventory.db";
constexpr TextView kLogs = u"logs";

void writeFile(const char* name, const std::string& text) {
  std::ofstream(name, std::ios::binary) << text;
}

// The journal of the external objects: of the test server, or of this process.
#ifdef _WIN32
class Recorder {
 public:
  void record(std::int32_t failAt) { call(control_, u"Record", failAt); }
  std::string operations() const { return toUtf8(toText(read(control_, u"Operations"))); }

 private:
  ObjectRef control_ = CreateObject(u"TORVINTest.Control");
};
#else
class Recorder {
 public:
  Recorder() {
    Runtime& runtime = Runtime::process();
    for (const TextView prefix : {u"IIS:", u"winmgmts:"}) {
      runtime.serveMoniker(prefix, [this, serve = runtime.monikerServer(prefix)](TextView moniker) {
        return journal_ ? journal_->getObject(moniker, [&] { return serve(moniker); }) : serve(moniker);
      });
    }
    for (const TextView name :
         {u"ADODB.Connection", u"ADODB.Recordset", u"MARLINSCOPEGLOBALCOM.ICommonFunction"}) {
      runtime.serveClass(name, [this, name, serve = runtime.classServer(name)] {
        return journal_ ? journal_->createObject(name, serve) : serve();
      });
    }
  }
  void record(std::int32_t failAt) {
    journal_ = std::make_shared<Journal>();
    journal_->fails = [failAt](std::size_t number, const std::string&) {
      return number == static_cast<std::size_t>(failAt);
    };
  }
  std::string operations() const {
    std::string lines;
    for (const std::string& line : journal_->lines) lines += line + "\n";
    return lines;
  }

 private:
  std::shared_ptr<Journal> journal_;
};
#endif

// One of the host's three progress objects.
class Sink : public MemberlessObject {
 public:
  Sink(std::string name, std::string& lines)
      : MemberlessObject(u"Host"), name_(std::move(name)), lines_(lines) {}

  void write(TextView member, Arguments, const Variant& value) override {
    lines_ += name_ + "." + toUtf8(member) + " = " + toUtf8(toText(value)) + "\n";
  }
  Variant call(TextView member, Arguments) override {
    lines_ += name_ + "." + toUtf8(member) + "()\n";
    return {};
  }

 private:
  std::string name_;
  std::string& lines_;
};

ObjectRef component(TextView name, std::string& progress, const Text& logs = Text(kLogs)) {
  const ObjectRef object = CreateObject(Text(u"TORVINFTPAppDataCom.") + Text(name));
  call(object, u"SetErrorLogPath", logs, logs + u"\\object.log");
  const auto sink = [&](const char* kind) { return ObjectRef(std::make_shared<Sink>(kind, progress)); };
  call(object, u"SetProcessStatusUpdater", sink("status"), sink("bar"), sink("count"));
  return object;
}

constexpr TextView kSiteTabs[] = {u"General",           u"Log File Settings", u"Extended Log Properties",
                                  u"Security Accounts", u"Message",           u"Home Directory",
                                  u"Directory Security"};
constexpr TextView kPoolTabs[] = {
    u"General", u"Worker Process Recycling", u"Memory Recycling", u"Performance", u"Health", u"Identity"};

ObjectRef openRows(const Text& sql, const ObjectRef& connection) {
  const ObjectRef rows = CreateObject(u"ADODB.Recordset");
  write(rows, u"CursorLocation", 3);
  write(rows, u"ActiveConnection", connection);
  call(rows, u"Open", sql);
  return rows;
}

ObjectRef openDatabase() {
  const ObjectRef connection = CreateObject(u"ADODB.Connection");
  call(connection, u"Open", kDatabase);
  return connection;
}

// A failure that reaches the host. COM fills in a missing source.
std::string describe(const Failure& failure) {
  return std::to_string(failure.number()) + " " + toUtf8(failure.description()) + "\n";
}

// The children of an object that may be missing.
std::vector<ObjectRef> childrenAt(const Text& path) {
  std::vector<ObjectRef> found;
  try {
    const auto walk = children(GetObject(path));
    while (const ObjectRef child = walk->next()) found.push_back(child);
  } catch (const Failure&) {
  }
  return found;
}

void callEverything(const Text& server, std::string& progress, std::string& results) {
  const auto note = [&](const char* what, const Variant& value) {
    results += std::string(what) + " " + toUtf8(toText(value)) + "\n";
  };
  const ObjectRef sites = component(u"FTPCollection", progress);
  note("mstrErrorLogPath", read(sites, u"mstrErrorLogPath"));
  note("GetPropEnabledStatus", call(sites, u"GetPropEnabledStatus", True));
  note("GetFTPSitesCount", call(sites, u"GetFTPSitesCount", server));
  note("GenerateFTPSiteInfo", call(sites, u"GenerateFTPSiteInfo", server, kDatabase));
  note("GenerateFTPVirDirInfo",
       call(sites, u"GenerateFTPVirDirInfo", u"IIS://" + server + u"/MSFTPSVC/1/ROOT"));
  for (const TextView tab : kSiteTabs) {
    call(sites, u"GetFTPPropertyInfo", server, kDatabase, tab, false);
    call(sites, u"GetFTPPropertyInfo", server, kDatabase, tab, true, u"1");
  }
  const Text root = u"IIS://" + server + u"/MSFTPSVC/1/ROOT";
  call(sites, u"GetRootVirtualDirectory", server, u"1", root, kDatabase);
  for (const ObjectRef& directory : childrenAt(root))
    call(sites, u"GetChildVirtualDirectories", server, u"1", read(directory, u"ADsPath"), kDatabase);
  call(sites, u"WriteToLog", 7, u"Gr\u00F6\u00DFe", u"host", u"callEverything");

  const ObjectRef pools = component(u"AppPoolCollection", progress);
  note("GetTotalAppPools", call(pools, u"GetTotalAppPools", server));
  note("GetAppPoolsCount", call(pools, u"GetAppPoolsCount", server, kDatabase));
  const Text poolsPath = u"IIS://" + server + u"/W3SVC/AppPools";
  for (const TextView tab : kPoolTabs) call(pools, u"GetAppPoolPropertyInfo", server, kDatabase, tab, false);
  call(pools, u"GetWebServiceExtension", server, kDatabase);
  for (const ObjectRef& pool : childrenAt(poolsPath)) {
    const Text name = toText(read(pool, u"Name"));
    for (const TextView tab : kPoolTabs)
      call(pools, u"GetAppPoolPropertyInfo", server, kDatabase, tab, true, name);
    call(pools, u"EnumAppsInPool", server, kDatabase, name);
    const ObjectRef connection = openDatabase();
    const ObjectRef rows = openRows(u"Select * from tblMemoryRecycling where 1=2", connection);
    call(pools, u"GetMemoryRecyclingProperties", server, pool, connection, rows);
    call(rows, u"Close");
    call(connection, u"Close");
  }
  write(pools, u"mstrErrorLogPath", u"logs\\nowhere\\lost.log");
  note("GetTotalAppPools", call(pools, u"GetTotalAppPools", u"nobody"));
  write(sites, u"mstrErrorLogPath", u"logs\\nowhere\\lost.log");
  try {
    call(sites, u"GetFTPSitesCount", u"nobody");
  } catch (const Failure& failure) {
    results += describe(failure);
  }
}

// The records without their times.
std::string takeLogs() {
  std::string records;
  for (const char* const name : {"logs/TORVINLog.Log", "logs/object.log"}) {
    std::ifstream file(name, std::ios::binary);
    for (std::string line; std::getline(file, line);)
      records += line.substr(std::min<std::size_t>(line.size(), 19)) + "\n";
    file.close();
    std::filesystem::remove(name);
  }
  return records;
}

struct Sweep {
  const char* name;
  std::vector<TextView> tables;
  std::function<void()> run;
};

void sweep(const Text& server, Recorder& recorder) {
  std::string progress;
  std::string all;
  const ObjectRef sites = component(u"FTPCollection", progress);
  const ObjectRef pools = component(u"AppPoolCollection", progress);
  const Sweep sweeps[] = {
      {"site tab",
       {u"tblFTPSiteInfo", u"tblHomeDirectorySetting"},
       [&] { call(sites, u"GetFTPPropertyInfo", server, kDatabase, u"Home Directory", true, u"1"); }},
      {"pool tab",
       {u"tblAppPoolInfo", u"tblHealth"},
       [&] { call(pools, u"GetAppPoolPropertyInfo", server, kDatabase, u"Health", false); }},
      {"walk",
       {u"tblvirtualDirectory", u"tblvirtualDirSecurity"},
       [&] {
         call(sites, u"GetRootVirtualDirectory", server, u"1", u"IIS://" + server + u"/MSFTPSVC/1/ROOT",
              kDatabase);
       }},
      {"applied objects",
       {u"tblAppliedObject"},
       [&] { call(pools, u"EnumAppsInPool", server, kDatabase, u"DefaultAppPool"); }},
  };
  const ObjectRef connection = openDatabase();
  for (const Sweep& each : sweeps) {
    std::size_t count = 1;
    for (std::size_t failAt = 0; failAt <= count; ++failAt) {
      progress.clear();
      recorder.record(static_cast<std::int32_t>(failAt));
      all += std::string("--- ") + each.name + " " + std::to_string(failAt) + "\n";
      try {
        each.run();
      } catch (const Failure& failure) {
        all += describe(failure);
      }
      const std::string operations = recorder.operations();
      if (failAt == 0)
        count = static_cast<std::size_t>(std::count(operations.begin(), operations.end(), '\n'));
      recorder.record(0);
      all += operations + progress + takeLogs();
      for (const TextView table : each.tables) {
        const ObjectRef rows = openRows(u"select * from " + Text(table), connection);
        for (; !toBool(read(rows, u"EOF")); call(rows, u"MoveNext")) {
          for (std::int32_t column = 0;; ++column) {
            try {
              const Variant value = readIndexed(rows, u"Collect", column);
              all += (value.isNull() ? "-" : toUtf8(toText(value))) + "|";
            } catch (const Failure&) {
              break;
            }
          }
          all += "\n";
        }
        call(rows, u"Close");
        call(connection, u"Execute", u"delete from " + Text(table));
      }
    }
  }
  writeFile("sweep.txt", all);
}

void measure(const Text& server) {
  std::string progress;
  const auto start = std::chrono::steady_clock::now();
  const ObjectRef sites = component(u"FTPCollection", progress);
  for (const TextView tab : kSiteTabs) call(sites, u"GetFTPPropertyInfo", server, kDatabase, tab, false);
  const auto collected = std::chrono::steady_clock::now();
  // As many rows without the component, the metabase or a recordset.
  const ObjectRef connection = openDatabase();
  for (std::int32_t rows = 8 * toInt32(call(sites, u"GetFTPSitesCount", server)); rows > 0; --rows)
    call(connection, u"Execute", u"insert into tblGeneral ([Server name]) values ('" + server + u"')");
  const std::chrono::duration<double> all = collected - start,
                                      store = std::chrono::steady_clock::now() - collected;
  std::printf("%.3f s, the database alone %.3f s\n", all.count(), store.count());
}

struct Apartment {
#ifdef _WIN32
  Apartment() {
    isOpen = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED) >= 0;
  }
  ~Apartment() {
    if (isOpen) CoUninitialize();
  }
  Apartment(const Apartment&) = delete;
  Apartment& operator=(const Apartment&) = delete;
  bool isOpen = false;
#endif
};

void collectInApartment(const Text& server) {
  [[maybe_unused]] const Apartment apartment;
  const Text logs = Text(kLogs) + u"\\" + server;
  std::filesystem::create_directories("logs/" + toUtf8(server));
  std::string progress;
  const ObjectRef sites = component(u"FTPCollection", progress, logs);
  const ObjectRef pools = component(u"AppPoolCollection", progress, logs);
  // A missing object leaves a record in the apartment's own log.
  call(sites, u"GetFTPPropertyInfo", server, u"nowhere\\inventory.db", u"General", false);
  for (const TextView tab : kSiteTabs) call(sites, u"GetFTPPropertyInfo", server, kDatabase, tab, false);
  for (const TextView tab : kPoolTabs) call(pools, u"GetAppPoolPropertyInfo", server, kDatabase, tab, false);
  call(pools, u"GetWebServiceExtension", server, kDatabase);
}

void collectSideBySide(const std::string& servers) {
  std::vector<std::thread> threads;
  for (std::size_t at = 0; at < servers.size();) {
    const std::size_t end = std::min(servers.find(',', at), servers.size());
    threads.emplace_back(collectInApartment, fromUtf8(servers.substr(at, end - at)));
    at = end + 1;
  }
  for (std::thread& thread : threads) thread.join();
}

void run(const std::string& mode, const std::string& serverName) {
  if (mode == "apartments") return collectSideBySide(serverName);
  const Text server = fromUtf8(serverName);
  if (mode == "measure") return measure(server);
  Recorder recorder;
  recorder.record(0);
  if (mode == "sweep") return sweep(server, recorder);
  std::string progress;
  std::string results;
  callEverything(server, progress, results);
  writeFile("operations.txt", recorder.operations());
  writeFile("progress.txt", progress);
  writeFile("results.txt", results);
}

}  // namespace
}  // namespace test

int main(int count, char** arguments) {
  if (count < 3) return 2;
  try {
#ifdef _WIN32
    if (CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED) < 0) return 2;
    automation::com::bindRuntime();
#else
    test::registerEverything();
    for (int at = 3; at < count; ++at) {
      const std::string entry = arguments[at];
      const std::size_t equals = entry.find('=');
      platform::metabase::mapServer(automation::fromUtf8(entry.substr(0, equals)),
                                    platform::metabase::Metabase::load(entry.substr(equals + 1)));
    }
#endif
    test::run(arguments[1], arguments[2]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "run: %s\n", error.what());
    return 1;
  }
  return 0;
}
