// Paths as a user gives them.
#pragma once

#include <filesystem>

namespace os {

// The absolute path of the same file, without "." and "..". Behind a link ".." is the parent of the link's
// target. The path need not exist.
std::filesystem::path absolutePath(const std::filesystem::path& path);

}  // namespace os
