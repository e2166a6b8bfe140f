// Finds and reads metabases in files, folders, archives and streams.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "os/file.h"

namespace host {

// The path of a source that is the standard input.
inline constexpr const char* kStandardInput = "-";

// The bytes of a metabase, until they are read.
using KeptBytes = std::shared_ptr<std::optional<os::FileBytes>>;

// The source of one metabase.
struct Source {
  enum class Kind { kFile, kMember, kStream };

  Kind kind = Kind::kFile;
  std::filesystem::path path;  // of the file or the archive; or kStandardInput
  // The numbers, from 0, of the member in the archive, and of those in the archives within it.
  std::vector<std::size_t> members = {};
  std::string memberName = {};
  std::int64_t modified = 0;   // seconds since 1970
  os::FileStamp archive = {};  // of the archive when it was searched
  KeptBytes kept = {};         // a member's bytes, if they were kept since then

  // Its name in messages and in the inventory.
  std::string shown() const;
};

// A server and its metabase. Names differ in more than case.
struct Server {
  std::string name;
  Source source;
};

// A file below an argument, or a member of an archive, and what becomes of it.
struct ListedFile {
  std::string file;
  std::string server;  // empty if it is none of a server
  std::string result;
};

// The metabases that arguments refer to.
struct Sources {
  // Whether several files may have the same name, which a collection does not allow.
  enum class Names { kEachItsOwn, kAny };

  std::vector<Server> servers;
  std::vector<std::string> notes;  // about choices between files
  // Sources that cannot be read, and names that several sources have.
  std::vector<std::string> problems;
  std::vector<ListedFile> files;  // in the order of their paths
};

// Finds the metabases of arguments of the form [NAME=]FILE, [NAME=]FOLDER, [NAME=]ARCHIVE or NAME=-. Searches
// folders at any depth without following links, and whole archives, also within folders and, three deep,
// within archives; recognises metabases there by content.
//
// MetaBase.xml and its history copies are versions of one server, which is named after their folder; the
// newest is used. Another metabase is named after its folder too, or after itself if there are others. If
// sources that are no versions of each other have one name, the newest is used and the others are problems.
// A source that an argument names is preferred to all others. Throws UsageError for an invalid argument.
Sources findSources(const std::vector<std::string>& arguments, std::uint64_t maxSize,
                    Sources::Names names = Sources::Names::kEachItsOwn);

// Reads a source: a consistent state of a file, anything else to its end. The bytes that were kept are moved
// out: they are read again from the archive the next time. Throws automation::Failure, also
// for a stream or member of more than `maxSize` bytes.
os::FileBytes readSource(const Source& source, std::uint64_t maxSize);

// Why a source of more than `maxSize` bytes is not read.
std::string tooLarge(std::uint64_t maxSize);

// Whether a file or archive has changed since it was read.
bool hasChanged(const Source& source, const os::FileStamp& stamp);

}  // namespace host
