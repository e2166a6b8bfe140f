// Reading files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace os {

// The largest file that readFile() reads, in bytes.
inline constexpr std::size_t kLargestFile = 0x7FFFFFFF;

// Identifies one state of a file: the file itself, its size and its last change.
struct FileStamp {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t size = 0;
  std::int64_t seconds = 0;  // since 1970, UTC
  std::int64_t nanoseconds = 0;

  bool operator==(const FileStamp&) const = default;
};

// The stamp of the file at a path; nothing if there is none or it cannot be examined.
std::optional<FileStamp> stampOf(const std::filesystem::path& path);

// A stream is a pipe, device or socket. kNone: there is nothing, or it cannot be examined.
enum class FileKind { kNone, kRegular, kDirectory, kStream, kOther };

struct FileStatus {
  FileKind kind = FileKind::kNone;
  std::int64_t size = 0;
  std::int64_t modified = 0;  // seconds since 1970, UTC
};

// What is at a path. If that is kNone, `error` is the cause.
FileStatus statusOf(const std::filesystem::path& path, std::error_code& error);
// The same, but a link is itself and of the kind kOther.
FileStatus linkStatusOf(const std::filesystem::path& path, std::error_code& error);

// A path in UTF-8, for messages.
inline std::string shownPath(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}

// The bytes of a file, with room for one more behind them.
struct FileBytes {
  std::unique_ptr<char[]> bytes;
  std::size_t size = 0;
  FileStamp stamp;
};

// Why readFile() failed.
enum class FileFailure { kNotFound, kUnreadable, kReadFault, kIsDirectory, kTooLarge, kChanged };

class FileError : public std::runtime_error {
 public:
  FileError(FileFailure failure, const std::string& message)
      : std::runtime_error(message), failure_(failure) {}
  FileFailure failure() const { return failure_; }

 private:
  FileFailure failure_;
};

// Reads a whole regular file. If it changes or is replaced meanwhile, reads it again, at most twice. Throws
// FileError, whose message names the file.
FileBytes readFile(const std::filesystem::path& path);

// Up to `size` bytes from the beginning of a regular file. Throws std::system_error.
std::string readHead(const std::filesystem::path& path, std::size_t size);

// Reads a stream, or the standard input if the path is empty, to its end or until `take` returns false.
// Throws std::system_error.
void readStream(const std::filesystem::path& path, const std::function<bool(std::string_view piece)>& take);

}  // namespace os
