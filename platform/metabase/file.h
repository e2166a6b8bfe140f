// A file's bytes as they stood at one moment.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace platform::metabase {

// The largest file that is read, in bytes: what one call of an XML parser takes.
inline constexpr std::size_t kLargestFile = 0x7FFFFFFF;

// What tells one state of a file from another: which file it is, its size and when it was changed.
struct Stamp {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t size = 0;
  std::int64_t seconds = 0;  // since 1970, UTC
  std::int64_t nanoseconds = 0;

  bool operator==(const Stamp&) const = default;
};

// The stamp of the file at a path, or nothing where it can't be looked at; opening it then tells why.
std::optional<Stamp> stampOf(const std::filesystem::path& path);

// A path as messages name it, in UTF-8.
inline std::string shownPath(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}

// The bytes of a file, with room for one more behind them.
struct FileBytes {
  std::unique_ptr<char[]> bytes;
  std::size_t size = 0;
  Stamp stamp;
};

// Reads a whole file. One that is changed or replaced while it is read is read again, twice at most. Fails
// where there is no file, where it can't be read, isn't an ordinary file or is larger than `kLargestFile`,
// and where it doesn't stop changing; the message names the file.
FileBytes readFile(const std::filesystem::path& path);

}  // namespace platform::metabase
