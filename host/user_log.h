// The logs that the user keeps.
#pragma once

#include <filesystem>
#include <string_view>

namespace host {

// Appends whole records to a log, all of them or none; makes the file where it isn't there. A log is a plain
// file: nothing is written through a FIFO or a device. Throws std::runtime_error.
void appendToLog(const std::filesystem::path& file, std::string_view records);

}  // namespace host
