#include "os/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>
#include <system_error>
#include <utility>

#include "os/descriptor.h"
#include "os/unchanged_file.h"

namespace os {
namespace {

FileStamp stampFrom(const struct stat& status) {
  return {status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

FileStatus statusFrom(int result, const struct stat& status, std::error_code& error) {
  error.clear();
  if (result != 0) {
    error.assign(errno, std::generic_category());
    return {};
  }
  const bool isStream = S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode) || S_ISSOCK(status.st_mode);
  const FileKind kind = S_ISREG(status.st_mode)   ? FileKind::kRegular
                        : S_ISDIR(status.st_mode) ? FileKind::kDirectory
                        : isStream                ? FileKind::kStream
                                                  : FileKind::kOther;
  return {kind, status.st_size, status.st_mtim.tv_sec};
}

// An open file, named in error messages.
class File {
 public:
  // Does not wait for the writer of a FIFO.
  explicit File(const std::filesystem::path& path)
      : name_(path.string()), file_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {
    if (file_.number() >= 0) return;
    if (errno == ENOENT || errno == ENOTDIR) refuse(FileFailure::kNotFound, "there is no such file");
    refuseSystem(FileFailure::kUnreadable, "the file cannot be opened");
  }

  FileStamp stamp() const {
    struct stat status {};
    if (::fstat(file_.number(), &status) != 0)
      refuseSystem(FileFailure::kReadFault, "the file cannot be read");
    if (S_ISDIR(status.st_mode)) refuse(FileFailure::kIsDirectory, "this is a directory and not a file");
    if (!S_ISREG(status.st_mode)) refuse(FileFailure::kUnreadable, "it is not a regular file");
    return stampFrom(status);
  }

  FileBytes read() const {
    FileBytes file;
    file.stamp = settledStamp();
    const auto size = static_cast<std::size_t>(file.stamp.size);
    if (size > kLargestFile) refuse(FileFailure::kTooLarge, "the file is larger than 2 GiB");
    file.bytes.reset(new char[size + 1]);
    while (file.size < size) {
      const ssize_t count = ::read(file_.number(), file.bytes.get() + file.size, size - file.size);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) refuseSystem(FileFailure::kReadFault, "the file cannot be read");
      if (count == 0) break;
      file.size += static_cast<std::size_t>(count);
    }
    return file;
  }

  [[noreturn]] void refuse(FileFailure failure, const std::string& what) const {
    throw FileError(failure, name_ + ": " + what);
  }

 private:
  // Waits until the clock's present tick is over, since another change within it would leave the time as it
  // is.
  FileStamp settledStamp() const {
    const FileStamp found = stamp();
    timespec now{};
    while (::clock_gettime(CLOCK_REALTIME_COARSE, &now) == 0 && now.tv_sec == found.seconds &&
           now.tv_nsec == found.nanoseconds) {
      const timespec pause{0, 1'000'000};
      ::nanosleep(&pause, nullptr);
    }
    return found;
  }

  [[noreturn]] void refuseSystem(FileFailure failure, const char* what) const {
    const int error = errno;
    refuse(failure, std::string(what) + ": " + std::strerror(error));
  }

  std::string name_;
  Descriptor file_;
};

}  // namespace

std::optional<FileStamp> stampOf(const std::filesystem::path& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return stampFrom(status);
}

FileStatus statusOf(const std::filesystem::path& path, std::error_code& error) {
  struct stat status {};
  return statusFrom(::stat(path.c_str(), &status), status, error);
}

FileStatus linkStatusOf(const std::filesystem::path& path, std::error_code& error) {
  struct stat status {};
  return statusFrom(::lstat(path.c_str(), &status), status, error);
}

FileBytes readFile(const std::filesystem::path& path) {
  return readUnchanged<File>(path);
}

std::string readHead(const std::filesystem::path& path, std::size_t size) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  std::string head(size, '\0');
  const ssize_t count = file ? ::read(file.number(), head.data(), head.size()) : -1;
  if (count < 0) throw std::system_error(errno, std::generic_category());
  head.resize(static_cast<std::size_t>(count));
  return head;
}

void readStream(const std::filesystem::path& path, const std::function<bool(std::string_view)>& take) {
  constexpr std::size_t kPiece = 1024 * 1024;
  Descriptor opened;
  if (!path.empty()) opened = Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!path.empty() && !opened) throw std::system_error(errno, std::generic_category());
  const int descriptor = opened ? opened.number() : STDIN_FILENO;
  std::string piece(kPiece, '\0');
  while (true) {
    const ssize_t count = ::read(descriptor, piece.data(), piece.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw std::system_error(errno, std::generic_category());
    if (count == 0 || !take({piece.data(), static_cast<std::size_t>(count)})) return;
  }
}

}  // namespace os
