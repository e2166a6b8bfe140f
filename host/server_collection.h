// The collection of one server: the calls of a host to the component's two classes, in their order.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "automation/failure.h"
#include "automation/text.h"
#include "host/gatherings.h"
#include "host/inventory.h"
#include "host/options.h"
#include "host/progress.h"

namespace host {

// What a look at a server's metabase tells before anything is collected.
struct ServerShape {
  bool hasSites = false;  // an FTP service
  bool hasWeb = false;    // a web service whose server may have application pools
  bool hasPools = false;
  // What isn't there and why; empty where all of a side is there.
  std::string sitesNote;
  std::string poolsNote;
};

// Reads the file, makes it the server's and takes the look. Throws automation::Failure for a file that can't
// be used, and for a server that has nothing of either side.
ServerShape lookAt(const Server& server);

// Where the collection of a server goes to.
struct Target {
  std::filesystem::path database;
  std::filesystem::path logDirectory;

  std::filesystem::path serverLog(const std::string& server) const {
    return logDirectory / (server + ".log");
  }
  std::filesystem::path applicationLog() const { return logDirectory / "TORVINLog.Log"; }
};

// What has come of it.
struct Outcome {
  bool collected = false;
  RowCounts replaced;
  // What went wrong and stands in no log.
  std::vector<std::string> problems;
  // Those of the selection's sites and pools that the server has, as the user spells them.
  std::vector<std::string> foundSites;
  std::vector<std::string> foundPools;
};

// Collects a server. `note` is told, line by line, what a person wants to know besides the rows. To be called
// on the thread that owns everything that it makes. Doesn't throw for what is wrong with the server, the
// database or the logs; that is in the outcome.
Outcome collectServer(const Server& server, const Target& target, const Selection& selection,
                      const ProgressLine::Updaters& updaters,
                      const std::function<void(const std::string&)>& note);

}  // namespace host
