// Reading a file that does not change meanwhile, for the implementations of os/file.h.
#pragma once

#include <filesystem>

#include "os/file.h"

namespace os {

// Implements readFile() with a system's class of an open file.
template <typename File>
FileBytes readUnchanged(const std::filesystem::path& path) {
  constexpr int kAttempts = 3;
  for (int attempt = 1;; ++attempt) {
    const File file(path);
    FileBytes bytes = file.read();
    if (file.stamp() == bytes.stamp && stampOf(path) == bytes.stamp) return bytes;
    if (attempt == kAttempts)
      file.refuse(FileFailure::kChanged, "the file keeps changing while it is being read");
  }
}

}  // namespace os
