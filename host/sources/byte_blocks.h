// Bytes of unknown number.
#pragma once

#include <algorithm>
#include <deque>
#include <memory>
#include <string>
#include <utility>

#include "os/file.h"

namespace host {

// Collects bytes in blocks, so that growing moves none of them.
class ByteBlocks {
 public:
  static constexpr std::size_t kBlock = std::size_t{1} << 20;

  void append(std::string block) {
    size_ += block.size();
    blocks_.push_back(std::move(block));
  }
  std::size_t size() const { return size_; }

  // Moves the bytes out. Frees each block when it is copied.
  os::FileBytes join() {
    os::FileBytes joined{std::unique_ptr<char[]>(new char[size_ + 1]), size_, {}};
    char* end = joined.bytes.get();
    for (; !blocks_.empty(); blocks_.pop_front()) end = std::ranges::copy(blocks_.front(), end).out;
    return joined;
  }

 private:
  std::deque<std::string> blocks_;
  std::size_t size_ = 0;
};

}  // namespace host
