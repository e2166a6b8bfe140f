// An open database for the store's objects: caches prepared statements and maps errors to ADO's failures.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "automation/failure.h"
#include "automation/text.h"
#include "sqlite/database.h"
#include "sqlite/insertions.h"

namespace platform::store {

// Failure numbers of ADO, in addition to those of automation::number.
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

// The columns of a query's result.
struct Columns {
  std::vector<automation::Text> names;
  // The single table they come from, and the statement that inserts a row with a value for each; empty if
  // they are not from a single table.
  std::string table;
  std::string insertSql;
};

// A prepared query.
struct Query {
  automation::Text sql;
  sqlite::Statement statement;
  std::shared_ptr<const Columns> columns;
  bool asksForColumns = false;  // and never has rows
};

// A database with cached statements. No statement is active between two calls, so an idle session holds no
// lock. Used by one thread at a time.
class Session {
 public:
  explicit Session(std::unique_ptr<sqlite::Database> database)
      : database_(std::move(database)), insertions_(*database_) {}

  // The handle. The caller must flush insertions() before using it.
  sqlite::Database& database() { return *database_; }
  sqlite::Insertions& insertions() { return insertions_; }

  // Buffers the rows that connections add to a table. Throws sqlite::Error.
  void bufferRows(const std::string& table);

  // The query of an SQL text, which must be one statement that returns rows. Valid until the next call. Like
  // the members below, throws automation::Failure with `source` as its source.
  Query& query(automation::TextView sql, automation::TextView source);

  // Updates a query's columns if the tables have changed. Call it after the query has run.
  void refreshColumns(Query& query);

  // Inserts the buffered rows that a query may read. Call it before the query runs.
  void flushFor(const Query& query);

  // The insertion for a query's columns. Valid as long as the session.
  sqlite::Insertion& insertion(const Columns& columns, automation::TextView source);

  // Runs one statement without a result. It must not begin or end a transaction.
  void execute(automation::TextView sql, automation::TextView source);

  // Runs `work` and maps its sqlite::Error to a failure of ADO.
  template <typename Work>
  decltype(auto) attempt(automation::TextView source, Work&& work) {
    try {
      return work();
    } catch (const sqlite::Error& error) {
      fail(error, source);
    }
  }

  // The message of the first operation that failed because the database is unusable or space, memory or the
  // temporary directory is exhausted; empty if none did.
  const std::string& fatalError() const { return fatalError_; }

 private:
  // Enough for all SQL texts of a collection that do not contain a name.
  static constexpr std::size_t kMaxQueries = 32;

  [[noreturn]] void fail(const sqlite::Error& error, automation::TextView source);

  std::unique_ptr<sqlite::Database> database_;
  std::vector<std::unique_ptr<Query>> queries_;
  std::size_t nextToDrop_ = 0;
  sqlite::Insertions insertions_;
  std::string fatalError_;
};

// Opens a file for a connection. Throws Failure kUnusableFile.
std::shared_ptr<Session> openFile(automation::TextView path, automation::TextView source);

}  // namespace platform::store
