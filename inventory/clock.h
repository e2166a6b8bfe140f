// Moments as an inventory keeps them.
#pragma once

#include <chrono>
#include <string>

namespace inventory {

// A moment in UTC, as in 2026-01-31T12:00:00.000Z.
std::string utc(std::chrono::system_clock::time_point moment);
inline std::string utcNow() {
  return utc(std::chrono::system_clock::now());
}

}  // namespace inventory
