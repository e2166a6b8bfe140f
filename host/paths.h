// Paths as a user gives them.
#pragma once

#include <filesystem>

namespace host {

// The absolute path of the same file, without "." and "..": behind a link ".." leads to where the link's
// target stands. A path that leads nowhere still does.
std::filesystem::path absolutePath(const std::filesystem::path& path);

}  // namespace host
