// Names of servers, and where they come from.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace host {

// Why a text cannot be a server's name; nothing if it can.
std::optional<std::string> serverNameError(const std::string& name);

// The server's name from a file's path below a folder or archive: that of the nearest folder that is not a
// usual location of a metabase, or else `place`.
std::string nameBelow(std::string_view path, const std::string& place);

// The server's name from a file that was given as an argument.
std::string nameOfFile(const std::filesystem::path& file);

// "WEB01" of WEB01.xml.gz.
std::string stemOf(const std::filesystem::path& file);

}  // namespace host
