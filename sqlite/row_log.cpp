#include "sqlite/row_log.h"

#include <algorithm>

namespace sqlite {
namespace {

// Small for the tables of small servers, growing to few blocks for large ones.
constexpr std::size_t kFirstBlock = 4 * 1024;
constexpr std::size_t kLargestBlock = 256 * 1024;

}  // namespace

char* RowLog::reserve(std::size_t size) {
  if (blocks_.empty() || blocks_.back().size - blocks_.back().used < size) {
    const std::size_t usual =
        blocks_.empty() ? kFirstBlock : std::min(blocks_.back().size * 2, kLargestBlock);
    const std::size_t taken = std::max(usual, size);
    blocks_.push_back({std::make_unique_for_overwrite<char[]>(taken), taken, 0});
  }
  return blocks_.back().bytes.get() + blocks_.back().used;
}

void RowLog::clear() {
  if (blocks_.size() > 1) blocks_.resize(1);
  if (!blocks_.empty()) blocks_.front().used = 0;
  rowCount_ = 0;
  bytes_ = 0;
}

bool RowLog::Reader::next() {
  const std::vector<Block>& blocks = log_.blocks_;
  while (block_ < blocks.size() && at_ == blocks[block_].used) {
    ++block_;
    at_ = 0;
  }
  if (block_ == blocks.size()) return false;
  const char* head = blocks[block_].bytes.get() + at_;
  const char* text = head + cells_.size() * sizeof(CellHeader);
  for (Cell& cell : cells_) {
    CellHeader length = 0;
    std::memcpy(&length, head, sizeof length);
    head += sizeof length;
    if (length == 0) {
      cell.reset();
      continue;
    }
    cell.emplace(text, length - 1);
    text += length - 1;
  }
  at_ = static_cast<std::size_t>(text - blocks[block_].bytes.get());
  return true;
}

}  // namespace sqlite
