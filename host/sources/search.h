// What a search of folders and archives brings, before servers are chosen.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/sources/server_name.h"
#include "host/sources/sources.h"

namespace host {

// A metabase that was found below an argument.
struct Candidate {
  Source source;
  Location location;
};

struct SearchResults {
  std::vector<Candidate> found;
  std::vector<std::string> notes;
  std::vector<std::string> problems;
  std::vector<ListedFile> others;  // files that are not among `found`

  void addProblem(const std::string& file, std::string_view why);
  // Adds a file that is passed over, being `what`; a problem if it is called like a metabase.
  void addOther(const std::string& file, const Location& location, const std::string& what);
  void add(SearchResults&& more);
};

// Limits of a search, in bytes.
struct SearchLimits {
  std::uint64_t maxSize;   // of a metabase, and of all archives within one archive together
  std::uint64_t mostKept;  // of metabases of archives that are kept in memory; decreases
};

// Searches a folder and the archives in it at any depth, without following links.
SearchResults searchFolder(const std::filesystem::path& folder, SearchLimits& limits);

// Searches an archive or compressed file and the archives in it; nothing for another file. If it changes
// meanwhile, searches it again, at most twice. `location` is the file's.
std::optional<SearchResults> searchArchive(const std::filesystem::path& file, const Location& location,
                                           SearchLimits& limits);

}  // namespace host
