#include "host/collect/collect.h"

#include <algorithm>
#include <string>
#include <system_error>
#include <utility>

#include "automation/failure.h"
#include "host/collect/collection_run.h"
#include "host/collect/component_driver.h"
#include "host/collect/run_document.h"
#include "host/sources/source_list.h"
#include "os/process.h"

namespace host {
namespace {

LastCollected readLastCollected(inventory::Inventory& inventory) {
  LastCollected last;
  inventory::Reader reader = inventory.read();
  for (const inventory::CollectionInfo& collection : reader.collections()) {
    // To the minute.
    const std::string& time = collection.published;
    last[collection.serverKey] = time.size() < 16 ? time : time.substr(0, 10) + " " + time.substr(11, 5);
  }
  return last;
}

int collectInto(const CollectOptions& options, Output& output) {
  const Sources sources = findSources(options.metabases, options.maxSize);
  if (options.listOnly) return listSources(sources, Format::kTable, output);
  os::useLargePages();
  registerComponent();
  std::error_code error;
  // A dry run does not create a database.
  const bool isForReading = options.dryRun && (inventory::isOnServer(options.database) ||
                                               std::filesystem::exists(options.database, error));
  auto inventory = isForReading ? inventory::openForReading(options.database, options.access)
                                : inventory::openForPublishing(options.database, options.access);
  LastCollected lastCollected;
  try {
    if (isForReading) lastCollected = readLastCollected(*inventory);
  } catch (const inventory::NoInventory&) {
    inventory = inventory::openForPublishing(options.database, options.access);
  }
  os::TerminationSignals signals;
  return CollectionRun(options, sources, output, *inventory, std::move(lastCollected), signals).run();
}

}  // namespace

int collect(const CollectOptions& options, Output& output) {
  if (!options.json) return collectInto(options, output);
  return withFailureDocument("collect", output, [&] { return collectInto(options, output); });
}

}  // namespace host
