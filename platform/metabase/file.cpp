#include "platform/metabase/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>
#include <utility>

#include "platform/metabase/failures.h"
#include "platform/posix/descriptor.h"

namespace platform::metabase {
namespace {

constexpr int kAttempts = 3;

Stamp stampFrom(const struct stat& status) {
  return {status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

// An open file, which failures name.
class File {
 public:
  // Without waiting for a writer, should it be a FIFO.
  explicit File(const std::filesystem::path& path)
      : name_(path.string()), file_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {
    if (file_.number() >= 0) return;
    if (errno == ENOENT || errno == ENOTDIR) refuse(number::kFileNotFound, "there is no such file");
    refuseSystem(number::kFileUnreadable, "the file cannot be opened");
  }

  Stamp stamp() const {
    struct stat status {};
    if (::fstat(file_.number(), &status) != 0)
      refuseSystem(number::kFileReadFault, "the file cannot be read");
    if (S_ISDIR(status.st_mode)) refuse(number::kFileIsDirectory, "this is a directory and not a file");
    if (!S_ISREG(status.st_mode)) refuse(number::kFileUnreadable, "this is no ordinary file");
    return stampFrom(status);
  }

  FileBytes read() const {
    FileBytes file;
    file.stamp = settledStamp();
    const auto size = static_cast<std::size_t>(file.stamp.size);
    if (size > kLargestFile) refuse(number::kFileTooLarge, "the file is larger than 2 GiB");
    file.bytes.reset(new char[size + 1]);
    while (file.size < size) {
      const ssize_t count = ::read(file_.number(), file.bytes.get() + file.size, size - file.size);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) refuseSystem(number::kFileReadFault, "the file cannot be read");
      if (count == 0) break;
      file.size += static_cast<std::size_t>(count);
    }
    return file;
  }

  [[noreturn]] void refuse(std::int32_t failureNumber, const std::string& what) const {
    fail(failureNumber, name_ + ": " + what);
  }

 private:
  // A change within the clock's present tick would leave the time as it is, so the tick is let pass first.
  Stamp settledStamp() const {
    const Stamp found = stamp();
    timespec now{};
    while (::clock_gettime(CLOCK_REALTIME_COARSE, &now) == 0 && now.tv_sec == found.seconds &&
           now.tv_nsec == found.nanoseconds) {
      const timespec pause{0, 1'000'000};
      ::nanosleep(&pause, nullptr);
    }
    return found;
  }

  [[noreturn]] void refuseSystem(std::int32_t failureNumber, const char* what) const {
    const int error = errno;
    refuse(failureNumber, std::string(what) + ": " + std::strerror(error));
  }

  std::string name_;
  Descriptor file_;
};

}  // namespace

std::optional<Stamp> stampOf(const std::filesystem::path& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return stampFrom(status);
}

FileBytes readFile(const std::filesystem::path& path) {
  for (int attempt = 1;; ++attempt) {
    const File file(path);
    FileBytes bytes = file.read();
    if (file.stamp() == bytes.stamp && stampOf(path) == bytes.stamp) return bytes;
    if (attempt == kAttempts) {
      file.refuse(number::kFileChanged, "the file keeps changing while it is being read");
    }
  }
}

}  // namespace platform::metabase
