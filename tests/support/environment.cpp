#include "tests/support/environment.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <sstream>

#include "inventory/catalog/catalog.h"
#include "platform/desktop/desktop.h"
#include "platform/metabase/servers.h"
#include "platform/store/store.h"
#include "platform/wmi/wmi.h"
#include "tests/support/collection.h"

namespace test {

using namespace automation;

namespace {

constexpr TextView kCommonId = u"MARLINSCOPEGLOBALCOM.ICommonFunction";

// Properties with their values, all as text.
constexpr char kSite[] = R"(Maxconnections=100000 connectiontimeout=120 Status=2 logtype=1 logfileperiod=1
  logpluginclsid={FF160663-DE82-11CF-BC0A-00AA006111E0} logfiletruncatesize=20971520
  logfilelocaltimerollover=0 logfiledirectory=C:\Logs logOdbcDataSource=HTTPLOG
  logOdbcusername=InternetAdmin logOdbctablename=FTPLog AllowAnonymous=-1 Anonymoususername=IUSR
  Anonymousonly=0 Anonymouspasswordsync=1 Exitmessage=Bye MaxClientsMessage=Full msdosdiroutput=1
  logextfiledate=1 logextfiletime=1 logextfileclientip=1 logextfileusername=1 logextfilesitename=1
  logextfilecomputername=0 logextfileserverip=1 logextfileserverport=0 logextfilemethod=1
  logextfileuristem=0 logextfileuriquery=1 logextfilehttpstatus=0 logextfilewin32status=1
  logextfilebytessent=0 logextfilebytesrecv=0 logextfiletimetaken=1 logextfileprotocolversion=0
  logextfilehost=1 logextfileuseragent=0 logextfilecookie=1 logextfilereferer=0)";
constexpr char kPool[] = R"(AppPoolState=2 PeriodicRestartTime=1740 PeriodicRestartRequests=0
  PeriodicRestartMemory=512000 PeriodicRestartPrivateMemory=0 IdleTimeout=20 AppPoolQueueLength=4000
  CPULimit=0 CPUResetInterval=5 CPUAction=0 MaxProcesses=1 PingingEnabled=-1 PingInterval=30
  RapidFailProtection=1 RapidFailProtectionmaxCrashes=5 RapidFailProtectionInterval=6
  StartupTimeLimit=90 ShutdownTimeLimit=91 AppPoolIdentityType=2 WAMUserName=IWAM)";

FakeObject& setAll(FakeObject& object, const char* properties) {
  std::istringstream words(properties);
  for (std::string word; words >> word;) {
    const std::size_t equals = word.find('=');
    object.set(fromUtf8(word.substr(0, equals)), fromUtf8(word.substr(equals + 1)));
  }
  return object;
}

// Reused by the next environment of fakes: creating the tables takes longer than a call.
std::unique_ptr<platform::store::PrivateDatabase> spare;

// A reference to an object that the environment owns.
ObjectRef unowned(Object& object) {
  return ObjectRef(ObjectRef(), &object);
}

Text textOf(const std::filesystem::path& path) {
  return fromUtf8(path.string());
}

std::string masked(const std::filesystem::path& path) {
  static const std::regex time(R"((^|\n)\d\d/\d\d/\d{4} \d\d:\d\d:\d\d\t)");
  return std::regex_replace(contents(path), time, "$1<time>\t");
}

}  // namespace

std::string record(const std::string& object, const std::string& function, const std::string& number,
                   const std::string& message) {
  std::string line = "<time>\t" + object + std::string(object.size() < 40 ? 40 - object.size() : 0, ' ');
  line += "\t" + function + std::string(function.size() < 40 ? 40 - function.size() : 0, ' ');
  return line + "\t" + std::string(10 - number.size(), ' ') + number + "\t" + message + "\r\n";
}

std::size_t recordsIn(const std::string& log) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = log.find("<time>", at)) != std::string::npos; ++at) ++count;
  return count;
}

std::string injectedFailure(const std::string& object, const std::string& function) {
  return record(object, function, "8000FFFF", "injected failure");
}

Environment::Environment(Layer layer) : layer_(layer) {
  database = layer == Layer::kFakes ? Text(u"inventory.mdb") : textOf(folder_ / "inventory.mdb");
  statusBar_.set(u"message", u"");
  progressBar_.set(u"Max", std::int16_t{0}).method(u"increment", [](Arguments) { return Variant(); });
  processCount_.set(u"message", u"");
  layer == Layer::kFakes ? setUpFakes() : setUpLayer();

  appLogDirectory = textOf(folder_.path());
  logFile = textOf(folder_ / "object.log");
  status = journal->wrap(unowned(statusBar_), "status");
  bar = journal->wrap(unowned(progressBar_), "bar");
  count = journal->wrap(unowned(processCount_), "count");
}

Environment::~Environment() {
  Runtime& runtime = Runtime::process();
  runtime.serveMoniker(u"IIS:", nullptr);
  runtime.serveMoniker(u"winmgmts:", nullptr);
  for (const TextView id : {TextView(u"ADODB.Connection"), TextView(u"ADODB.Recordset"), kCommonId})
    runtime.serveClass(id, nullptr);
  runtime.setScreen(nullptr);
  redirect_.reset();
  if (layer_ == Layer::kFakes && !hasDropped_) spare = std::move(private_);
}

void Environment::serve(TextView prefix, MonikerServer behind) {
  Runtime::process().serveMoniker(prefix, [this, behind](TextView moniker) {
    return journal->getObject(moniker, [&] { return behind(moniker); });
  });
}

void Environment::serveClass(TextView id, ClassServer behind) {
  Runtime::process().serveClass(id,
                                [this, behind, id = Text(id)] { return journal->createObject(id, behind); });
}

void Environment::setUpFakes() {
  setUpStore();
  serve(u"IIS:", [this](TextView moniker) -> ObjectRef {
    const Text prefix = u"IIS://" + server;
    FakeObject* at = moniker.starts_with(prefix) ? &metabase_ : nullptr;
    std::shared_ptr<FakeObject> child;
    for (std::size_t from = prefix.size() + 1; at != nullptr && from <= moniker.size();) {
      const std::size_t end = std::min(moniker.find(u'/', from), moniker.size());
      child = at->find(moniker.substr(from, end - from));
      at = child.get();
      from = end + 1;
    }
    if (at != nullptr) return child;
    throw Failure(static_cast<std::int32_t>(0x80070003), u"No path " + Text(moniker), u"FakeMetabase");
  });
  serve(u"winmgmts:", [this](TextView) { return unowned(wmi_); });
  wmi_.method(u"ExecQuery", [this](Arguments) { return unowned(wmi_); });
  serveClass(kCommonId, [this] {
    auto common = std::make_shared<FakeObject>();
    common->set(u"ErrorLogPath", u"").method(u"getos", [this](Arguments) { return Variant(version); });
    return common;
  });
  auto screen = std::make_shared<FakeObject>();
  screen->set(u"MousePointer", std::int16_t{0});
  screen_ = screen;
  Runtime::process().setScreen(journal->wrap(screen_, "screen"));
}

void Environment::setUpLayer() {
  Runtime& runtime = Runtime::process();
  platform::metabase::mapServer(server, platform::metabase::Metabase::load(
                                            std::filesystem::path(SAMPLES_DIRECTORY) / "WEB01/MetaBase.xml"));
  platform::metabase::registerMoniker();
  platform::wmi::registerMoniker();
  platform::desktop::registerDesktop();
  for (const TextView prefix : {TextView(u"IIS:"), TextView(u"winmgmts:")})
    serve(prefix, runtime.monikerServer(prefix));
  serveClass(kCommonId, runtime.classServer(kCommonId));
  screen_ = runtime.screen();
  runtime.setScreen(journal->wrap(screen_, "screen"));

  setUpStore();
}

void Environment::setUpStore() {
  platform::store::registerStore();
  for (const TextView id : {TextView(u"ADODB.Connection"), TextView(u"ADODB.Recordset")})
    serveClass(id, Runtime::process().classServer(id));
  if (layer_ == Layer::kFakes && spare != nullptr) {
    private_ = std::move(spare);
    private_->empty();
    redirect_.emplace(*private_);
    return;
  }
  if (layer_ != Layer::kFile) {
    private_ = std::make_unique<platform::store::PrivateDatabase>(toUtf8(database));
    private_->database().execute("pragma page_size = 512");  // so that a few rows make it grow
    redirect_.emplace(*private_);
  } else {
    sqlite::Database(toUtf8(database), sqlite::Database::Mode::kCreate, {});
  }
  createTables(*openDatabase());
  if (layer_ == Layer::kPrivate || layer_ == Layer::kFile) return;
  for (const inventory::Table& table : inventory::tables()) private_->bufferRows(std::string(table.name));
}

std::shared_ptr<sqlite::Database> Environment::openDatabase() const {
  if (private_ != nullptr) return {std::shared_ptr<void>(), &private_->database()};
  return std::make_shared<sqlite::Database>(toUtf8(database), sqlite::Database::Mode::kReadWrite,
                                            std::chrono::milliseconds(0));
}

void Environment::dropTable(const std::string& name) {
  openDatabase()->execute("drop table " + name);
  hasDropped_ = true;
}

// Not counted: the private database itself, the redirect and this local reference.
long Environment::openConnections() const {
  return private_ != nullptr ? platform::store::redirectedSession(database).use_count() - 3 : 0;
}

FakeObject& Environment::node(TextView path) {
  FakeObject* at = &metabase_;
  Text adsPath = u"IIS://" + server;
  for (std::size_t from = 0; from <= path.size();) {
    const std::size_t end = std::min(path.find(u'/', from), path.size());
    const TextView name = path.substr(from, end - from);
    adsPath += u"/" + Text(name);
    const auto child = at->find(name);
    at = child != nullptr ? child.get() : &at->add(name).set(u"adspath", adsPath);
    from = end + 1;
  }
  return *at;
}

FakeObject& Environment::site(TextView id, Variant comment) {
  const Text path = u"MSFTPSVC/" + Text(id);
  directory(path + u"/ROOT", u"C:\\ftp\\" + Text(id));
  FakeObject& site = setAll(node(path), kSite).set(u"servercomment", std::move(comment));
  site.set(u"GreetingMessage", texts({u"Welcome ", u"here"})).set(u"bannerMessage", texts({u"Banner"}));
  return site.set(u"ServerBindings", texts({u"10.0.0.1:21:"}));
}

FakeObject& Environment::directory(TextView path, TextView localPath) {
  FakeObject& made = node(path).set(u"Path", localPath).set(u"accessread", true).set(u"accesswrite", false);
  return made.set(u"dontlog", false).set(u"IPSecurity", ipSecurity(true, {}));
}

FakeObject& Environment::pool(TextView name) {
  FakeObject& made = setAll(node(u"W3SVC/AppPools/" + Text(name)), kPool);
  return made.set(u"PeriodicRestartSchedule", texts({}));
}

Variant Environment::ipSecurity(bool grantByDefault, const std::vector<Text>& list) {
  const Variant other = texts({u"never, read"});
  auto security = std::make_shared<FakeObject>();
  security->set(u"GrantByDefault", grantByDefault).set(u"IPDeny", grantByDefault ? texts(list) : other);
  security->set(u"IPGrant", grantByDefault ? other : texts(list));
  return ObjectRef(security);
}

FakeObject& Environment::applications(TextView poolName, Variant paths) {
  return wmi_.add(u"W3SVC/APPPOOLS/" + Text(poolName)).method(u"EnumAppsInPool", [paths](Arguments list) {
    list[0] = paths;
    return Variant();
  });
}

std::vector<std::string> Environment::rows(TextView table) const {
  std::vector<std::string> lines;
  const auto opened = openDatabase();
  auto statement = opened->prepare("select * from " + toUtf8(table) + " order by rowid");
  while (statement.step()) {
    std::string& line = lines.emplace_back();
    for (int column = 0; column < statement.columnCount(); ++column)
      line.append(column > 0 ? "|" : "").append(statement.text(column).value_or("-"));
  }
  return lines;
}

int Environment::pointer() const {
  return toInt32(read(screen_, u"MousePointer"));
}

std::vector<std::string> Environment::progress() const {
  std::vector<std::string> found;
  for (const std::string& line : journal->lines) {
    if (line.starts_with("status.") || line.starts_with("bar.") || line.starts_with("count."))
      found.push_back(line);
  }
  return found;
}

std::string Environment::log() const {
  return masked(folder_ / "object.log");
}

std::string Environment::appLog() const {
  return masked(folder_ / "TORVINLog.Log");
}

}  // namespace test
