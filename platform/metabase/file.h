// Reading metabase files.
#pragma once

#include <filesystem>

#include "os/file.h"

namespace platform::metabase {

// Reads a whole file as os::readFile() does. Throws automation::Failure with a number of this layer; the
// message names the file.
os::FileBytes readFile(const std::filesystem::path& path);

}  // namespace platform::metabase
