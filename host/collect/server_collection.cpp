#include "host/collect/server_collection.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <utility>

#include <fmt/core.h>

#include "automation/text.h"
#include "host/collect/component_driver.h"
#include "host/collect/server_capabilities.h"
#include "host/sha256.h"
#include "inventory/clock.h"
#include "os/file.h"
#include "os/process.h"
#include "platform/metabase/metabase.h"
#include "platform/metabase/servers.h"

namespace host {
namespace {

using automation::fromUtf8;
using automation::Text;
using inventory::ObjectKind;
using platform::metabase::Metabase;

// Maps a server's name to its metabase while it lives.
class MappedServer {
 public:
  MappedServer(const Text& name, std::shared_ptr<const Metabase> snapshot) : name_(name) {
    platform::metabase::mapServer(name, std::move(snapshot));
  }
  ~MappedServer() { platform::metabase::unmapServer(name_); }
  MappedServer(const MappedServer&) = delete;
  MappedServer& operator=(const MappedServer&) = delete;

 private:
  const Text& name_;
};

bool includes(const Selection& selection, Side side) {
  return std::ranges::any_of(selection.sections,
                             [&](const Section* section) { return section->side == side; });
}

inventory::Origin originOf(const Server& server, const os::FileBytes& bytes, const Selection& selection) {
  using namespace std::chrono;
  // The same for all servers.
  static const std::string kAccount = os::accountName(), kMachine = os::machineName();
  inventory::Origin origin;
  origin.server = server.name;
  origin.file = server.source.shown();
  origin.fileSize = static_cast<std::int64_t>(bytes.size);
  origin.fileTime = inventory::utc(system_clock::time_point(duration_cast<system_clock::duration>(
      seconds(bytes.stamp.seconds) + nanoseconds(bytes.stamp.nanoseconds))));
  origin.sha256 = sha256Hex({bytes.bytes.get(), bytes.size});
  origin.version = IISINVENTORY_VERSION;
  origin.selection = selection.text;
  origin.collectedBy = kAccount;
  origin.machine = kMachine;
  return origin;
}

// Whether an address of the server is that of a service or below it.
bool isBelow(const std::string& address, const std::string& server, const std::string& service) {
  const std::string start = "IIS://" + server + service;
  return automation::equalsIgnoringCase(fromUtf8(std::string_view(address).substr(0, start.size())),
                                        fromUtf8(start)) &&
         (address.size() == start.size() || address[start.size()] == '/');
}

// Logs each parse warning through the class whose part of the file it concerns.
void logParseWarnings(const Metabase& metabase, const std::string& server, ComponentDriver& driver) {
  const Text name = fromUtf8(server);
  for (const Metabase::ParseWarning& warning : metabase.warnings()) {
    const std::string address = warning.node ? metabase.address(*warning.node, name) : std::string();
    driver.log(isBelow(address, server, "/W3SVC") ? Side::kPools : Side::kFtp, warning.failureNumber,
               metabase.describe(warning, name));
  }
}

inventory::Problem noteOf(std::string message) {
  inventory::Problem note;
  note.isNote = true;
  note.message = std::move(message);
  note.time = inventory::utcNow();
  return note;
}

std::int64_t lineOf(const Metabase& metabase, const std::string& node) {
  const auto found = metabase.find(metabase.root(), fromUtf8(std::string_view(node).substr(1)));
  return found ? static_cast<std::int64_t>(metabase.line(*found)) : 0;
}

inventory::Coverage coverageOf(const Selection& selection) {
  if (selection.isWhole) return inventory::Coverage::everything();
  inventory::Coverage coverage;
  const auto kindOf = [](Side side) { return side == Side::kFtp ? ObjectKind::kSite : ObjectKind::kPool; };
  const auto add = [&](std::string_view name, Side side) {
    const inventory::Table& table = inventory::tables()[inventory::findTable(name)];
    for (const ObjectKind kind : table.kinds) {
      const ObjectKind itemKind = inventory::itemKindOf(kind);
      if (kind != ObjectKind::kNone && (itemKind == ObjectKind::kNone || itemKind == kindOf(side)))
        coverage.add(table, kind);
    }
  };
  for (const Side side : {Side::kFtp, Side::kPools}) {
    if (selection.needsList(side)) add(inventory::listTableOf(kindOf(side)), side);
  }
  for (const Section* section : selection.sections) {
    for (const std::string_view table : section->tables) add(table, section->side);
  }
  if (!selection.sites.empty()) coverage.restrict(ObjectKind::kSite, selection.sites);
  if (!selection.pools.empty()) coverage.restrict(ObjectKind::kPool, selection.pools);
  return coverage;
}

}  // namespace

Outcome collectServer(const Server& server, std::uint64_t maxSize, const Selection& wanted,
                      StagingDatabase& staging, PrivateLogs& logs, const ProgressLine::Updaters& updaters) {
  const auto start = std::chrono::steady_clock::now();
  const std::string started = inventory::utcNow();
  Outcome outcome;
  inventory::Collected& collected = outcome.collected;
  os::FileBytes bytes = readSource(server.source, maxSize);
  const os::FileStamp stamp = bytes.stamp;
  collected.origin = originOf(server, bytes, wanted);
  collected.origin.started = started;
  const auto metabase = Metabase::parse(std::move(bytes), server.source.shown());
  outcome.nodeCount = metabase->nodeCount();
  const Text name = fromUtf8(server.name);
  const MappedServer mapped(name, metabase);
  const ServerCapabilities capabilities = capabilitiesOf(server);
  CanonicalSelection canonical = canonicalize(wanted, server.name);
  const Selection& selection = canonical.selection;
  CollectionRecords records(logs, server.name);
  {
    const platform::store::ConnectionRedirect redirect(staging.database());
    ComponentDriver driver(server.name, selection, staging, records, updaters);
    logParseWarnings(*metabase, server.name, driver);
    if (capabilities.hasSites && includes(selection, Side::kFtp)) driver.collectSites();
    if (capabilities.hasWeb && includes(selection, Side::kPools)) driver.collectPools(capabilities.hasPools);
  }
  if (const std::string& why = staging.database().fatalError(); !why.empty()) throw Incomplete(why);
  if (metabase->isPartialExport()) {
    records.add(
        noteOf("the file is a partial export: what its nodes inherit is not known, so defaults are shown in "
               "its place, and IIS 6 is assumed"));
  }
  if (hasChanged(server.source, stamp)) {
    records.add(noteOf(
        fmt::format("the file {} has changed since it was read; the inventory shows its earlier contents",
                    server.source.shown())));
  }
  collected.problems = records.takeProblems();
  collected.coverage = coverageOf(selection);
  collected.lineOf = [metabase](const std::string& node) { return lineOf(*metabase, node); };
  for (const auto& [side, note] :
       {std::pair(Side::kFtp, capabilities.sitesNote), std::pair(Side::kPools, capabilities.poolsNote)}) {
    if (includes(selection, side) && !note.empty()) outcome.remarks.push_back(note);
  }
  outcome.foundSites = std::move(canonical.foundSites);
  outcome.foundPools = std::move(canonical.foundPools);
  collected.origin.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return outcome;
}

}  // namespace host
