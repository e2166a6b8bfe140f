// Replacing a file as a whole.
#pragma once

#include <filesystem>
#include <mutex>
#include <string>

#include "os/descriptor.h"

namespace os {

// A file that is written under a random name next to its final path and renamed to it when complete; a link
// is followed to its target. It keeps the permissions of the file that it replaces, and its owner and group
// if the system allows it; a read-only file is not replaced. A device or pipe is written to directly.
class NewFile {
 public:
  enum class Readers { kUsual, kOwnerOnly };  // kOwnerOnly: whatever the replaced file permits

  // Throws std::runtime_error with the path and the cause, as all members do.
  explicit NewFile(std::filesystem::path path, Readers readers = Readers::kUsual);
  ~NewFile() { remove(); }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  const std::filesystem::path& path() const { return path_; }
  int descriptor() const { return descriptor_.number(); }

  // Stores the file durably and moves it to its final path.
  void finish();

  // Discards the file unless it is finished. May be called from any thread.
  void remove() noexcept;

 private:
  [[noreturn]] void fail(int error) const;

  const std::filesystem::path path_;
  std::filesystem::path target_;
  Descriptor directory_;  // of the target
  Descriptor descriptor_;
  std::mutex mutex_;       // guards temporary_
  std::string temporary_;  // name in the directory; empty for a device or pipe, and for a finished file
};

}  // namespace os
