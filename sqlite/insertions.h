// The adding of rows to the tables of a database, at once or as late as possible.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "sqlite/database.h"
#include "sqlite/row_log.h"

namespace sqlite {

// One way in which rows come into a table.
struct Insertion {
  std::string table;
  std::size_t columns = 0;
  Statement statement;
  std::optional<RowLog> buffered;  // where rows may wait
  bool mayBeStored = true;         // whether some may stand in the table already
};

// All of them, each prepared once. Where a table's rows may wait they stay in memory until somebody asks for
// them or they grow too many. Members throw Error.
class Insertions {
 public:
  explicit Insertions(Database& database) : database_(database) {}

  // That of an SQL text, which inserts values for so many columns of a table. Valid as long as this object.
  Insertion& prepared(const std::string& sql, const std::string& table, std::size_t columns);

  // The same, and rows that it adds may wait. It must take any row, and give the table's columns in their
  // order.
  void buffer(const std::string& sql, const std::string& table, std::size_t columns);

  // Adds a row, whose values `cellAt` gives by their columns.
  template <typename CellAt>
  void add(Insertion& insertion, const CellAt& cellAt) {
    if (!insertion.buffered && bufferedBytes_ == 0) return insert(insertion, cellAt);
    const std::size_t size = RowLog::sizeOf(insertion.columns, cellAt);
    const bool isBuffered = insertion.buffered && size <= kMaxBufferedRow;
    if (!isBuffered || bufferedBytes_ + size > kMaxBufferedBytes) flush();
    if (!isBuffered) return insert(insertion, cellAt);
    insertion.buffered->add(size, cellAt);
    bufferedBytes_ += size;
  }

  // The rows of a table that may wait, where all of them do; else null, and they stand in the table.
  const RowLog* bufferedRows(std::string_view table);

  // Takes these rows out of the database; nothing where bufferedRows() gives null.
  std::optional<RowLog> takeBufferedRows(std::string_view table);

  // Puts rows that wait into their tables: all of them, or those of the tables that an SQL text names. One
  // that may change rows leaves none of them waiting later either.
  void flush();
  void flushNamedIn(std::string_view sql, bool mayChange);

  // Removes the rows of all tables.
  void removeRows();

 private:
  // What may wait in all, a collection of a server of ten thousand sites, and the largest row that may.
  static constexpr std::size_t kMaxBufferedBytes = 48 * 1024 * 1024;
  static constexpr std::size_t kMaxBufferedRow = 64 * 1024;

  template <typename CellAt>
  static void insert(Insertion& insertion, const CellAt& cellAt) {
    insertion.mayBeStored = true;
    for (std::size_t column = 0; column < insertion.columns; ++column) {
      insertion.statement.bindOrNull(static_cast<int>(column) + 1, cellAt(column));
    }
    insertion.statement.run();
  }
  void flush(Insertion& insertion);
  Insertion* bufferedInsertion(std::string_view table);

  Database& database_;
  std::unordered_map<std::string, Insertion> insertions_;  // by SQL text
  std::size_t bufferedBytes_ = 0;
};

}  // namespace sqlite
