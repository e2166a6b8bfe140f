// A folder of this process alone, for what a collection writes before it is published.
#pragma once

#include <filesystem>

#include "platform/posix/descriptor.h"

namespace host {

// Made in the temporary directory (TMPDIR, else /tmp), and removed with its owner. Making one also removes
// what processes that are dead have left there.
class PrivateFolder {
 public:
  // Throws std::runtime_error where no folder can be made.
  PrivateFolder();
  ~PrivateFolder();
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }

  // Removes it now. What stands in it can't be used any more.
  void remove() noexcept;

 private:
  std::filesystem::path path_;
  platform::Descriptor lock_;
};

}  // namespace host
