// Rows buffered in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace sqlite {

// Rows of one table in order of insertion, packed. Values are UTF-8; nullopt is null.
class RowLog {
 public:
  using Cell = std::optional<std::string_view>;

  explicit RowLog(std::size_t columns) : columns_(columns) {}

  bool isEmpty() const { return rowCount_ == 0; }
  std::size_t rowCount() const { return rowCount_; }
  std::size_t bytes() const { return bytes_; }

  // The packed size of a row. `cellAt(column)` returns a value; columns are numbered from 0.
  template <typename CellAt>
  static std::size_t sizeOf(std::size_t columns, const CellAt& cellAt) {
    std::size_t size = columns * sizeof(CellHeader);
    for (std::size_t column = 0; column < columns; ++column) size += cellAt(column).value_or("").size();
    return size;
  }

  // Adds a row of that size. Throws std::bad_alloc without changing anything.
  template <typename CellAt>
  void add(std::size_t size, const CellAt& cellAt) {
    char* head = reserve(size);
    char* text = head + columns_ * sizeof(CellHeader);
    for (std::size_t column = 0; column < columns_; ++column) {
      const Cell cell = cellAt(column);
      const CellHeader length = cell ? static_cast<CellHeader>(cell->size() + 1) : 0;
      std::memcpy(head, &length, sizeof length);
      head += sizeof length;
      if (!cell || cell->empty()) continue;
      std::memcpy(text, cell->data(), cell->size());
      text += cell->size();
    }
    blocks_.back().used += size;
    bytes_ += size;
    ++rowCount_;
  }

  // Removes the rows and keeps one block.
  void clear();

  // Iterates over the rows, which must not change meanwhile.
  class Reader {
   public:
    explicit Reader(const RowLog& log) : log_(log), cells_(log.columns_) {}

    // Moves to the next row, initially the first. Returns false after the last.
    bool next();

    Cell cell(std::size_t column) const { return cells_[column]; }

   private:
    const RowLog& log_;
    std::vector<Cell> cells_;
    std::size_t block_ = 0;
    std::size_t at_ = 0;
  };

 private:
  using CellHeader = std::uint32_t;  // a value's length plus 1, 0 for null

  struct Block {
    std::unique_ptr<char[]> bytes;
    std::size_t size = 0;
    std::size_t used = 0;
  };

  char* reserve(std::size_t size);

  std::size_t columns_;
  std::vector<Block> blocks_;
  std::size_t rowCount_ = 0;
  std::size_t bytes_ = 0;
};

}  // namespace sqlite
