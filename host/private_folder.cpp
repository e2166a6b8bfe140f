#include "host/private_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <system_error>

namespace host {
namespace {

namespace fs = std::filesystem;

const std::string kPrefix = "iisinventory-private-";
// Tells a folder of ours from one that somebody has given such a name.
constexpr const char* kMark = "mark-of-a-private-folder";

// How often a folder is emptied into which somebody may still be writing.
constexpr int kMostTries = 100;

fs::path temporaryDirectory() {
  const char* const named = std::getenv("TMPDIR");
  return named != nullptr && *named != '\0' ? fs::path(named) : fs::path("/tmp");
}

platform::Descriptor openFolder(const fs::path& folder) {
  return platform::Descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
}

// Whether the path still leads to the folder behind the descriptor.
bool isStill(const fs::path& folder, const platform::Descriptor& descriptor) {
  struct stat here {};
  struct stat there {};
  return ::fstat(descriptor.number(), &here) == 0 && ::lstat(folder.c_str(), &there) == 0 &&
         here.st_dev == there.st_dev && here.st_ino == there.st_ino;
}

// A folder's lock goes with the process that holds it, however it ends.
void removeLeftovers(const fs::path& directory) {
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator(directory, error)) {
    if (!entry.path().filename().string().starts_with(kPrefix)) continue;
    const platform::Descriptor folder = openFolder(entry.path());
    struct stat status {};
    if (!folder || ::fstat(folder.number(), &status) != 0 || status.st_uid != ::geteuid()) continue;
    if (::flock(folder.number(), LOCK_EX | LOCK_NB) != 0) continue;
    std::error_code ignored;
    if (fs::exists(entry.path() / kMark, ignored)) {
      fs::remove_all(entry.path(), ignored);
    } else {
      // A run that was killed ahead of its mark leaves an empty one. Anything in it is somebody else's.
      ::rmdir(entry.path().c_str());
    }
  }
}

}  // namespace

PrivateFolder::PrivateFolder() {
  const fs::path directory = fs::absolute(temporaryDirectory());
  // The component takes a backslash for a separator.
  if (directory.string().find('\\') != std::string::npos) {
    throw std::runtime_error("the temporary directory '" + directory.string() +
                             "' has a backslash in its path");
  }
  removeLeftovers(directory);
  while (true) {
    std::string pattern = (directory / (kPrefix + "XXXXXX")).string();
    if (::mkdtemp(pattern.data()) == nullptr) {
      throw std::runtime_error("can't make a folder in the temporary directory '" + directory.string() +
                               "': " + std::strerror(errno));
    }
    path_ = pattern;
    lock_ = openFolder(path_);
    // Somebody who cleans up may have come first, and have the lock.
    if (lock_ && ::flock(lock_.number(), LOCK_EX) == 0 && isStill(path_, lock_)) {
      const std::string mark = (path_ / kMark).string();
      if (platform::Descriptor(::open(mark.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600))) return;
      const int error = errno;
      remove();
      throw std::runtime_error("can't keep anything in the temporary directory '" + directory.string() +
                               "': " + std::strerror(error));
    }
  }
}

PrivateFolder::~PrivateFolder() {
  remove();
}

void PrivateFolder::remove() noexcept {
  try {
    // Whoever still wants to make files in it finds it no longer. The next run would know this name too.
    fs::path folder = path_.string() + "-gone";
    if (::rename(path_.c_str(), folder.c_str()) != 0) folder = path_;
    std::error_code error;
    for (int tries = 0; tries < kMostTries; ++tries) {
      // The mark goes last, so that half a folder is still known for ours.
      for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
        if (entry.path().filename() != kMark) fs::remove_all(entry.path(), error);
      }
      fs::remove(folder / kMark, error);
      if (::rmdir(folder.c_str()) == 0 || errno != ENOTEMPTY) return;
    }
  } catch (const std::exception&) {
    // The next run removes it.
  }
}

}  // namespace host
