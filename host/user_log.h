// The logs that the user keeps.
#pragma once

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string_view>

namespace host {

// Somebody else keeps a log locked, and the wait for it has run out.
class LogLocked : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Appends whole records to a log, all of them or none; makes the file where it isn't there. A log is a plain
// file: nothing is written through a FIFO or a device. Waits for whoever has it locked (flock) for `wait` at
// most. Throws LogLocked, std::runtime_error.
void appendToLog(const std::filesystem::path& file, std::string_view records, std::chrono::milliseconds wait);

}  // namespace host
