#include "os/paths.h"

#include <system_error>

namespace os {

std::filesystem::path absolutePath(const std::filesystem::path& path) {
  namespace fs = std::filesystem;
  fs::path whole;
  for (const fs::path& part : fs::absolute(path)) {
    if (part.empty() || part == ".") continue;
    if (part != "..") {
      whole /= part;
      continue;
    }
    std::error_code error;
    const fs::path real = fs::canonical(whole, error);
    if (error) {
      whole /= part;
      continue;
    }
    // As it was given, where that is the same.
    const fs::path above = whole.parent_path();
    whole = fs::canonical(above, error) == real.parent_path() ? above : real.parent_path();
  }
  return whole;
}

}  // namespace os
