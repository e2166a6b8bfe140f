// The collection of one server into a private database and private logs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/collect/collection_records.h"
#include "host/collect/staging_database.h"
#include "host/console/progress.h"
#include "host/sections.h"
#include "host/sources/sources.h"
#include "inventory/inventory.h"

namespace host {

// The result of collecting a server.
struct Outcome {
  inventory::Collected collected;  // without the rows
  std::size_t nodeCount = 0;       // of the metabase
  // What the server lacks, as a phrase after "has": "no FTP service, so ...".
  std::vector<std::string> remarks;
  // The selected sites and pools that the server has, spelled as the user spells them.
  std::vector<std::string> foundSites;
  std::vector<std::string> foundPools;
};

// Collects a server into an empty staging database, on the calling thread alone. Throws automation::Failure
// if the file cannot be read or the server has neither an FTP nor a web service, and Incomplete.
Outcome collectServer(const Server& server, std::uint64_t maxSize, const Selection& selection,
                      StagingDatabase& staging, PrivateLogs& logs, const ProgressLine::Updaters& updaters);

}  // namespace host
