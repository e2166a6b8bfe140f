#include "os/log_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>

#include "os/descriptor.h"

namespace os {
namespace {

constexpr std::chrono::milliseconds kPause{5};
// Without O_NONBLOCK opening a FIFO would wait for a reader.
constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

// Returns false if another process holds the lock for the whole wait. Where the file system has no locks,
// none is needed.
bool lock(const Descriptor& log, std::chrono::milliseconds wait) {
  const auto end = std::chrono::steady_clock::now() + wait;
  while (::flock(log.number(), LOCK_EX | LOCK_NB) != 0) {
    if (errno == EINTR) continue;
    if (errno != EWOULDBLOCK) return true;
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(kPause);
  }
  return true;
}

// Whether users other than the owner can create a link in the file's directory.
bool isInSharedDirectory(const std::filesystem::path& file) {
  struct stat status {};
  const std::filesystem::path directory = std::filesystem::absolute(file).parent_path();
  return ::stat(directory.c_str(), &status) != 0 || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

}  // namespace

void appendToLog(const std::filesystem::path& file, std::string_view records,
                 std::chrono::milliseconds wait) {
  if (records.empty()) return;
  const std::string what = "cannot write the log " + file.string() + ": ";
  const auto fail = [&](const char* why) { throw std::runtime_error(what + why); };
  Descriptor log(::open(file.c_str(), kFlags | O_NOFOLLOW, 0666));
  if (!log && errno == ELOOP) {
    if (isInSharedDirectory(file)) fail("it is a symbolic link in a directory that other users can write to");
    log = Descriptor(::open(file.c_str(), kFlags, 0666));
  }
  struct stat status {};
  if (!log) fail(errno == ENXIO ? "it is a FIFO" : std::strerror(errno));
  if (::fstat(log.number(), &status) != 0) fail(std::strerror(errno));
  if (!S_ISREG(status.st_mode)) fail(S_ISFIFO(status.st_mode) ? "it is a FIFO" : "it is not a regular file");

  // One writer at a time, so that a partly written text can be removed again.
  if (!lock(log, wait)) throw LogLocked(what + "it is locked by another process");
  if (::fstat(log.number(), &status) != 0) fail(std::strerror(errno));
  while (!records.empty()) {
    const ssize_t written = ::write(log.number(), records.data(), records.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      const int error = written < 0 ? errno : ENOSPC;
      [[maybe_unused]] const int ignored = ::ftruncate(log.number(), status.st_size);
      fail(std::strerror(error));
    }
    records.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace os
