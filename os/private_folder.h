// Temporary folders.
#pragma once

#include <filesystem>

#include "os/descriptor.h"

namespace os {

// A folder in the temporary directory (TMPDIR, or else /tmp) that only this process uses. It is removed with
// its owner. The constructor also removes the folders of processes that have died.
class PrivateFolder {
 public:
  // Throws std::runtime_error if no folder can be created.
  PrivateFolder();
  ~PrivateFolder();
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }

  // Removes it now, with its contents.
  void remove() noexcept;

 private:
  std::filesystem::path path_;
  Descriptor lock_;
};

}  // namespace os
