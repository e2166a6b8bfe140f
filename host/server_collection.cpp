#include "host/server_collection.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>
#include <system_error>
#include <utility>

#include "automation/failure.h"
#include "automation/object.h"
#include "automation/runtime.h"
#include "host/places.h"
#include "host/sha256.h"
#include "inventory/clock.h"
#include "platform/metabase/failures.h"
#include "platform/metabase/file.h"
#include "platform/metabase/metabase.h"
#include "platform/metabase/servers.h"
#include "server/identifiers.h"

namespace host {
namespace {

using automation::call;
using automation::Failure;
using automation::fromUtf8;
using automation::ObjectRef;
using automation::Text;
using automation::TextView;
using automation::toUtf8;

using inventory::ObjectKind;
using inventory::Problem;

constexpr std::int16_t kFirstVersionWithPools = 6;
// The number into which the component turns a lack of memory.
constexpr std::int32_t kOutOfMemory = 7;
// How a failure of one of its logs begins.
constexpr std::string_view kLostRecord = "Can't write the log ";

constexpr std::string_view kSitesTable = "tblFTPSiteInfo";
constexpr std::string_view kPoolsTable = "tblAppPoolInfo";

ObjectKind kindOf(Side side) {
  return side == Side::kFtp ? ObjectKind::kSite : ObjectKind::kPool;
}

// The status of each extension is looked up by these two columns.
constexpr std::string_view kExtensionIndex =
    "create index \"tblWSExtension names\" on tblWSExtension (\"Server name\", \"Web service extension\")";

std::string accountName() {
  const passwd* const account = ::getpwuid(::geteuid());
  return account != nullptr ? account->pw_name : std::to_string(::geteuid());
}

std::string machineName() {
  std::array<char, 256> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

// The object at a path of the server, or null where the path isn't there.
ObjectRef objectAt(const std::string& server, TextView path) {
  try {
    return automation::GetObject(u"IIS://" + fromUtf8(server) + Text(path));
  } catch (const Failure& failure) {
    if (failure.number() != platform::metabase::number::kPathNotFound) throw;
    return nullptr;
  }
}

std::vector<std::string> childNames(const ObjectRef& parent) {
  std::vector<std::string> names;
  const auto walk = automation::children(parent);
  while (const ObjectRef child = walk->next()) {
    names.push_back(toUtf8(automation::toText(automation::read(child, u"Name"))));
  }
  return names;
}

// The version of the server, as the component asks for it; nothing where it can't be told, which the
// component then records wherever it matters.
std::optional<std::int16_t> versionOf(const std::string& server) {
  try {
    const ObjectRef common = automation::CreateObject(u"MARLINSCOPEGLOBALCOM.ICommonFunction");
    automation::Variant name = fromUtf8(server);
    return automation::toInt16(automation::callByReference(common, u"getos", name));
  } catch (const Failure&) {
    return std::nullopt;
  }
}

// The wanted items as the server spells them. Those that it has are added to `found`, as the user spells
// them.
std::vector<std::string> spelledByServer(const std::vector<std::string>& wanted,
                                         const std::vector<std::string>& there,
                                         std::vector<std::string>& found) {
  std::vector<std::string> items;
  for (const std::string& item : wanted) {
    const auto same = std::find_if(there.begin(), there.end(), [&](const std::string& name) {
      return automation::equalsIgnoringCase(fromUtf8(name), fromUtf8(item));
    });
    if (same != there.end()) found.push_back(item);
    const std::string& spelled = same != there.end() ? *same : item;
    if (std::find(items.begin(), items.end(), spelled) == items.end()) items.push_back(spelled);
  }
  return items;
}

// What a look at a server's metabase tells before anything is collected.
struct ServerCapabilities {
  bool hasSites = false;  // an FTP service
  bool hasWeb = false;    // a web service whose server may have application pools
  bool hasPools = false;
  // What isn't there and why; empty where all of a side is there.
  std::string sitesNote;
  std::string poolsNote;
};

// Fails for a server that has nothing of either side.
ServerCapabilities capabilitiesOf(const Server& server) {
  ServerCapabilities shape;
  shape.hasSites = objectAt(server.name, u"/MSFTPSVC") != nullptr;
  shape.hasWeb = objectAt(server.name, u"/W3SVC") != nullptr;
  if (!shape.hasSites) shape.sitesNote = "no FTP service, so there are no FTP sites to collect";
  if (!shape.hasWeb) {
    shape.poolsNote = "no web service, so there are no application pools to collect";
  } else if (const auto version = versionOf(server.name); version && *version < kFirstVersionWithPools) {
    shape.hasWeb = false;
    shape.poolsNote = "no application pools to collect, being IIS " + std::to_string(*version);
  } else {
    shape.hasPools = objectAt(server.name, u"/W3SVC/AppPools") != nullptr;
    if (!shape.hasPools) {
      shape.poolsNote = "no node /LM/W3SVC/AppPools, so there are no application pools to collect";
    }
  }
  if (!shape.hasSites && !shape.hasWeb) {
    platform::metabase::fail(
        platform::metabase::number::kPathNotFound,
        server.source.shown() + ": the server has " + shape.sitesNote + ", and it has " + shape.poolsNote);
  }
  return shape;
}

// The component's status bar: what it is told says how far a call has come.
class StatusInterceptor : public automation::MemberlessObject {
 public:
  StatusInterceptor(ObjectRef behind, std::function<void(TextView)> sent)
      : MemberlessObject(u"iisinventory"), behind_(std::move(behind)), sent_(std::move(sent)) {}

  void write(TextView member, automation::Arguments arguments, const automation::Variant& value) override {
    if (!arguments.empty() || !automation::equalsIgnoringCase(member, u"message")) {
      return MemberlessObject::write(member, arguments, value);
    }
    if (const Text* text = value.as<Text>()) sent_(*text);
    if (behind_ != nullptr) behind_->write(member, arguments, value);
  }

 private:
  ObjectRef behind_;
  std::function<void(TextView)> sent_;
};

// A server's name leads to its metabase for as long as this lives.
class MappedServer {
 public:
  MappedServer(const Text& name, std::shared_ptr<const platform::metabase::Metabase> snapshot) : name_(name) {
    platform::metabase::mapServer(name, std::move(snapshot));
  }
  ~MappedServer() { platform::metabase::unmapServer(name_); }
  MappedServer(const MappedServer&) = delete;
  MappedServer& operator=(const MappedServer&) = delete;

 private:
  const Text& name_;
};

// Where a walk over a tree stands on one of its levels.
struct Level {
  explicit Level(const ObjectRef& parent) : walk(automation::children(parent)), next(walk->next()) {}

  // The next child, or null.
  ObjectRef take() {
    ObjectRef taken = std::move(next);
    if (taken != nullptr) next = walk->next();
    return taken;
  }

  std::unique_ptr<automation::Walk> walk;
  ObjectRef next;
};

class ServerCollection {
 public:
  ServerCollection(const Server& server, std::uint64_t maxSize, const Selection& selection,
                   StagingDatabase& staging, PrivateLogs& logs, const ProgressLine::Updaters& updaters)
      : server_(server),
        maxSize_(maxSize),
        selection_(selection),
        staging_(staging),
        logs_(logs),
        serverName_(fromUtf8(server.name)),
        databaseName_(fromUtf8(staging.database().name())),
        statusBar_(std::make_shared<StatusInterceptor>(updaters.statusBar,
                                                       [this](TextView status) { sent(status); })),
        updaters_(updaters) {}

  Outcome run() {
    const auto start = std::chrono::steady_clock::now();
    outcome_.collected.origin.started = inventory::utcNow();
    platform::metabase::FileBytes bytes = readSource(server_.source, maxSize_);
    const platform::metabase::Stamp stamp = bytes.stamp;
    recordOrigin(bytes);
    const auto metabase = platform::metabase::Metabase::parse(std::move(bytes), server_.source.shown());
    const MappedServer mapped(serverName_, metabase);
    const ServerCapabilities shape = capabilitiesOf(server_);
    canonicalizeSelection();
    remarkWhatIsMissing(shape);
    {
      const platform::store::ConnectionRedirect redirect(staging_.database());
      logOddities(*metabase);
      if (shape.hasSites && has(Side::kFtp)) collectSites();
      if (shape.hasWeb && has(Side::kPools)) collectPools(shape.hasPools);
    }
    if (const std::string& why = staging_.database().fatalError(); !why.empty()) throw Incomplete(why);
    if (hasChanged(server_.source, stamp)) noteChangedFile();
    outcome_.collected.coverage = coverage();
    outcome_.collected.lineOf = [metabase](const std::string& node) -> std::int64_t {
      const auto found = metabase->find(metabase->root(), fromUtf8(std::string_view(node).substr(1)));
      return found ? static_cast<std::int64_t>(metabase->line(*found)) : 0;
    };
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    outcome_.collected.origin.seconds = seconds.count();
    return std::move(outcome_);
  }

 private:
  bool has(Side side) const {
    return std::any_of(selection_.sections.begin(), selection_.sections.end(),
                       [&](const Section* section) { return section->side == side; });
  }

  void recordOrigin(const platform::metabase::FileBytes& bytes) {
    using namespace std::chrono;
    inventory::Origin& origin = outcome_.collected.origin;
    origin.server = server_.name;
    origin.file = server_.source.shown();
    origin.fileSize = static_cast<std::int64_t>(bytes.size);
    origin.fileTime = inventory::utc(system_clock::time_point(duration_cast<system_clock::duration>(
        seconds(bytes.stamp.seconds) + nanoseconds(bytes.stamp.nanoseconds))));
    origin.sha256 = sha256Hex({bytes.bytes.get(), bytes.size});
    origin.version = IISINVENTORY_VERSION;
    origin.selection = selection_.text;
    // Looked up once for all servers.
    static const std::string kAccount = accountName(), kMachine = machineName();
    origin.collectedBy = kAccount;
    origin.machine = kMachine;
  }

  void canonicalizeSelection() {
    const auto spell = [&](std::vector<std::string>& items, TextView container,
                           std::vector<std::string>& found) {
      if (items.empty()) return;
      const ObjectRef parent = objectAt(server_.name, container);
      items =
          spelledByServer(items, parent != nullptr ? childNames(parent) : std::vector<std::string>(), found);
    };
    spell(selection_.sites, u"/MSFTPSVC", outcome_.foundSites);
    spell(selection_.pools, u"/W3SVC/AppPools", outcome_.foundPools);
  }

  void remarkWhatIsMissing(const ServerCapabilities& shape) {
    if (has(Side::kFtp) && !shape.sitesNote.empty()) outcome_.remarks.push_back(shape.sitesNote);
    if (has(Side::kPools) && !shape.poolsNote.empty()) outcome_.remarks.push_back(shape.poolsNote);
  }

  // What stands in the file and has no place there becomes a record of the class whose side it is on.
  void logOddities(const platform::metabase::Metabase& metabase) {
    ObjectRef sites;
    ObjectRef pools;
    for (const platform::metabase::Metabase::ParseWarning& oddity : metabase.warnings()) {
      const std::string address = oddity.node ? metabase.address(*oddity.node, serverName_) : std::string();
      const bool isPools = isBelow(address, "/W3SVC");
      ObjectRef& object = isPools ? pools : sites;
      if (object == nullptr) {
        object = component(isPools ? TORVINFTPAppDataCom::kAppPoolCollectionProgrammaticId
                                   : TORVINFTPAppDataCom::kFTPCollectionProgrammaticId);
      }
      const Text message = fromUtf8(metabase.describe(oddity, serverName_));
      attempt(CallPlace::ofItem({}, isPools ? ObjectKind::kPool : ObjectKind::kSite, {}, {}),
              [&] { call(object, u"WriteToLog", oddity.failureNumber, message, u"Metabase", u"check"); });
    }
  }

  // Whether an address is that of a service or of something below it.
  bool isBelow(const std::string& address, const std::string& service) const {
    const std::string start = "IIS://" + server_.name + service;
    return automation::equalsIgnoringCase(fromUtf8(std::string_view(address).substr(0, start.size())),
                                          fromUtf8(start)) &&
           (address.size() == start.size() || address[start.size()] == '/');
  }

  void noteChangedFile() {
    Problem note;
    note.isNote = true;
    note.message = "the file " + server_.source.shown() +
                   " has changed since it was read; the inventory shows what it held before";
    note.time = inventory::utcNow();
    outcome_.collected.problems.push_back(std::move(note));
  }

  // A new object of one of the two classes, with its log and the progress objects.
  ObjectRef component(TextView programmaticId) {
    ObjectRef object = automation::CreateObject(programmaticId);
    call(object, u"SetErrorLogPath", fromUtf8(logs_.directory.string()),
         fromUtf8(logs_.server.file().string()));
    call(object, u"SetProcessStatusUpdater", statusBar_, updaters_.progressBar, updaters_.processCount);
    return object;
  }

  // One call of the component. It tells its failures in the logs, so what comes through is a log that can't
  // be written.
  template <typename Call>
  void attempt(CallPlace place, const Call& componentCall) {
    place_ = std::move(place);
    told_ = outcome_.collected.problems.size();
    try {
      componentCall();
    } catch (const Failure& failure) {
      throw Incomplete(toUtf8(failure.description()));
    } catch (const std::bad_alloc&) {
      throw Incomplete("out of memory");
    }
    takeRecords();
    requireEveryRecord();
  }

  // What has been logged up to now belongs to the status before this one.
  void sent(TextView status) {
    takeRecords();
    place_.sent(status, std::span(outcome_.collected.problems).subspan(told_));
    told_ = outcome_.collected.problems.size();
  }

  void takeRecords() {
    for (PrivateLog* log : {&logs_.application, &logs_.server}) {
      const std::string_view news = readNew(*log);
      if (news.empty()) continue;
      for (const Record& record : parseRecords(news)) {
        ++recordCount_;
        if (record.number == kOutOfMemory) recordFirstError("out of memory: " + record.message);
        // What the record about the lost record would have told.
        if (record.message.starts_with(kLostRecord)) recordFirstError(record.message);
        outcome_.collected.problems.push_back(place_.problemOf(record, server_.name));
      }
    }
  }

  // Inside a call of the component a failure would become one more record; it is told behind the call.
  std::string_view readNew(PrivateLog& log) {
    try {
      return log.news();
    } catch (const std::runtime_error& error) {
      recordFirstError(error.what());
      return {};
    }
  }

  // What comes first is the cause of what follows.
  void recordFirstError(const std::string& why) {
    if (lost_.empty()) lost_ = why;
  }

  void requireEveryRecord() {
    if (!lost_.empty()) throw Incomplete(lost_);
    if (triedRecords() - triedBefore_ <= recordCount_) return;
    try {
      logs_.server.checkWritable();
      logs_.application.checkWritable();
    } catch (const std::runtime_error& error) {
      throw Incomplete(error.what());
    }
    throw Incomplete("records of the collection's own logs have been lost");
  }

  void begin(std::string_view section) {
    if (updaters_.begin) updaters_.begin(section);
  }

  // The tabs of one side: of all its items in one call each, or of the selected ones.
  void collectTabs(const ObjectRef& object, TextView method, Side side, const std::vector<std::string>& items,
                   bool all) {
    for (const Section* section : selection_.sections) {
      if (section->side != side || section->kind != Kind::kTab) continue;
      begin(section->name);
      const Text tab = fromUtf8(section->name);
      const std::string_view table = section->tables.front();
      if (all) {
        attempt(CallPlace::ofAll(table, kindOf(side), listed_),
                [&] { call(object, method, serverName_, databaseName_, tab, false); });
        continue;
      }
      for (const std::string& item : items) {
        attempt(CallPlace::ofItem(table, kindOf(side), item, {}),
                [&] { call(object, method, serverName_, databaseName_, tab, true, fromUtf8(item)); });
      }
    }
  }

  // Takes the list that discovery has made.
  void takeList(Side side) {
    const bool sites = side == Side::kFtp;
    listed_.clear();
    const inventory::Table& table =
        inventory::tables()[inventory::findTable(sites ? kSitesTable : kPoolsTable)];
    const std::size_t id = table.find(sites ? inventory::kSiteColumn : inventory::kPoolColumn);
    const std::size_t name = table.find(sites ? inventory::kSiteNameColumn : inventory::kPoolColumn);
    const auto rows = staging_.rows(table);
    while (rows->next()) {
      listed_.push_back({fromUtf8(rows->cell(name).value_or("")), std::string(rows->cell(id).value_or(""))});
    }
    auto& ids = sites ? siteIds_ : poolNames_;
    for (const CallPlace::Item& item : listed_) ids.push_back(item.id);
  }

  // The items that discovery has found and the selection wants.
  static std::vector<std::string> wantedItems(std::vector<std::string> items,
                                              const std::vector<std::string>& selected) {
    if (selected.empty()) return items;
    std::erase_if(items, [&](const std::string& item) {
      return std::find(selected.begin(), selected.end(), item) == selected.end();
    });
    return items;
  }

  void collectSites() {
    const ObjectRef sites = component(TORVINFTPAppDataCom::kFTPCollectionProgrammaticId);
    attempt(CallPlace::ofItem(kSitesTable, ObjectKind::kSite, {}, {}),
            [&] { call(sites, u"GenerateFTPSiteInfo", serverName_, databaseName_); });
    takeList(Side::kFtp);
    const auto items = wantedItems(siteIds_, selection_.sites);
    collectTabs(sites, u"GetFTPPropertyInfo", Side::kFtp, items, selection_.sites.empty());
    if (!selection_.has(Side::kFtp, Kind::kVirtualDirectories)) return;
    begin("Virtual Directories");
    for (const std::string& item : items) collectDirectories(sites, item);
  }

  // The tree of one site. Where the walk stands on each level lies on a list: a tree may be deep.
  void collectDirectories(const ObjectRef& sites, const std::string& item) {
    const Text id = fromUtf8(item);
    const auto placeOf = [&](const Text& path) {
      return CallPlace::ofItem("tblvirtualDirectory", ObjectKind::kSite, item, toUtf8(path));
    };
    const Text sitePath = u"/MSFTPSVC/" + id + u"/ROOT";
    const ObjectRef root = objectAt(server_.name, sitePath);
    const Text rootPath = root != nullptr ? automation::toText(automation::read(root, u"ADsPath"))
                                          : u"IIS://" + serverName_ + sitePath;
    attempt(placeOf(rootPath),
            [&] { call(sites, u"GetRootVirtualDirectory", serverName_, id, rootPath, databaseName_); });
    if (root == nullptr) return;

    std::vector<Level> levels;
    levels.emplace_back(root);
    while (!levels.empty()) {
      const ObjectRef directory = levels.back().take();
      if (directory == nullptr) {
        levels.pop_back();
        continue;
      }
      Level below(directory);
      if (below.next == nullptr) continue;
      const Text path = automation::toText(automation::read(directory, u"ADsPath"));
      attempt(placeOf(path),
              [&] { call(sites, u"GetChildVirtualDirectories", serverName_, id, path, databaseName_); });
      levels.push_back(std::move(below));
    }
  }

  void collectPools(bool hasPools) {
    begin("");
    const ObjectRef pools = component(TORVINFTPAppDataCom::kAppPoolCollectionProgrammaticId);
    std::vector<std::string> items;
    if (hasPools && selection_.needsList(Side::kPools)) {
      attempt(CallPlace::ofItem(kPoolsTable, ObjectKind::kPool, {}, {}),
              [&] { call(pools, u"GetAppPoolsCount", serverName_, databaseName_); });
      takeList(Side::kPools);
      items = wantedItems(poolNames_, selection_.pools);
      collectTabs(pools, u"GetAppPoolPropertyInfo", Side::kPools, items, selection_.pools.empty());
    }
    if (selection_.has(Side::kPools, Kind::kExtensions)) {
      begin("Web Service Extensions");
      attempt(CallPlace::ofItem("tblWSExtension", ObjectKind::kNone, {}, "IIS://" + server_.name + "/W3SVC"),
              [&] { call(pools, u"GetWebServiceExtension", serverName_, databaseName_); });
    }
    if (!selection_.has(Side::kPools, Kind::kAppliedObjects)) return;
    begin("Applied Objects");
    for (const std::string& item : items) {
      attempt(CallPlace::ofItem("tblAppliedObject", ObjectKind::kPool, item, {}),
              [&] { call(pools, u"EnumAppsInPool", serverName_, databaseName_, fromUtf8(item)); });
    }
  }

  inventory::Coverage coverage() const {
    if (selection_.isWhole) return inventory::Coverage::everything();
    inventory::Coverage coverage;
    const auto add = [&](std::string_view name, Side side) {
      const inventory::Table& table = inventory::tables()[inventory::findTable(name)];
      for (const ObjectKind kind : table.kinds) {
        const ObjectKind itemKind = inventory::itemKindOf(kind);
        if (kind != ObjectKind::kNone && (itemKind == ObjectKind::kNone || itemKind == kindOf(side)))
          coverage.add(table, kind);
      }
    };
    for (const Side side : {Side::kFtp, Side::kPools}) {
      if (selection_.needsList(side)) add(inventory::listTableOf(kindOf(side)), side);
    }
    for (const Section* section : selection_.sections) {
      for (const std::string_view table : section->tables) add(table, section->side);
    }
    if (!selection_.sites.empty()) coverage.restrict(ObjectKind::kSite, selection_.sites);
    if (!selection_.pools.empty()) coverage.restrict(ObjectKind::kPool, selection_.pools);
    return coverage;
  }

  const Server& server_;
  const std::uint64_t maxSize_;
  Selection selection_;  // spelled as the server spells it
  StagingDatabase& staging_;
  PrivateLogs& logs_;
  const Text serverName_;
  const Text databaseName_;
  const ObjectRef statusBar_;
  const ProgressLine::Updaters& updaters_;

  CallPlace place_ = CallPlace::ofItem({}, ObjectKind::kNone, {}, {});
  std::size_t told_ = 0;  // problems at the last status text, or at the begin of the call
  std::vector<CallPlace::Item> listed_;
  std::vector<std::string> siteIds_;
  std::vector<std::string> poolNames_;
  std::string lost_;  // why records have been lost
  // The component may lose a record without a word.
  const std::int64_t triedBefore_ = triedRecords();
  std::int64_t recordCount_ = 0;  // that could be read
  Outcome outcome_;
};

}  // namespace

std::string stagingTableSql(const inventory::Table& table) {
  std::string columns;
  for (const inventory::Column& column : table.columns) {
    columns += (columns.empty() ? "" : ", ") + sqlite::quotedName(column.name) + " text collate nocase";
  }
  return "create table " + sqlite::quotedName(table.name) + " (" + columns + ")";
}

StagingDatabase::StagingDatabase(const std::string& name) : database_(name) {
  sqlite::Database& database = database_.database();
  for (const inventory::Table& table : inventory::tables()) database.execute(stagingTableSql(table));
  database.execute(kExtensionIndex);
  for (const inventory::Table& table : inventory::tables()) {
    readings_.push_back(
        database.prepare("select * from " + sqlite::quotedName(table.name) + " order by rowid"));
    counts_.push_back(database.prepare("select count(*) from " + sqlite::quotedName(table.name)));
    database_.bufferRows(std::string(table.name));
  }
}

namespace {

class LoggedRows : public inventory::Rows {
 public:
  explicit LoggedRows(const sqlite::RowLog& log) : reader_(log) {}
  bool next() override { return reader_.next(); }
  inventory::Cell cell(std::size_t column) override { return reader_.cell(column); }

 private:
  sqlite::RowLog::Reader reader_;
};

// The rows of a collection without its database.
class TakenRows : public inventory::RowSource {
 public:
  void add(sqlite::RowLog log) { logs_.push_back(std::move(log)); }
  std::unique_ptr<inventory::Rows> rows(const inventory::Table& table) const override {
    return std::make_unique<LoggedRows>(logs_[inventory::findTable(table.name)]);
  }

 private:
  std::vector<sqlite::RowLog> logs_;  // by the table's place
};

}  // namespace

std::unique_ptr<inventory::Rows> StagingDatabase::rows(const inventory::Table& table) const {
  class Reading : public inventory::Rows {
   public:
    explicit Reading(sqlite::Statement& statement) : statement_(statement) { statement_.reset(); }
    ~Reading() override { statement_.reset(); }
    bool next() override { return statement_.step(); }
    inventory::Cell cell(std::size_t column) override { return statement_.text(static_cast<int>(column)); }

   private:
    sqlite::Statement& statement_;
  };
  if (const auto* const log = database_.bufferedRows(table.name)) return std::make_unique<LoggedRows>(*log);
  return std::make_unique<Reading>(readings_[inventory::findTable(table.name)]);
}

inventory::RowCounts StagingDatabase::rowCounts() {
  inventory::RowCounts rows;
  for (const inventory::Table& table : inventory::tables()) {
    if (const auto* const log = database_.bufferedRows(table.name)) {
      rows.push_back(static_cast<std::int64_t>(log->rowCount()));
      continue;
    }
    sqlite::Statement& count = counts_[inventory::findTable(table.name)];
    count.step();
    rows.push_back(count.number(0));
    count.reset();
  }
  return rows;
}

std::unique_ptr<inventory::RowSource> StagingDatabase::takeRows(std::unique_ptr<StagingDatabase>& staging) {
  if (staging->database_.memoryInUse() > kMostKeptBytes) return std::move(staging);
  auto taken = std::make_unique<TakenRows>();
  for (const inventory::Table& table : inventory::tables()) {
    if (auto waiting = staging->database_.takeBufferedRows(table.name)) {
      taken->add(*std::move(waiting));
      continue;
    }
    sqlite::RowLog log(table.columns.size());
    const auto rows = staging->rows(table);
    const auto cellAt = [&](std::size_t column) { return rows->cell(column); };
    while (rows->next()) log.add(sqlite::RowLog::sizeOf(table.columns.size(), cellAt), cellAt);
    taken->add(std::move(log));
  }
  return taken;
}

void StagingDatabase::recycle(std::unique_ptr<StagingDatabase>& staging) noexcept {
  if (staging == nullptr) return;
  try {
    platform::store::PrivateDatabase& database = staging->database_;
    const bool isSmall = database.memoryInUse() <= kMostKeptBytes;
    if (isSmall) database.empty();
    if (isSmall && database.fatalError().empty()) return;
  } catch (const sqlite::Error&) {
  } catch (const std::bad_alloc&) {
  }
  staging.reset();
}

Outcome collectServer(const Server& server, std::uint64_t maxSize, const Selection& selection,
                      StagingDatabase& staging, PrivateLogs& logs, const ProgressLine::Updaters& updaters) {
  return ServerCollection(server, maxSize, selection, staging, logs, updaters).run();
}

}  // namespace host
