// Where temporary files are created.
#pragma once

#include <cstdlib>
#include <filesystem>

namespace os {

// TMPDIR, or else /tmp.
inline std::filesystem::path temporaryDirectory() {
  const char* const named = std::getenv("TMPDIR");
  return named != nullptr && *named != '\0' ? named : "/tmp";
}

}  // namespace os
