// SQLite for those who own a database file: they make tables, delete rows and show what stands in them.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3_stmt;

namespace platform::store {

class Handle;

// How long an operation waits in all for a lock that somebody else holds before it fails, for every database
// of the process. Five seconds unless set. Once a wait has run out, later operations on that file fail at
// once until one of them gets its lock.
void setLockWait(std::chrono::milliseconds wait);
std::chrono::milliseconds lockWait();

// One SQL statement. Text is UTF-8. Parameters count from 1, columns from 0, as in SQLite. Lives no longer
// than its database. All members throw automation::Failure.
class Statement {
 public:
  Statement(Statement&&) noexcept = default;
  Statement& operator=(Statement&&) noexcept = default;

  // Values stay bound over reset(). The text is copied.
  void bind(int parameter, std::string_view utf8);
  void bind(int parameter, std::int64_t value);
  void bindNull(int parameter);

  // Runs to the next row. False when there is none, and the statement is then ready to run again.
  bool step();

  int columnCount() const;
  std::string columnName(int column) const;
  // The value as text; nothing where it is null.
  std::optional<std::string> columnText(int column) const;
  // The value as a number, 0 where it is none.
  std::int64_t columnInt64(int column) const;

  // Ends the run and so the reading of the database, whatever row it stands at.
  void reset();

 private:
  friend class Database;
  struct Finalizer {
    void operator()(sqlite3_stmt* statement) const noexcept;
  };
  Statement(Handle& handle, std::string_view sql);

  Handle* handle_;
  std::unique_ptr<sqlite3_stmt, Finalizer> statement_;
};

enum class Access { kReadOnly, kReadWrite };

// An open database file. Used on one thread at a time, and not on both sides of a fork. All members throw
// automation::Failure with a number of 0x80004005 for a file that cannot be used, 0x80040E37 for a table that
// is not there and 0x80040E14 for SQL that cannot be understood.
class Database {
 public:
  // Opens a file that exists, and creates nothing. A file that is not there, a directory, a file that is no
  // database, one that may not be written (kReadWrite only) and one that somebody else keeps locked each fail
  // here, with a message of their own.
  static Database openExisting(const std::filesystem::path& path, Access access);

  // Opens a file for reading and writing, and creates it when it is not there. Its directory must exist.
  static Database create(const std::filesystem::path& path);

  Database(Database&&) noexcept;
  Database& operator=(Database&&) noexcept;
  // The last one in the process to let go of a file brings all rows into the one plain file.
  ~Database();

  // Runs every statement of the text and drops the rows they give.
  void execute(std::string_view sql);

  // Prepares the one statement of the text.
  Statement prepare(std::string_view sql);

  // How many rows the last insert, update or delete has touched.
  std::int64_t changes() const;

 private:
  friend class Transaction;
  explicit Database(std::unique_ptr<Handle> handle);

  std::unique_ptr<Handle> handle_;
};

// Several changes that are made together or not at all. Takes the write lock at once, and gives up what was
// changed unless commit() has been reached.
class Transaction {
 public:
  explicit Transaction(Database& database);
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  ~Transaction();

  void commit();

 private:
  Database& database_;
  bool open_ = true;
};

}  // namespace platform::store
