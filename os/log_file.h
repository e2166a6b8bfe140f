// Log files that several processes append to.
#pragma once

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string_view>

namespace os {

// Another process has kept the log locked for longer than the wait.
class LogLocked : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Appends whole records to a log, either all of them or none, and creates the file if it does not exist. Only
// a regular file is written to; a symbolic link in a directory that other users can write to is not followed.
// Waits for the log's lock (flock) for `wait` at most. Throws LogLocked and std::runtime_error.
void appendToLog(const std::filesystem::path& file, std::string_view records, std::chrono::milliseconds wait);

}  // namespace os
