// Inserts rows into the tables of a database, at once or buffered.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "sqlite/database.h"
#include "sqlite/row_log.h"

namespace sqlite {

// A prepared insert statement, with the rows buffered for it.
struct Insertion {
  std::string table;
  std::size_t columns = 0;
  Statement statement;
  std::optional<RowLog> buffered;  // if rows may be buffered
  bool mayBeStored = true;         // whether the table may have rows
};

// The insert statements of a database. Buffered rows stay in memory until they are queried or too large.
// Members throw Error.
class Insertions {
 public:
  explicit Insertions(Database& database) : database_(database) {}

  // The insertion for an SQL text that inserts values for `columns` columns of a table. Valid as long as this
  // object.
  Insertion& prepared(const std::string& sql, const std::string& table, std::size_t columns);

  // Prepares an insertion and buffers its rows. The statement must name the table's columns in order, and the
  // table must not have constraints.
  void buffer(const std::string& sql, const std::string& table, std::size_t columns);

  // Adds a row. `cellAt(column)` returns a value.
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

  // All rows of a buffered table, or null if some were inserted; then all are in the table.
  const RowLog* bufferedRows(std::string_view table);

  // Removes these rows and returns them; nullopt if bufferedRows() returns null.
  std::optional<RowLog> takeBufferedRows(std::string_view table);

  // Inserts buffered rows into their tables: all of them, or those of the tables that an SQL text names. If
  // the text may change rows, later rows of these tables count as stored.
  void flush();
  void flushNamedIn(std::string_view sql, bool mayChange);

  // Removes the rows of all tables.
  void removeRows();

 private:
  // Enough for a collection of a server with ten thousand sites.
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
