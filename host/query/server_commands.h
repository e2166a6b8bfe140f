// The commands "servers", "remove" and "rename".
#pragma once

#include <string>
#include <vector>

#include "host/console/listing.h"
#include "host/console/output.h"
#include "inventory/inventory.h"

namespace host {

struct ServersRequest {
  std::string database;
  inventory::Access access;
  Format format = Format::kTable;
  std::vector<std::string> servers;
  bool history = false;  // also lists previous collections
};

// Each returns the exit status and throws inventory::Error, and UsageError for an unknown server.

// Prints the servers, or all if none is named, and their collections.
int listServers(const ServersRequest& request, Output& output);
// Sets how many collections of each server the database keeps.
int setKeep(const ServersRequest& request, int count, Output& output);
// Removes servers, or their collections before a time in UTC if that is not empty.
int removeServers(const ServersRequest& request, const std::string& before, Output& output);
// Prints what a change did and returns the status, even if the text cannot be written: the change is made.
int reportChange(Output& output, const std::string& done, int status = 0);
// Renames the only server of the request.
int renameServer(const ServersRequest& request, const std::string& name, Output& output);

}  // namespace host
