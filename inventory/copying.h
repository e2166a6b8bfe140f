// Operations on servers with all their collections, each within one transaction.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "inventory/driver.h"
#include "inventory/publication.h"

namespace inventory {

// Replaces servers by all of their collections in another database, in order.
Published copyServers(Driver& source, Session& target, const std::vector<std::string>& servers);

// Removes servers, or their non-current collections published before a time. Returns the number of rows.
std::int64_t removeServers(Session& session, const KnownServers& servers, const std::string& before);

// Renames a server: in "Server name", in addresses and in the messages of problems.
void renameServer(Session& session, const KnownServer& server, const std::string& name);

}  // namespace inventory
