// The rows of a table on their way into an inventory.
#pragma once

#include <bitset>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "inventory/model.h"

namespace inventory {

// The largest value in bytes that every kind of database can store.
inline constexpr std::size_t kLongestValue = std::size_t{32} << 20;

// Replaces values that not every kind of database can store, and reports them as problems.
class CheckedRows : public Rows {
 public:
  CheckedRows(const Table& table, std::unique_ptr<Rows> rows);

  bool next() override;
  Cell cell(std::size_t column) override;

  // The values that were replaced.
  std::vector<Problem>& problems() { return problems_; }

 private:
  Cell replaced(std::size_t column, std::string_view text);
  void report(std::size_t column, std::string message);

  const Table& table_;
  const std::unique_ptr<Rows> rows_;
  std::vector<std::string> replacements_;  // of this row, by column
  std::bitset<64> reported_;               // columns of this row
  std::vector<Problem> problems_;
};

// Replaces invalid UTF-8 and NUL characters by U+FFFD.
std::string cleanText(std::string_view text);

// Whether a text is ASCII without NUL characters, which every database can store.
bool isPlainText(std::string_view text);

}  // namespace inventory
