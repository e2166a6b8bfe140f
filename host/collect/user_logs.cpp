#include "host/collect/user_logs.h"

#include <stdexcept>
#include <system_error>
#include <utility>

#include <fmt/core.h>

#include "host/usage_error.h"
#include "os/log_file.h"

namespace host {

UserLogs::UserLogs(std::filesystem::path directory, std::chrono::milliseconds wait)
    : directory_(std::move(directory)), wait_(wait) {
  const auto refuse = [&](const char* why) {
    throw UsageError(fmt::format("cannot write logs to the directory '{}': {}", directory_.string(), why));
  };
  std::error_code error;
  if (!std::filesystem::exists(directory_, error)) refuse("it does not exist");
  if (!std::filesystem::is_directory(directory_, error)) refuse("it is not a directory");
}

std::vector<std::string> UserLogs::append(const std::string& server, const PrivateLogs& logs) {
  std::vector<std::string> failures;
  const auto appendTo = [&](const std::string& name, const std::string& records) {
    try {
      os::appendToLog(directory_ / name, records, wait_);
    } catch (const os::LogLocked& error) {
      // Further servers do not wait again.
      wait_ = std::chrono::milliseconds(0);
      failures.emplace_back(error.what());
    } catch (const std::runtime_error& error) {
      failures.emplace_back(error.what());
    }
  };
  appendTo("TORVINLog.Log", logs.application.text());
  appendTo(server + ".log", logs.server.text());
  return failures;
}

}  // namespace host
