#include "inventory/clock.h"

#include <cstdio>
#include <ctime>

namespace inventory {

std::string utc(std::chrono::system_clock::time_point moment) {
  using namespace std::chrono;
  const auto second = floor<seconds>(moment);
  const std::time_t time = system_clock::to_time_t(second);
  std::tm parts{};
  gmtime_r(&time, &parts);
  char text[64];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(text + length, sizeof text - length, ".%03dZ",
                static_cast<int>(floor<milliseconds>(moment - second).count()));
  return text;
}

}  // namespace inventory
