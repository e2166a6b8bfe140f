// Formats times as stored in an inventory.
#pragma once

#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>

namespace inventory {

// Formats a time in UTC, as in 2026-01-31T12:00:00.000Z.
inline std::string utc(std::chrono::system_clock::time_point moment) {
  const auto second = std::chrono::floor<std::chrono::seconds>(moment);
  const std::time_t time = std::chrono::system_clock::to_time_t(second);
  std::tm parts{};
  char text[64];
  const std::size_t length = std::strftime(text, sizeof text, "%FT%T", gmtime_r(&time, &parts));
  std::snprintf(text + length, sizeof text - length, ".%03dZ",
                static_cast<int>(std::chrono::floor<std::chrono::milliseconds>(moment - second).count()));
  return text;
}
inline std::string utcNow() {
  return utc(std::chrono::system_clock::now());
}

}  // namespace inventory
