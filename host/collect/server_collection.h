// The collection of one server: calls the component's two classes in order, which write into a private
// database and private logs.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/collect/private_log.h"
#include "host/collect/staging_database.h"
#include "host/console/progress.h"
#include "host/sections.h"
#include "host/sources/sources.h"
#include "inventory/inventory.h"

namespace host {

// The logs of one collection, reused for the next, in a folder.
struct PrivateLogs {
  explicit PrivateLogs(const std::filesystem::path& folder)
      : directory(folder), application(folder / "TORVINLog.Log"), server(folder / "server.log") {}

  std::filesystem::path directory;
  PrivateLog application;
  PrivateLog server;
};

// A collection is incomplete, for example because a record was lost, and must not be published.
class Incomplete : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The result of collecting a server.
struct Outcome {
  inventory::Collected collected;  // without the rows
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
