// Rows that are stored until they are printed.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "os/scratch_file.h"

namespace os {

// Stores rows of values in memory, and beyond some size in a temporary file without a name. Members throw
// std::runtime_error if that cannot be written or read.
class Spool {
 public:
  using Row = std::vector<std::optional<std::string>>;

  void add(std::span<const std::optional<std::string_view>> row);
  // Passes the rows, which have `columns` values each, as often as it is called.
  void forEach(std::size_t columns, const std::function<void(const Row&)>& take);

 private:
  void spill();

  std::uint64_t rows_ = 0;
  std::string buffer_;
  std::optional<ScratchFile> file_;
};

}  // namespace os
