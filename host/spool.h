// Rows that are kept until they are printed.
#pragma once

#include <cstdio>
#include <memory>
#include <span>
#include <string>

#include "host/listing.h"
#include "inventory/inventory.h"

namespace host {

// Takes rows and gives them back as often as wanted: from memory, and beyond some size from a nameless
// temporary file. Throws std::runtime_error where that can't be written or read.
class Spool {
 public:
  void add(std::span<const inventory::Cell> row);
  void forEach(std::size_t columns, const std::function<void(const Row&)>& take);

 private:
  struct Closer {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
  };

  void spill();

  std::string buffer_;
  std::unique_ptr<std::FILE, Closer> file_;
};

}  // namespace host
