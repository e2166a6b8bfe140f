// An open database as the store's objects use it: with the statements that come again and again, and with
// failures as ADO programmers know them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "automation/failure.h"
#include "automation/text.h"
#include "platform/store/row_log.h"
#include "sqlite/database.h"

namespace platform::store {

// Numbers that ADO programmers know, beside those of automation::number.
namespace number {
constexpr std::int32_t kWrongType = 3001;
constexpr std::int32_t kNoCurrentRow = 3021;
constexpr std::int32_t kNotSupported = 3251;
constexpr std::int32_t kObjectClosed = 3704;
constexpr std::int32_t kObjectOpen = 3705;
constexpr std::int32_t kNoConnection = 3709;
constexpr std::int32_t kUnusableFile = static_cast<std::int32_t>(0x80004005);
constexpr std::int32_t kNoCommandText = static_cast<std::int32_t>(0x80040E0C);
constexpr std::int32_t kBadSql = static_cast<std::int32_t>(0x80040E14);
constexpr std::int32_t kConstraint = static_cast<std::int32_t>(0x80040E2F);
constexpr std::int32_t kNoSuchTable = static_cast<std::int32_t>(0x80040E37);
}  // namespace number

// The columns of a query's rows.
struct Columns {
  std::vector<automation::Text> names;
  std::string table;
  // Adds a row with a value for each column to the table that all of them come from; empty where there is no
  // such table.
  std::string insertSql;
};

// A query that is ready to run.
struct Query {
  automation::Text sql;
  sqlite::Statement statement;
  std::shared_ptr<const Columns> columns;
  bool asksForColumns = false;  // and for no row
};

// How rows come into a table.
struct Addition {
  std::string table;
  std::size_t columns = 0;
  sqlite::Statement insertion;
  // Where they wait, if they may.
  std::optional<RowLog> waiting;
  // Whether some may stand in the table already.
  bool begun = true;
};

// A database with the statements that its connections use again and again. No statement is under way between
// two calls: an idle session holds no lock. Used by one thread at a time.
class Session {
 public:
  explicit Session(std::unique_ptr<sqlite::Database> database) : database_(std::move(database)) {}

  // The handle. Whoever changes rows with it calls settle() before.
  sqlite::Database& database() { return *database_; }

  // The query of a text, which must be one statement that gives rows. Valid until the next call. The members
  // down to here throw automation::Failure with `source` as its source.
  Query& query(automation::TextView sql, automation::TextView source);

  // Describes a query's columns anew where the tables have changed since. To be called once it has run.
  void refreshColumns(Query& query);

  // Takes care that a query finds the rows that it asks for. To be called before it runs.
  void settleFor(const Query& query);

  // What an insertSql adds. Valid as long as the session.
  Addition& addition(const Columns& columns, automation::TextView source);

  // Adds a row, whose values `cellAt` gives by their columns.
  template <typename CellAt>
  void add(Addition& addition, automation::TextView source, const CellAt& cellAt) {
    std::size_t size = 0;
    for (std::size_t column = 0; column < addition.columns; ++column) {
      size += kCellHead + cellAt(column).value_or("").size();
    }
    const bool waits = addition.waiting && size <= kLargestWaitingRow;
    if (waitingBytes_ > 0 && (!waits || waitingBytes_ + size > kMostWaitingBytes)) {
      attempt(source, [&] { settle(); });
    }
    if (waits) {
      waitingBytes_ += addition.waiting->add(cellAt);
      return;
    }
    attempt(source, [&] { insert(addition, cellAt); });
  }

  // From now on rows that are added to a table may wait in memory until somebody asks for them. It must take
  // any row. Throws sqlite::Error, as the other members down to here do.
  void letRowsWait(const std::string& table);

  // The rows of a table that may wait, where all of them do; else null, and they stand in the table.
  const RowLog* waiting(std::string_view table);

  // Puts all rows that wait into their tables.
  void settle();

  // Removes the rows of all tables.
  void removeRows();

  // Runs one statement that changes something. It may not begin or end a transaction.
  void execute(automation::TextView sql, automation::TextView source);

  // Does something with the database, whose failures become those of ADO.
  template <typename Work>
  decltype(auto) attempt(automation::TextView source, Work&& work) {
    try {
      return work();
    } catch (const sqlite::Error& error) {
      fail(error, source);
    }
  }

  // What the first operation said that has failed for want of space, of memory or of a place for a temporary
  // file, or because the database itself can't be used; empty where none has.
  const std::string& breakdown() const { return breakdown_; }

 private:
  // Enough for all the texts of a collection that don't hold a name.
  static constexpr std::size_t kMostQueries = 32;

  // What may wait in all, and the largest row that may: a collection of a server of ten thousand sites.
  static constexpr std::size_t kMostWaitingBytes = 48 * 1024 * 1024;
  static constexpr std::size_t kLargestWaitingRow = 64 * 1024;
  static constexpr std::size_t kCellHead = 4;

  [[noreturn]] void fail(const sqlite::Error& error, automation::TextView source);
  void settle(Addition& addition);
  void settleNamedIn(automation::TextView sql, bool changes);

  template <typename CellAt>
  static void insert(Addition& addition, const CellAt& cellAt) {
    for (std::size_t column = 0; column < addition.columns; ++column) {
      addition.insertion.bindOrNull(static_cast<int>(column) + 1, cellAt(column));
    }
    addition.insertion.run();
    addition.begun = true;
  }

  std::unique_ptr<sqlite::Database> database_;
  std::vector<std::unique_ptr<Query>> queries_;
  std::size_t nextToDrop_ = 0;
  std::unordered_map<std::string, Addition> additions_;
  std::size_t waitingBytes_ = 0;
  std::string breakdown_;
};

// Opens a file for a connection. Fails with kUnusableFile.
std::shared_ptr<Session> openFile(automation::TextView path, automation::TextView source);

}  // namespace platform::store
