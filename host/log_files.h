// The logs of a collection: what this run has added to them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

namespace host {

class LogFiles {
 public:
  struct Added {
    std::filesystem::path file;
    std::int64_t records;
  };

  // Notes where each file ends now. A file need not be there.
  explicit LogFiles(std::vector<std::filesystem::path> files);

  // The files that have records behind that place, and how many. Throws std::runtime_error for a file that
  // has grown and can't be read.
  std::vector<Added> added() const;

 private:
  struct Start {
    std::filesystem::path file;
    std::uintmax_t size;
  };
  std::vector<Start> starts_;
};

}  // namespace host
