#include "host/log_files.h"

#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace host {
namespace {

// 0 for a file that isn't there.
std::uintmax_t sizeOf(const std::filesystem::path& file) {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(file, error);
  return error ? 0 : size;
}

// A record begins with its time. A message may hold line breaks, so not each line is a record.
bool beginsRecord(std::string_view line) {
  constexpr std::string_view kTime = "00/00/0000 00:00:00\t";
  if (line.size() < kTime.size()) return false;
  for (std::size_t at = 0; at < kTime.size(); ++at) {
    const bool fits = kTime[at] == '0' ? line[at] >= '0' && line[at] <= '9' : line[at] == kTime[at];
    if (!fits) return false;
  }
  return true;
}

}  // namespace

LogFiles::LogFiles(std::vector<std::filesystem::path> files) {
  for (std::filesystem::path& file : files) {
    const std::uintmax_t size = sizeOf(file);
    starts_.push_back({std::move(file), size});
  }
}

std::vector<LogFiles::Added> LogFiles::added() const {
  std::vector<Added> all;
  for (const Start& start : starts_) {
    const std::uintmax_t size = sizeOf(start.file);
    if (size == start.size) continue;
    std::ifstream log(start.file, std::ios::binary);
    // A file that is shorter than it was is another one.
    if (size > start.size) log.seekg(static_cast<std::streamoff>(start.size));
    if (!log) throw std::runtime_error("can't read the log " + start.file.string());
    std::int64_t records = 0;
    for (std::string line; std::getline(log, line);) records += beginsRecord(line) ? 1 : 0;
    if (records > 0) all.push_back({start.file, records});
  }
  return all;
}

}  // namespace host
