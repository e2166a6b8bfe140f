// Names of servers, and where they come from.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace host {

// Why a text cannot be a server's name; nothing if it can.
std::optional<std::string> serverNameError(const std::string& name);

// Where a metabase was found, as far as its server's name depends on it.
struct Location {
  std::string home;      // the nearest folder above that is not a usual location of a metabase
  std::string homeName;  // its name
  std::string stem;      // the file's name without extensions
  // Whether it is MetaBase.xml or one of its history copies. Those of one home are versions of one server.
  bool isVersion = false;
  bool isCopy = false;        // a version, but not MetaBase.xml itself
  bool hasUsualName = false;  // whether it is called MetaBase.xml or MetaBase_*.xml
};

// `path` is that of the file below `place`, a folder or archive, which is its home if there is no other.
Location locate(std::string_view path, const std::string& place, const std::string& placeName);

// The server's name from a file that was given as an argument: that of its home for MetaBase.xml and the
// history copies, otherwise its own.
std::string nameOfFile(const std::filesystem::path& file);

// The name of a file without those of a compression and of a format: "WEB01" of WEB01.xml.gz.
std::string stemOf(const std::filesystem::path& file);

}  // namespace host
