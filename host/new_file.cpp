#include "host/new_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace host {

namespace fs = std::filesystem;

NewFile::NewFile(fs::path path) : path_(std::move(path)), place_(path_) {
  struct stat former {};
  const bool isThere = ::stat(path_.c_str(), &former) == 0;
  if (isThere && S_ISDIR(former.st_mode)) fail(EISDIR);
  if (isThere && !S_ISREG(former.st_mode)) {
    descriptor_ = platform::Descriptor(::open(path_.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC));
  } else {
    if (isThere) place_ = fs::canonical(path_);
    made_ = place_.string() + "." + std::to_string(::getpid()) + ".new";
    descriptor_ = platform::Descriptor(::open(made_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  }
  const int error = errno;
  if (!descriptor_) {
    made_.clear();
    fail(error);
  }
  if (isThere && !made_.empty()) ::fchmod(descriptor_.number(), former.st_mode & 07777);
  output_.emplace(descriptor_.number(), "'" + path_.string() + "'");
}

void NewFile::finish() {
  output_->flush();
  if (made_.empty()) return;
  if (::fsync(descriptor_.number()) != 0 || ::rename(made_.c_str(), place_.c_str()) != 0) fail(errno);
  made_.clear();
}

void NewFile::remove() noexcept {
  if (!made_.empty()) ::unlink(made_.c_str());
}

void NewFile::fail(int error) const {
  throw std::runtime_error("cannot write '" + path_.string() +
                           "': " + std::generic_category().message(error));
}

}  // namespace host
