#include "os/new_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace os {

namespace fs = std::filesystem;

NewFile::NewFile(fs::path path, Readers readers) : path_(std::move(path)), target_(path_) {
  struct stat previous {};
  const bool isThere = ::stat(path_.c_str(), &previous) == 0;
  if (isThere && S_ISDIR(previous.st_mode)) fail(EISDIR);
  if (isThere && !S_ISREG(previous.st_mode)) {
    descriptor_ = Descriptor(::open(path_.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC));
  } else {
    if (isThere) target_ = fs::canonical(path_);
    temporary_ = target_.string() + "." + std::to_string(::getpid()) + ".new";
    descriptor_ = Descriptor(::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC,
                                    readers == Readers::kOwnerOnly ? 0600 : 0666));
  }
  const int error = errno;
  if (!descriptor_) {
    temporary_.clear();
    fail(error);
  }
  const mode_t mode = readers == Readers::kOwnerOnly ? 0600 : previous.st_mode & 07777;
  if (isThere && !temporary_.empty()) ::fchmod(descriptor_.number(), mode);
}

void NewFile::finish() {
  if (temporary_.empty()) return;
  if (::fsync(descriptor_.number()) != 0 || ::rename(temporary_.c_str(), target_.c_str()) != 0) fail(errno);
  temporary_.clear();
}

void NewFile::remove() noexcept {
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
}

void NewFile::fail(int error) const {
  throw std::runtime_error("cannot write '" + path_.string() +
                           "': " + std::generic_category().message(error));
}

}  // namespace os
