// The two logs that a user keeps: one for the database, and one named after each server for everything else.
#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "host/collect/collection_records.h"

namespace host {

class UserLogs {
 public:
  // `wait`: for the lock of a log. Throws UsageError if the directory does not exist.
  UserLogs(std::filesystem::path directory, std::chrono::milliseconds wait);

  // Appends the component's records of a server. Returns why a log could not be written. Thread-safe.
  std::vector<std::string> append(const std::string& server, const PrivateLogs& logs);

 private:
  const std::filesystem::path directory_;
  std::atomic<std::chrono::milliseconds> wait_;
};

}  // namespace host
