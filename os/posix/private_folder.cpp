#include "os/private_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <system_error>

#include "os/posix/temporary_directory.h"

namespace os {
namespace {

namespace fs = std::filesystem;

const std::string kPrefix = "iisinventory-private-";
// Distinguishes such a folder from another one of a similar name.
constexpr const char* kMark = "mark-of-a-private-folder";

// How often a folder is emptied while another thread may still write into it.
constexpr int kMostTries = 100;

Descriptor openFolder(const fs::path& folder) {
  return Descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
}

// Whether the path is still that of the open folder.
bool isStill(const fs::path& folder, const Descriptor& descriptor) {
  struct stat here {};
  struct stat there {};
  return ::fstat(descriptor.number(), &here) == 0 && ::lstat(folder.c_str(), &there) == 0 &&
         here.st_dev == there.st_dev && here.st_ino == there.st_ino;
}

// Removes a folder with its contents. The mark goes last, and only from an otherwise empty folder, so that a
// later process recognises what a killed one leaves.
void removeMarked(const fs::path& folder) {
  std::error_code error;
  bool isEmpty = true;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
    if (entry->path().filename() == kMark) continue;
    std::error_code failure;
    fs::remove_all(entry->path(), failure);
    isEmpty = isEmpty && !failure;
  }
  if (!isEmpty || error) return;
  fs::remove(folder / kMark, error);
  ::rmdir(folder.c_str());
}

// The lock of a folder is released with the process that holds it, however that ends.
void removeAbandonedFolders(const fs::path& directory) {
  std::error_code error;
  for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error)) {
    const fs::path& path = entry->path();
    if (!path.filename().string().starts_with(kPrefix)) continue;
    const Descriptor folder = openFolder(path);
    struct stat status {};
    if (!folder || ::fstat(folder.number(), &status) != 0 || status.st_uid != ::geteuid()) continue;
    if (::flock(folder.number(), LOCK_EX | LOCK_NB) != 0) continue;
    std::error_code ignored;
    if (fs::exists(path / kMark, ignored)) {
      removeMarked(path);
    } else {
      // A process that was killed before it made the mark, or after it removed it, leaves an empty folder.
      ::rmdir(path.c_str());
    }
  }
}

}  // namespace

PrivateFolder::PrivateFolder() {
  const fs::path directory = fs::absolute(temporaryDirectory());
  // The component uses a backslash as separator.
  if (directory.string().find('\\') != std::string::npos) {
    throw std::runtime_error("the temporary directory '" + directory.string() +
                             "' has a backslash in its path");
  }
  removeAbandonedFolders(directory);
  while (true) {
    std::string pattern = (directory / (kPrefix + "XXXXXX")).string();
    if (::mkdtemp(pattern.data()) == nullptr) {
      throw std::runtime_error("cannot create a folder in the temporary directory '" + directory.string() +
                               "': " + std::strerror(errno));
    }
    path_ = pattern;
    lock_ = openFolder(path_);
    // Another process that removes abandoned folders may have locked it first.
    if (lock_ && ::flock(lock_.number(), LOCK_EX) == 0 && isStill(path_, lock_)) {
      const std::string mark = (path_ / kMark).string();
      if (Descriptor(::open(mark.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600))) return;
      const int error = errno;
      remove();
      throw std::runtime_error("cannot write to the temporary directory '" + directory.string() +
                               "': " + std::strerror(error));
    }
  }
}

PrivateFolder::~PrivateFolder() {
  remove();
}

void PrivateFolder::remove() noexcept {
  try {
    // Other threads can create no more files in it. The new name is still recognised by later processes.
    fs::path folder = path_.string() + "-gone";
    if (::rename(path_.c_str(), folder.c_str()) != 0) folder = path_;
    std::error_code error;
    for (int tries = 0; tries < kMostTries && fs::exists(folder, error); ++tries) removeMarked(folder);
  } catch (const std::exception&) {
    // A later process removes it.
  }
}

}  // namespace os
