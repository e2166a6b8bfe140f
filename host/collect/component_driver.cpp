#include "host/collect/component_driver.h"

#include <algorithm>
#include <functional>
#include <new>
#include <utility>

#include "automation/failure.h"
#include "automation/runtime.h"
#include "host/collect/server_capabilities.h"
#include "platform/desktop/desktop.h"
#include "platform/metabase/servers.h"
#include "platform/store/store.h"
#include "platform/wmi/wmi.h"
#include "server/identifiers.h"
#include "server/portable/server.h"

namespace host {
namespace {

using automation::fromUtf8;
using automation::ObjectRef;
using automation::Text;
using automation::TextView;
using automation::toUtf8;
using inventory::ObjectKind;

constexpr std::string_view kSitesTable = "tblFTPSiteInfo";
constexpr std::string_view kPoolsTable = "tblAppPoolInfo";

ObjectKind kindOf(Side side) {
  return side == Side::kFtp ? ObjectKind::kSite : ObjectKind::kPool;
}

// The component's status bar: its texts show the progress of a call.
class StatusInterceptor : public automation::MemberlessObject {
 public:
  StatusInterceptor(ObjectRef behind, std::function<void(TextView)> onStatus)
      : MemberlessObject(u"iisinventory"), behind_(std::move(behind)), onStatus_(std::move(onStatus)) {}

  void write(TextView member, automation::Arguments arguments, const automation::Variant& value) override {
    if (!arguments.empty() || !automation::equalsIgnoringCase(member, u"message")) {
      return MemberlessObject::write(member, arguments, value);
    }
    if (const Text* text = value.as<Text>()) onStatus_(*text);
    if (behind_ != nullptr) behind_->write(member, arguments, value);
  }

 private:
  ObjectRef behind_;
  std::function<void(TextView)> onStatus_;
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

}  // namespace

void registerComponent() {
  platform::metabase::registerMoniker();
  platform::wmi::registerMoniker();
  platform::store::registerStore();
  platform::desktop::registerDesktop();
  DllRegisterServer();
  countTriedRecords();
}

ComponentDriver::ComponentDriver(const std::string& server, const Selection& selection,
                                 StagingDatabase& staging, CollectionRecords& records,
                                 const ProgressLine::Updaters& updaters)
    : server_(server),
      selection_(selection),
      staging_(staging),
      records_(records),
      updaters_(updaters),
      serverName_(fromUtf8(server)),
      databaseName_(fromUtf8(staging.database().name())),
      statusBar_(std::make_shared<StatusInterceptor>(
          updaters.statusBar, [&records](TextView status) { records.onStatus(status); })) {}

// The object of the class that collects a side, with logs and progress objects.
ObjectRef& ComponentDriver::component(Side side) {
  ObjectRef& object = side == Side::kFtp ? sites_ : pools_;
  if (object != nullptr) return object;
  object =
      automation::CreateObject(side == Side::kFtp ? TORVINFTPAppDataCom::kFTPCollectionProgrammaticId
                                                  : TORVINFTPAppDataCom::kAppPoolCollectionProgrammaticId);
  const PrivateLogs& logs = records_.logs();
  automation::call(object, u"SetErrorLogPath", fromUtf8(logs.directory.string()),
                   fromUtf8(logs.server.file().string()));
  automation::call(object, u"SetProcessStatusUpdater", statusBar_, updaters_.progressBar,
                   updaters_.processCount);
  return object;
}

// Makes one call of the component. It logs its failures, so an exception means that a log cannot be written.
template <typename... Arguments>
void ComponentDriver::call(RecordContext context, Side side, TextView method, const Arguments&... arguments) {
  records_.begin(std::move(context));
  std::string failure;
  try {
    automation::call(component(side), method, arguments...);
  } catch (const automation::Failure& error) {
    failure = toUtf8(error.description());
  } catch (const std::bad_alloc&) {
    failure = "out of memory";
  }
  records_.end(failure);
}

void ComponentDriver::log(Side side, std::int32_t number, const std::string& message) {
  call(RecordContext::ofItem({}, kindOf(side), {}, {}), side, u"WriteToLog", number, fromUtf8(message),
       Text(u"Metabase"), Text(u"check"));
}

void ComponentDriver::begin(std::string_view section) {
  if (updaters_.begin) updaters_.begin(section);
}

// Collects the tabs of one side: one call for all items, or one for each selected item.
void ComponentDriver::collectTabs(Side side, TextView method, const std::vector<std::string>& items,
                                  bool all) {
  for (const Section* section : selection_.sections) {
    if (section->side != side || section->kind != Kind::kTab) continue;
    begin(section->name);
    const Text tab = fromUtf8(section->name);
    const std::string_view table = section->tables.front();
    if (all) {
      call(RecordContext::ofAll(table, kindOf(side), items_), side, method, serverName_, databaseName_, tab,
           false);
      continue;
    }
    for (const std::string& item : items) {
      call(RecordContext::ofItem(table, kindOf(side), item, {}), side, method, serverName_, databaseName_,
           tab, true, fromUtf8(item));
    }
  }
}

// Reads the list of items that discovery has written.
void ComponentDriver::readItems(Side side) {
  const bool sites = side == Side::kFtp;
  items_.clear();
  const inventory::Table& table =
      inventory::tables()[inventory::findTable(sites ? kSitesTable : kPoolsTable)];
  const std::size_t id = table.find(sites ? inventory::kSiteColumn : inventory::kPoolColumn);
  const std::size_t name = table.find(sites ? inventory::kSiteNameColumn : inventory::kPoolColumn);
  const auto rows = staging_.rows(table);
  while (rows->next()) {
    items_.push_back({fromUtf8(rows->cell(name).value_or("")), std::string(rows->cell(id).value_or(""))});
  }
}

// The selected ones of the discovered items.
std::vector<std::string> ComponentDriver::wantedItems(const std::vector<std::string>& selected) const {
  std::vector<std::string> wanted;
  for (const RecordContext::Item& item : items_) {
    if (selected.empty() || std::ranges::find(selected, item.id) != selected.end()) wanted.push_back(item.id);
  }
  return wanted;
}

void ComponentDriver::collectSites() {
  call(RecordContext::ofItem(kSitesTable, ObjectKind::kSite, {}, {}), Side::kFtp, u"GenerateFTPSiteInfo",
       serverName_, databaseName_);
  readItems(Side::kFtp);
  const auto items = wantedItems(selection_.sites);
  collectTabs(Side::kFtp, u"GetFTPPropertyInfo", items, selection_.sites.empty());
  if (!selection_.has(Side::kFtp, Kind::kVirtualDirectories)) return;
  begin("Virtual Directories");
  for (const std::string& item : items) collectDirectories(item);
}

// Walks the tree of one site, without recursion, as it may be deep.
void ComponentDriver::collectDirectories(const std::string& item) {
  const Text id = fromUtf8(item);
  const auto collect = [&](TextView method, const Text& path) {
    call(RecordContext::ofItem("tblvirtualDirectory", ObjectKind::kSite, item, toUtf8(path)), Side::kFtp,
         method, serverName_, id, path, databaseName_);
  };
  const Text sitePath = u"/MSFTPSVC/" + id + u"/ROOT";
  const ObjectRef root = objectAt(server_, sitePath);
  collect(u"GetRootVirtualDirectory", root != nullptr ? automation::toText(automation::read(root, u"ADsPath"))
                                                      : u"IIS://" + serverName_ + sitePath);
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
    collect(u"GetChildVirtualDirectories", automation::toText(automation::read(directory, u"ADsPath")));
    levels.push_back(std::move(below));
  }
}

void ComponentDriver::collectPools(bool hasPools) {
  begin("");
  std::vector<std::string> items;
  if (hasPools && selection_.needsList(Side::kPools)) {
    call(RecordContext::ofItem(kPoolsTable, ObjectKind::kPool, {}, {}), Side::kPools, u"GetAppPoolsCount",
         serverName_, databaseName_);
    readItems(Side::kPools);
    items = wantedItems(selection_.pools);
    collectTabs(Side::kPools, u"GetAppPoolPropertyInfo", items, selection_.pools.empty());
  }
  if (selection_.has(Side::kPools, Kind::kExtensions)) {
    begin("Web Service Extensions");
    call(RecordContext::ofItem("tblWSExtension", ObjectKind::kNone, {}, "IIS://" + server_ + "/W3SVC"),
         Side::kPools, u"GetWebServiceExtension", serverName_, databaseName_);
  }
  if (!selection_.has(Side::kPools, Kind::kAppliedObjects)) return;
  begin("Applied Objects");
  for (const std::string& item : items) {
    call(RecordContext::ofItem("tblAppliedObject", ObjectKind::kPool, item, {}), Side::kPools,
         u"EnumAppsInPool", serverName_, databaseName_, fromUtf8(item));
  }
}

}  // namespace host
