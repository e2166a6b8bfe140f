#include "host/server_collection.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <utility>

#include "automation/object.h"
#include "automation/runtime.h"
#include "platform/metabase/failures.h"
#include "platform/metabase/servers.h"
#include "platform/store/store.h"
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

constexpr std::int16_t kFirstVersionWithPools = 6;

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

class ServerCollection {
 public:
  ServerCollection(const Server& server, const Target& target, const Selection& selection,
                   const ProgressLine::Updaters& updaters,
                   const std::function<void(const std::string&)>& note)
      : server_(server),
        target_(target),
        selection_(selection),
        updaters_(updaters),
        note_(note),
        serverName_(fromUtf8(server.name)),
        databaseName_(fromUtf8(target.database.string())) {}

  Outcome run() {
    try {
      const ServerShape shape = lookAt(server_);
      spellSelection();
      auto database =
          platform::store::Database::openExisting(target_.database, platform::store::Access::kReadWrite);
      clear(database);
      noteWhatIsMissing(shape);
      outcome_.collected = true;
      if (shape.hasSites && has(Side::kFtp)) collectSites(database);
      if (shape.hasWeb && has(Side::kPools)) collectPools(database, shape.hasPools);
    } catch (const Failure& failure) {
      problem(failure);
    }
    return std::move(outcome_);
  }

 private:
  bool has(Side side) const {
    return std::any_of(selection_.gatherings.begin(), selection_.gatherings.end(),
                       [&](const Gathering* gathering) { return gathering->side == side; });
  }

  void problem(const Failure& failure) {
    std::string text = toUtf8(failure.description());
    auto& problems = outcome_.problems;
    if (std::find(problems.begin(), problems.end(), text) == problems.end()) {
      problems.push_back(std::move(text));
    }
  }

  // The component tells its failures in the logs; what comes through is a log that can't be written. The
  // other calls still have rows to give.
  template <typename Call>
  void attempt(const Call& componentCall) {
    try {
      componentCall();
    } catch (const Failure& failure) {
      problem(failure);
    }
  }

  void spellSelection() {
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

  void clear(platform::store::Database& database) {
    outcome_.replaced = clearRows(database, server_.name, selection_);
    const std::int64_t rows = total(outcome_.replaced);
    if (rows == 0) return;
    note_("replaced " + std::to_string(rows) + (rows == 1 ? " row" : " rows") + " of " + server_.name +
          " from an earlier run");
  }

  void noteWhatIsMissing(const ServerShape& shape) {
    if (has(Side::kFtp) && !shape.sitesNote.empty()) note_(server_.name + " " + shape.sitesNote);
    if (has(Side::kPools) && !shape.poolsNote.empty()) note_(server_.name + " " + shape.poolsNote);
  }

  // A new object of one of the two classes, with its log and the progress objects.
  ObjectRef component(TextView programmaticId) {
    ObjectRef object = automation::CreateObject(programmaticId);
    call(object, u"SetErrorLogPath", fromUtf8(target_.logDirectory.string()),
         fromUtf8(target_.serverLog(server_.name).string()));
    call(object, u"SetProcessStatusUpdater", updaters_[0], updaters_[1], updaters_[2]);
    return object;
  }

  // The tabs of one side: of all its items in one call each, or of the selected ones.
  void collectTabs(const ObjectRef& object, TextView method, Side side, const std::vector<std::string>& items,
                   bool all) {
    for (const Gathering* gathering : selection_.gatherings) {
      if (gathering->side != side || gathering->kind != Kind::kTab) continue;
      const Text tab = fromUtf8(gathering->name);
      if (all) {
        attempt([&] { call(object, method, serverName_, databaseName_, tab, false); });
        continue;
      }
      for (const std::string& item : items) {
        attempt([&] { call(object, method, serverName_, databaseName_, tab, true, fromUtf8(item)); });
      }
    }
  }

  // The items that discovery has found and the selection wants.
  std::vector<std::string> wantedItems(platform::store::Database& database, Side side,
                                       const std::vector<std::string>& selected) const {
    std::vector<std::string> items = listedItems(database, server_.name, side);
    if (selected.empty()) return items;
    std::erase_if(items, [&](const std::string& item) {
      return std::find(selected.begin(), selected.end(), item) == selected.end();
    });
    return items;
  }

  void collectSites(platform::store::Database& database) {
    const ObjectRef sites = component(TORVINFTPAppDataCom::kFTPCollectionProgrammaticId);
    attempt([&] { call(sites, u"GenerateFTPSiteInfo", serverName_, databaseName_); });
    const auto items = wantedItems(database, Side::kFtp, selection_.sites);
    collectTabs(sites, u"GetFTPPropertyInfo", Side::kFtp, items, selection_.sites.empty());
    if (!selection_.has(Side::kFtp, Kind::kVirtualDirectories)) return;
    for (const std::string& item : items) {
      attempt([&] { collectDirectories(sites, fromUtf8(item)); });
    }
  }

  // The tree of one site. Where the walk stands on each level lies on a list: a tree may be deep.
  void collectDirectories(const ObjectRef& sites, const Text& id) {
    const Text sitePath = u"/MSFTPSVC/" + id + u"/ROOT";
    const ObjectRef root = objectAt(server_.name, sitePath);
    const Text rootPath = root != nullptr ? automation::toText(automation::read(root, u"ADsPath"))
                                          : u"IIS://" + serverName_ + sitePath;
    call(sites, u"GetRootVirtualDirectory", serverName_, id, rootPath, databaseName_);
    if (root == nullptr) return;

    std::vector<std::unique_ptr<automation::Walk>> levels;
    levels.push_back(automation::children(root));
    while (!levels.empty()) {
      const ObjectRef directory = levels.back()->next();
      if (directory == nullptr) {
        levels.pop_back();
        continue;
      }
      const Text path = automation::toText(automation::read(directory, u"ADsPath"));
      const auto children = automation::toInt16(call(sites, u"GenerateFTPVirDirInfo", path));
      if (children <= 0) continue;
      call(sites, u"GetChildVirtualDirectories", serverName_, id, path, databaseName_);
      levels.push_back(automation::children(directory));
    }
  }

  void collectPools(platform::store::Database& database, bool hasPools) {
    const ObjectRef pools = component(TORVINFTPAppDataCom::kAppPoolCollectionProgrammaticId);
    std::vector<std::string> items;
    if (hasPools && selection_.needsList(Side::kPools)) {
      attempt([&] { call(pools, u"GetAppPoolsCount", serverName_, databaseName_); });
      items = wantedItems(database, Side::kPools, selection_.pools);
      collectTabs(pools, u"GetAppPoolPropertyInfo", Side::kPools, items, selection_.pools.empty());
    }
    if (selection_.has(Side::kPools, Kind::kExtensions)) {
      attempt([&] { call(pools, u"GetWebServiceExtension", serverName_, databaseName_); });
    }
    if (!selection_.has(Side::kPools, Kind::kAppliedObjects)) return;
    for (const std::string& item : items) {
      attempt([&] { call(pools, u"EnumAppsInPool", serverName_, databaseName_, fromUtf8(item)); });
    }
  }

  const Server& server_;
  const Target& target_;
  Selection selection_;  // spelled as the server spells it
  const ProgressLine::Updaters& updaters_;
  const std::function<void(const std::string&)>& note_;
  const Text serverName_;
  const Text databaseName_;
  Outcome outcome_;
};

}  // namespace

ServerShape lookAt(const Server& server) {
  std::error_code error;
  if (std::filesystem::is_directory(server.file, error)) {
    std::string text = server.file.string() + " is a directory";
    for (const auto& entry : std::filesystem::directory_iterator(server.file, error)) {
      const std::string name = entry.path().filename().string();
      if (!automation::equalsIgnoringCase(fromUtf8(name), u"MetaBase.xml")) continue;
      text += "; give " + entry.path().string();
      break;
    }
    platform::metabase::fail(platform::metabase::number::kFileIsDirectory, text);
  }

  platform::metabase::mapServer(fromUtf8(server.name), platform::metabase::Metabase::load(server.file));
  ServerShape shape;
  shape.hasSites = objectAt(server.name, u"/MSFTPSVC") != nullptr;
  shape.hasWeb = objectAt(server.name, u"/W3SVC") != nullptr;
  if (!shape.hasSites) shape.sitesNote = "has no FTP service, so there are no FTP sites to collect";
  if (!shape.hasWeb) {
    shape.poolsNote = "has no web service, so there are no application pools to collect";
  } else if (const auto version = versionOf(server.name); version && *version < kFirstVersionWithPools) {
    shape.hasWeb = false;
    shape.poolsNote = "is IIS " + std::to_string(*version) + ", which has no application pools to collect";
  } else {
    shape.hasPools = objectAt(server.name, u"/W3SVC/AppPools") != nullptr;
    if (!shape.hasPools) {
      shape.poolsNote = "has no node /LM/W3SVC/AppPools, so there are no application pools to collect";
    }
  }
  if (!shape.hasSites && !shape.hasWeb) {
    platform::metabase::fail(
        platform::metabase::number::kPathNotFound,
        server.file.string() + ": the server " + shape.sitesNote + ", and it " + shape.poolsNote);
  }
  return shape;
}

Outcome collectServer(const Server& server, const Target& target, const Selection& selection,
                      const ProgressLine::Updaters& updaters,
                      const std::function<void(const std::string&)>& note) {
  return ServerCollection(server, target, selection, updaters, note).run();
}

}  // namespace host
