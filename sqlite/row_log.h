// Rows that wait to be put into a table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace sqlite {

// Rows of one table in their order, packed one behind the other. UTF-8; nothing stands for null.
class RowLog {
 public:
  using Cell = std::optional<std::string_view>;

  explicit RowLog(std::size_t columns) : columns_(columns) {}

  bool isEmpty() const { return rowCount_ == 0; }
  std::size_t rowCount() const { return rowCount_; }
  std::size_t bytes() const { return bytes_; }

  // The bytes that a row takes whose values `cellAt` gives, by their columns from 0.
  template <typename CellAt>
  static std::size_t sizeOf(std::size_t columns, const CellAt& cellAt) {
    std::size_t size = columns * sizeof(Head);
    for (std::size_t column = 0; column < columns; ++column) size += cellAt(column).value_or("").size();
    return size;
  }

  // Adds the row, which has that size. Throws std::bad_alloc, and the rows are then as they were.
  template <typename CellAt>
  void add(std::size_t size, const CellAt& cellAt) {
    char* head = room(size);
    char* text = head + columns_ * sizeof(Head);
    for (std::size_t column = 0; column < columns_; ++column) {
      const Cell cell = cellAt(column);
      const Head length = cell ? static_cast<Head>(cell->size() + 1) : 0;
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

  // Drops the rows, and keeps a block for those to come.
  void clear();

  // Goes through the rows. They must stay as they are meanwhile.
  class Reader {
   public:
    explicit Reader(const RowLog& log) : log_(log), cells_(log.columns_) {}

    // Goes to the next row, the first one at first. False when there is none left.
    bool next();

    Cell cell(std::size_t column) const { return cells_[column]; }

   private:
    const RowLog& log_;
    std::vector<Cell> cells_;
    std::size_t block_ = 0;
    std::size_t at_ = 0;
  };

 private:
  using Head = std::uint32_t;  // a value's length plus 1, 0 for null

  struct Block {
    std::unique_ptr<char[]> bytes;
    std::size_t size = 0;
    std::size_t used = 0;
  };

  char* room(std::size_t size);

  std::size_t columns_;
  std::vector<Block> blocks_;
  std::size_t rowCount_ = 0;
  std::size_t bytes_ = 0;
};

}  // namespace sqlite
