#include "host/collect/server_collection.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <system_error>
#include <utility>

#include "automation/failure.h"
#include "automation/object.h"
#include "automation/runtime.h"
#include "host/collect/record_context.h"
#include "host/collect/record_parser.h"
#include "host/sha256.h"
#include "inventory/clock.h"
#include "os/file.h"
#include "os/process.h"
#include "platform/metabase/failures.h"
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
// The component's error number for a lack of memory.
constexpr std::int32_t kOutOfMemory = 7;
// The beginning of the component's message about a log that it cannot write.
constexpr std::string_view kLostRecord = "Can't write the log ";

constexpr std::string_view kSitesTable = "tblFTPSiteInfo";
constexpr std::string_view kPoolsTable = "tblAppPoolInfo";

ObjectKind kindOf(Side side) {
  return side == Side::kFtp ? ObjectKind::kSite : ObjectKind::kPool;
}

// The object at a path of the server; null if there is none.
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

// The version of the server, read as the component reads it; nothing if that fails, which the component then
// records where it matters.
std::optional<std::int16_t> versionOf(const std::string& server) {
  try {
    const ObjectRef common = automation::CreateObject(u"MARLINSCOPEGLOBALCOM.ICommonFunction");
    automation::Variant name = fromUtf8(server);
    return automation::toInt16(automation::callByReference(common, u"getos", name));
  } catch (const Failure&) {
    return std::nullopt;
  }
}

// The wanted items as the server spells them. Adds those that it has to `found`, as the user spells them.
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

// What a server has, determined before anything is collected.
struct ServerCapabilities {
  bool hasSites = false;  // an FTP service
  bool hasWeb = false;    // a web service whose server may have application pools
  bool hasPools = false;
  // What it lacks, and why; empty if it lacks nothing of that side.
  std::string sitesNote;
  std::string poolsNote;
};

// Throws automation::Failure for a server without FTP and web services.
ServerCapabilities capabilitiesOf(const Server& server) {
  ServerCapabilities capabilities;
  capabilities.hasSites = objectAt(server.name, u"/MSFTPSVC") != nullptr;
  capabilities.hasWeb = objectAt(server.name, u"/W3SVC") != nullptr;
  if (!capabilities.hasSites) capabilities.sitesNote = "no FTP service, so there are no FTP sites to collect";
  if (!capabilities.hasWeb) {
    capabilities.poolsNote = "no web service, so there are no application pools to collect";
  } else if (const auto version = versionOf(server.name); version && *version < kFirstVersionWithPools) {
    capabilities.hasWeb = false;
    capabilities.poolsNote = "no application pools (IIS " + std::to_string(*version) + " has none)";
  } else {
    capabilities.hasPools = objectAt(server.name, u"/W3SVC/AppPools") != nullptr;
    if (!capabilities.hasPools) {
      capabilities.poolsNote = "no node /LM/W3SVC/AppPools, so there are no application pools to collect";
    }
  }
  if (platform::metabase::snapshotOf(fromUtf8(server.name))->isPartialExport()) {
    const std::string note =
        " (a partial export): what it hands down is unknown, so defaults count, and IIS 6 is assumed";
    if (capabilities.hasSites) capabilities.sitesNote = "no element of the FTP service" + note;
    if (capabilities.hasPools) capabilities.poolsNote = "no element of the web service" + note;
  }
  if (!capabilities.hasSites && !capabilities.hasWeb) {
    platform::metabase::fail(platform::metabase::number::kPathNotFound,
                             server.source.shown() + ": the server has " + capabilities.sitesNote +
                                 ", and it has " + capabilities.poolsNote);
  }
  return capabilities;
}

// The component's status bar: its texts show the progress of a call.
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

// Maps a server's name to its metabase while it lives.
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

// The position of a tree walk on one level.
struct Level {
  explicit Level(const ObjectRef& parent) : walk(automation::children(parent)), next(walk->next()) {}

  // Returns the next child, or null.
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
    os::FileBytes bytes = readSource(server_.source, maxSize_);
    const os::FileStamp stamp = bytes.stamp;
    recordOrigin(bytes);
    const auto metabase = platform::metabase::Metabase::parse(std::move(bytes), server_.source.shown());
    const MappedServer mapped(serverName_, metabase);
    const ServerCapabilities capabilities = capabilitiesOf(server_);
    canonicalizeSelection();
    remarkWhatIsMissing(capabilities);
    {
      const platform::store::ConnectionRedirect redirect(staging_.database());
      logOddities(*metabase);
      if (capabilities.hasSites && has(Side::kFtp)) collectSites();
      if (capabilities.hasWeb && has(Side::kPools)) collectPools(capabilities.hasPools);
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

  void recordOrigin(const os::FileBytes& bytes) {
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
    // The same for all servers.
    static const std::string kAccount = os::accountName(), kMachine = os::machineName();
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

  void remarkWhatIsMissing(const ServerCapabilities& capabilities) {
    if (has(Side::kFtp) && !capabilities.sitesNote.empty())
      outcome_.remarks.push_back(capabilities.sitesNote);
    if (has(Side::kPools) && !capabilities.poolsNote.empty())
      outcome_.remarks.push_back(capabilities.poolsNote);
  }

  // Logs each parse warning through the class whose part of the file it concerns.
  void logOddities(const platform::metabase::Metabase& metabase) {
    ObjectRef sites;
    ObjectRef pools;
    for (const platform::metabase::Metabase::ParseWarning& warning : metabase.warnings()) {
      const std::string address = warning.node ? metabase.address(*warning.node, serverName_) : std::string();
      const bool isPools = isBelow(address, "/W3SVC");
      ObjectRef& object = isPools ? pools : sites;
      if (object == nullptr) {
        object = component(isPools ? TORVINFTPAppDataCom::kAppPoolCollectionProgrammaticId
                                   : TORVINFTPAppDataCom::kFTPCollectionProgrammaticId);
      }
      const Text message = fromUtf8(metabase.describe(warning, serverName_));
      attempt(RecordContext::ofItem({}, isPools ? ObjectKind::kPool : ObjectKind::kSite, {}, {}),
              [&] { call(object, u"WriteToLog", warning.failureNumber, message, u"Metabase", u"check"); });
    }
  }

  // Whether an address is that of a service or below it.
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
                   " has changed since it was read; the inventory shows its earlier contents";
    note.time = inventory::utcNow();
    outcome_.collected.problems.push_back(std::move(note));
  }

  // Creates an object of one of the two classes, with logs and progress objects.
  ObjectRef component(TextView programmaticId) {
    ObjectRef object = automation::CreateObject(programmaticId);
    call(object, u"SetErrorLogPath", fromUtf8(logs_.directory.string()),
         fromUtf8(logs_.server.file().string()));
    call(object, u"SetProcessStatusUpdater", statusBar_, updaters_.progressBar, updaters_.processCount);
    return object;
  }

  // Makes one call of the component. It logs its failures, so an exception means that a log cannot be
  // written.
  template <typename Call>
  void attempt(RecordContext place, const Call& componentCall) {
    place_ = std::move(place);
    told_ = outcome_.collected.problems.size();
    try {
      componentCall();
    } catch (const Failure& failure) {
      takeRecords();
      throw Incomplete(toUtf8(failure.description()));
    } catch (const std::bad_alloc&) {
      takeRecords();
      throw Incomplete("out of memory");
    }
    takeRecords();
    requireEveryRecord();
  }

  // The records up to now belong to the previous status text.
  void sent(TextView status) {
    takeRecords();
    place_.sent(status, std::span(outcome_.collected.problems).subspan(told_));
    told_ = outcome_.collected.problems.size();
  }

  void takeRecords() {
    for (PrivateLog* log : {&logs_.application, &logs_.server}) {
      const std::string_view news = newRecordsOf(*log);
      if (news.empty()) continue;
      for (const Record& record : parseRecords(news)) {
        ++recordCount_;
        if (record.number == kOutOfMemory) recordFirstError("out of memory: " + record.message);
        // A record about a record that was lost.
        if (record.message.starts_with(kLostRecord)) recordFirstError(record.message);
        outcome_.collected.problems.push_back(place_.problemOf(record, server_.name));
      }
    }
  }

  // An exception within a call of the component would become another record, so it is kept until the call
  // ends.
  std::string_view newRecordsOf(PrivateLog& log) {
    try {
      return log.readNew();
    } catch (const std::runtime_error& error) {
      recordFirstError(error.what());
      return {};
    }
  }

  // The first error is the cause of later ones.
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

  // Collects the tabs of one side: one call for all items, or one for each selected item.
  void collectTabs(const ObjectRef& object, TextView method, Side side, const std::vector<std::string>& items,
                   bool all) {
    for (const Section* section : selection_.sections) {
      if (section->side != side || section->kind != Kind::kTab) continue;
      begin(section->name);
      const Text tab = fromUtf8(section->name);
      const std::string_view table = section->tables.front();
      if (all) {
        attempt(RecordContext::ofAll(table, kindOf(side), listed_),
                [&] { call(object, method, serverName_, databaseName_, tab, false); });
        continue;
      }
      for (const std::string& item : items) {
        attempt(RecordContext::ofItem(table, kindOf(side), item, {}),
                [&] { call(object, method, serverName_, databaseName_, tab, true, fromUtf8(item)); });
      }
    }
  }

  // Reads the list of items that discovery has written.
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
    for (const RecordContext::Item& item : listed_) ids.push_back(item.id);
  }

  // The selected ones of the discovered items.
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
    attempt(RecordContext::ofItem(kSitesTable, ObjectKind::kSite, {}, {}),
            [&] { call(sites, u"GenerateFTPSiteInfo", serverName_, databaseName_); });
    takeList(Side::kFtp);
    const auto items = wantedItems(siteIds_, selection_.sites);
    collectTabs(sites, u"GetFTPPropertyInfo", Side::kFtp, items, selection_.sites.empty());
    if (!selection_.has(Side::kFtp, Kind::kVirtualDirectories)) return;
    begin("Virtual Directories");
    for (const std::string& item : items) collectDirectories(sites, item);
  }

  // Walks the tree of one site, without recursion, as it may be deep.
  void collectDirectories(const ObjectRef& sites, const std::string& item) {
    const Text id = fromUtf8(item);
    const auto placeOf = [&](const Text& path) {
      return RecordContext::ofItem("tblvirtualDirectory", ObjectKind::kSite, item, toUtf8(path));
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
      attempt(RecordContext::ofItem(kPoolsTable, ObjectKind::kPool, {}, {}),
              [&] { call(pools, u"GetAppPoolsCount", serverName_, databaseName_); });
      takeList(Side::kPools);
      items = wantedItems(poolNames_, selection_.pools);
      collectTabs(pools, u"GetAppPoolPropertyInfo", Side::kPools, items, selection_.pools.empty());
    }
    if (selection_.has(Side::kPools, Kind::kExtensions)) {
      begin("Web Service Extensions");
      attempt(
          RecordContext::ofItem("tblWSExtension", ObjectKind::kNone, {}, "IIS://" + server_.name + "/W3SVC"),
          [&] { call(pools, u"GetWebServiceExtension", serverName_, databaseName_); });
    }
    if (!selection_.has(Side::kPools, Kind::kAppliedObjects)) return;
    begin("Applied Objects");
    for (const std::string& item : items) {
      attempt(RecordContext::ofItem("tblAppliedObject", ObjectKind::kPool, item, {}),
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

  RecordContext place_ = RecordContext::ofItem({}, ObjectKind::kNone, {}, {});
  std::size_t told_ = 0;  // number of problems at the last status text or the beginning of the call
  std::vector<RecordContext::Item> listed_;
  std::vector<std::string> siteIds_;
  std::vector<std::string> poolNames_;
  std::string lost_;  // why records have been lost
  // The component may lose a record without reporting it.
  const std::int64_t triedBefore_ = beginCountingRecords();
  std::int64_t recordCount_ = 0;  // records that were read
  Outcome outcome_;
};

}  // namespace

Outcome collectServer(const Server& server, std::uint64_t maxSize, const Selection& selection,
                      StagingDatabase& staging, PrivateLogs& logs, const ProgressLine::Updaters& updaters) {
  return ServerCollection(server, maxSize, selection, staging, logs, updaters).run();
}

}  // namespace host
