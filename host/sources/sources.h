// Where the metabases of a command line stand: in files, below folders, in archives, behind pipes.
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

// One metabase file, wherever it is.
struct Source {
  enum class Kind { kFile, kMember, kStream };

  Kind kind = Kind::kFile;
  std::filesystem::path path;  // of the file or the archive; "-" for the standard input
  std::size_t member = 0;      // its place in the archive
  std::string memberName = {};
  std::int64_t modified = 0;   // seconds since 1970
  os::FileStamp archive = {};  // of the archive when it was gone through
  // A member's bytes, where they have been kept since then.
  std::shared_ptr<const std::string> kept = {};

  // What it is called in messages and in the inventory.
  std::string shown() const;
};

// A server and the metabase that stands for it. Names differ in more than case.
struct Server {
  std::string name;
  Source source;
};

// What the arguments lead to.
struct Sources {
  // Whether two files may have one name: for those who don't collect.
  enum class Names { kEachItsOwn, kAny };

  std::vector<Server> servers;
  std::vector<std::string> notes;     // choices that were made
  std::vector<std::string> problems;  // what can't be looked into
};

// Finds the metabases of arguments of the form [NAME=]FILE, [NAME=]FOLDER, [NAME=]ARCHIVE or NAME=-. Folders
// are gone through at any depth, without following links, archives from beginning to end; a metabase is known
// there by its content. Throws UsageError for an argument that can't be meant.
Sources findSources(const std::vector<std::string>& arguments, std::uint64_t maxSize,
                    Sources::Names names = Sources::Names::kEachItsOwn);

// Reads a source: a file as it stood at one moment, anything else to its end. Fails with automation::Failure,
// also where it is larger than `maxSize` (files excepted, which have a limit of their own).
os::FileBytes readSource(const Source& source, std::uint64_t maxSize);

// Whether a file or archive is another one than it was when it was read.
bool hasChanged(const Source& source, const os::FileStamp& stamp);

}  // namespace host
