#include "os/new_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace os {
namespace {

namespace fs = std::filesystem;

// A name that another process cannot predict.
std::string randomName() {
  std::uint64_t number = 0;
  if (::getentropy(&number, sizeof number) != 0)
    throw std::system_error(errno, std::generic_category(), "cannot read random numbers");
  char name[48];
  std::snprintf(name, sizeof name, ".iisinventory-%016" PRIx64 ".new", number);
  return name;
}

// Whether a user without the rights of root could not write to it, or this user cannot.
bool isReadOnly(const fs::path& file, const struct stat& status) {
  return (status.st_mode & 0222) == 0 || ::faccessat(AT_FDCWD, file.c_str(), W_OK, AT_EACCESS) != 0;
}

// If the group cannot be kept, another one does not get its rights.
void copyOwnerAndMode(const struct stat& from, int descriptor) {
  mode_t mode = from.st_mode & 07777;
  if (::fchown(descriptor, from.st_uid, from.st_gid) != 0) {
    mode &= 01777;
    if (::fchown(descriptor, static_cast<uid_t>(-1), from.st_gid) != 0) mode &= ~mode_t{070};
  }
  ::fchmod(descriptor, mode);
}

}  // namespace

NewFile::NewFile(fs::path path, Readers readers) : path_(std::move(path)), target_(path_) {
  struct stat previous {};
  const bool isThere = ::stat(path_.c_str(), &previous) == 0;
  if (isThere && S_ISDIR(previous.st_mode)) fail(EISDIR);
  if (isThere && !S_ISREG(previous.st_mode)) {
    descriptor_ = Descriptor(::open(path_.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC));
    if (!descriptor_) fail(errno);
    return;
  }
  if (isThere && isReadOnly(path_, previous)) {
    throw std::runtime_error("cannot write '" + path_.string() +
                             "': the file is read-only (allow writing to it, or name another file)");
  }
  std::error_code error;
  if (isThere) target_ = fs::canonical(path_, error);
  if (error) fail(error.value());
  const fs::path parent = target_.parent_path();
  directory_ = Descriptor(::open(parent.empty() ? "." : parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!directory_) fail(errno);
  const std::string name = randomName();
  descriptor_ = Descriptor(::openat(directory_.number(), name.c_str(),
                                    O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                    isThere || readers == Readers::kOwnerOnly ? 0600 : 0666));
  if (!descriptor_) fail(errno);
  temporary_ = name;
  if (isThere) copyOwnerAndMode(previous, descriptor_.number());
  if (readers == Readers::kOwnerOnly) ::fchmod(descriptor_.number(), 0600);
}

void NewFile::finish() {
  const std::lock_guard lock(mutex_);
  if (temporary_.empty()) return;
  const int directory = directory_.number();
  if (::fsync(descriptor_.number()) != 0 ||
      ::renameat(directory, temporary_.c_str(), directory, target_.filename().c_str()) != 0)
    fail(errno);
  temporary_.clear();
  // Not possible in a directory that can only be written to.
  if (const Descriptor readable(::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)); readable)
    ::fsync(readable.number());
}

void NewFile::remove() noexcept {
  const std::lock_guard lock(mutex_);
  if (!temporary_.empty()) ::unlinkat(directory_.number(), temporary_.c_str(), 0);
  temporary_.clear();
}

void NewFile::fail(int error) const {
  throw std::runtime_error("cannot write '" + path_.string() +
                           "': " + std::generic_category().message(error));
}

}  // namespace os
