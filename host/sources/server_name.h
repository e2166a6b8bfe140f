// Names of servers.
#pragma once

#include <optional>
#include <string>

namespace host {

// Why a text cannot be a server's name; nothing if it can.
std::optional<std::string> serverNameError(const std::string& name);

}  // namespace host
