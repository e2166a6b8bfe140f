// An open database as the store's objects use it: with the statements that come again and again, and with
// failures as ADO programmers know them.
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
  // The table that all of them come from, and what adds a row with a value for each; empty where there is no
  // such table.
  std::string table;
  std::string insertSql;
};

// A query that is ready to run.
struct Query {
  automation::Text sql;
  sqlite::Statement statement;
  std::shared_ptr<const Columns> columns;
  bool asksForColumns = false;  // and for no row
};

// A database with the statements that its connections use again and again. No statement is under way between
// two calls: an idle session holds no lock. Used by one thread at a time.
class Session {
 public:
  explicit Session(std::unique_ptr<sqlite::Database> database)
      : database_(std::move(database)), insertions_(*database_) {}

  // The handle, and what adds rows. Whoever uses the handle lets them settle before.
  sqlite::Database& database() { return *database_; }
  sqlite::Insertions& insertions() { return insertions_; }

  // Lets the rows that connections add to a table wait. Throws sqlite::Error.
  void bufferRows(const std::string& table);

  // The query of a text, which must be one statement that gives rows. Valid until the next call. The members
  // down to here throw automation::Failure with `source` as its source.
  Query& query(automation::TextView sql, automation::TextView source);

  // Describes a query's columns anew where the tables have changed since. To be called once it has run.
  void refreshColumns(Query& query);

  // Takes care that a query finds the rows that it asks for. To be called before it runs.
  void flushFor(const Query& query);

  // The insertion of a query's columns. Valid as long as the session.
  sqlite::Insertion& insertion(const Columns& columns, automation::TextView source);

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
  const std::string& fatalError() const { return fatalError_; }

 private:
  // Enough for all the texts of a collection that don't hold a name.
  static constexpr std::size_t kMaxQueries = 32;

  [[noreturn]] void fail(const sqlite::Error& error, automation::TextView source);

  std::unique_ptr<sqlite::Database> database_;
  std::vector<std::unique_ptr<Query>> queries_;
  std::size_t nextToDrop_ = 0;
  sqlite::Insertions insertions_;
  std::string fatalError_;
};

// Opens a file for a connection. Fails with kUnusableFile.
std::shared_ptr<Session> openFile(automation::TextView path, automation::TextView source);

}  // namespace platform::store
