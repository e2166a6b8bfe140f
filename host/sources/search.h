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
  void add(SearchResults&& more);
};

// How many bytes of a file are read to recognise a metabase.
inline constexpr std::size_t kHeadSize = 4096;

// Searches a folder at any depth, without following links.
SearchResults searchFolder(const std::filesystem::path& folder);

// Searches an archive or compressed file; nothing for another file. If it changes meanwhile, searches it
// again, at most twice. Keeps the bytes of metabases while `mostKept`, which it reduces, lasts.
std::optional<SearchResults> searchArchive(const std::filesystem::path& file, std::uint64_t maxSize,
                                           std::size_t& mostKept);

}  // namespace host
