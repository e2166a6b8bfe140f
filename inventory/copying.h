// Changes of whole servers with all their collections, each inside of one transaction.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "inventory/driver.h"
#include "inventory/publication.h"

namespace inventory {

// Puts all collections of another database's servers in the place of what is kept of them, in their order.
Published copyServers(Driver& source, Session& target, const std::vector<std::string>& servers);

// Removes servers, or of each what was published before a time and isn't current. Gives the number of rows.
std::int64_t removeServers(Session& session, const KnownServers& servers, const std::string& before);

// Gives a server another name: in "Server name", in addresses and in the texts of problems.
void renameServer(Session& session, const KnownServer& server, const std::string& name);

}  // namespace inventory
