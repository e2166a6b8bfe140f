// What a server offers to a collection, determined before anything is collected.
#pragma once

#include <string>
#include <vector>

#include "automation/object.h"
#include "host/sections.h"
#include "host/sources/sources.h"

namespace host {

// The object at a path of a mapped server, such as "/W3SVC"; null if there is none. Throws
// automation::Failure.
automation::ObjectRef objectAt(const std::string& server, automation::TextView path);

struct ServerCapabilities {
  bool hasSites = false;  // an FTP service
  bool hasWeb = false;    // a web service whose server may have application pools
  bool hasPools = false;
  // What it lacks, and why, as a phrase after "has"; empty if it lacks nothing of that side.
  std::string sitesNote;
  std::string poolsNote;
};

// Throws automation::Failure for a server without FTP and web services.
ServerCapabilities capabilitiesOf(const Server& server);

// A selection whose sites and pools are spelled as the server spells them.
struct CanonicalSelection {
  Selection selection;
  // Those that the server has, spelled as the user spells them.
  std::vector<std::string> foundSites;
  std::vector<std::string> foundPools;
};
CanonicalSelection canonicalize(const Selection& selection, const std::string& server);

}  // namespace host
