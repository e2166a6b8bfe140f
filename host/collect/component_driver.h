// Drives the component for one server: the calls of each side, in order, with their progress and records.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "automation/object.h"
#include "host/collect/collection_records.h"
#include "host/collect/staging_database.h"
#include "host/console/progress.h"
#include "host/sections.h"

namespace host {

// Registers the component and what it reads and writes with the runtime of this process.
void registerComponent();

// Members throw Incomplete if a record was lost.
class ComponentDriver {
 public:
  // All references must outlive it. The selection is spelled as the server spells it.
  ComponentDriver(const std::string& server, const Selection& selection, StagingDatabase& staging,
                  CollectionRecords& records, const ProgressLine::Updaters& updaters);

  void collectSites();
  // Without pools, only what does not depend on them.
  void collectPools(bool hasPools);

  // Writes a record of the file itself into the log of the class that collects a side.
  void log(Side side, std::int32_t number, const std::string& message);

 private:
  automation::ObjectRef& component(Side side);
  template <typename... Arguments>
  void call(RecordContext context, Side side, automation::TextView method, const Arguments&... arguments);
  void begin(std::string_view section);
  void readItems(Side side);
  std::vector<std::string> wantedItems(const std::vector<std::string>& selected) const;
  void collectTabs(Side side, automation::TextView method, const std::vector<std::string>& items, bool all);
  void collectDirectories(const std::string& item);

  const std::string& server_;
  const Selection& selection_;
  StagingDatabase& staging_;
  CollectionRecords& records_;
  const ProgressLine::Updaters& updaters_;
  const automation::Text serverName_;
  const automation::Text databaseName_;
  const automation::ObjectRef statusBar_;
  automation::ObjectRef sites_;
  automation::ObjectRef pools_;
  std::vector<RecordContext::Item> items_;  // sites or pools, in the order of discovery
};

}  // namespace host
