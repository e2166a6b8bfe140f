// A thin wrapper of SQLite: database, statement, transaction.
#pragma once

#include <sqlite3.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace sqlite {

// A path in UTF-8, for messages and SQLite, on every system.
inline std::string utf8Of(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}

// Why an operation failed.
enum class Cause {
  kUnusable,           // the file: missing, not a database, read-only, damaged, or an I/O error
  kLocked,             // locked by another process for longer than the wait
  kResourceExhausted,  // no space, memory or temporary directory
  kNoTable,            // the SQL text names a missing table
  kBadSql,             // the SQL text is invalid
  kConstraint,         // a row violates a constraint
  kOther,
};

// A failed operation. what() is one line of UTF-8 that names the database.
class Error : public std::runtime_error {
 public:
  Error(Cause cause, const std::string& message) : std::runtime_error(message), cause_(cause) {}
  Cause cause() const noexcept { return cause_; }

 private:
  Cause cause_;
};

class Database;

// A prepared SQL statement. Text is UTF-8. Parameters are numbered from 1, columns from 0, as in SQLite. Must
// not outlive its database. Members throw Error.
class Statement {
 public:
  Statement() = default;

  // A bound text must stay valid until the statement has run. reset() keeps bound values.
  void bind(int parameter, std::string_view utf8) {
    const char* const data = utf8.data() != nullptr ? utf8.data() : "";
    check(sqlite3_bind_text64(statement_.get(), parameter, data, utf8.size(), SQLITE_STATIC, SQLITE_UTF8));
  }
  void bind(int parameter, std::int64_t value) {
    check(sqlite3_bind_int64(statement_.get(), parameter, value));
  }
  void bind(int parameter, double value) { check(sqlite3_bind_double(statement_.get(), parameter, value)); }
  void bindNull(int parameter) { check(sqlite3_bind_null(statement_.get(), parameter)); }
  void bindOrNull(int parameter, const std::optional<std::string_view>& utf8) {
    utf8 ? bind(parameter, *utf8) : bindNull(parameter);
  }

  // Steps to the next row. Returns false after the last row. The statement is then reset, as after a failure.
  bool step();

  // Runs to the end and discards rows.
  void run() {
    while (step()) {
    }
  }

  // Ends the run and releases its read lock.
  void reset() noexcept { sqlite3_reset(statement_.get()); }

  int columnCount() const { return sqlite3_column_count(statement_.get()); }
  std::string columnName(int column) const;
  // The value as text, valid until the next step; nullopt for null.
  std::optional<std::string_view> text(int column) const {
    const auto* data = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
    if (data == nullptr) return std::nullopt;
    return std::string_view(data, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column)));
  }
  // The value as an integer, 0 if it is not numeric.
  std::int64_t number(int column) const { return sqlite3_column_int64(statement_.get(), column); }

  // Whether there is a statement: an SQL text may consist of blanks and comments.
  explicit operator bool() const { return statement_ != nullptr; }

  sqlite3_stmt* raw() const { return statement_.get(); }

 private:
  friend class Database;
  struct Finalizer {
    void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
  };

  void check(int result) const {
    if (result != SQLITE_OK) fail(result);
  }
  [[noreturn]] void fail(int result) const;

  const Database* database_ = nullptr;
  std::unique_ptr<sqlite3_stmt, Finalizer> statement_;
};

// An open database. Used by one thread at a time and not across fork(). Not movable, because statements and
// the busy handler refer to it. Members throw Error.
class Database {
 public:
  enum class Mode {
    kReadOnly,
    kReadWrite,  // does not create the file
    kCreate,     // creates the file if it does not exist; its directory must exist
  };

  // Opens a file and rolls back an interrupted write. Throws Error, with a message per case, if the file is
  // missing, a directory, not a database, read-only (unless kReadOnly), or locked by another process for
  // longer than `wait`.
  Database(const std::filesystem::path& file, Mode mode, std::chrono::milliseconds wait);

  // Opens a private database in memory, which uses an unnamed file in the temporary directory if it grows
  // beyond `cacheKibibytes`. It has no journal, lock or sync: after kResourceExhausted its content is
  // unreliable. name() returns `name`; messages call it temporary.
  Database(std::string name, int cacheKibibytes);

  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  const std::string& name() const { return name_; }

  // The prefix of messages about SQL.
  std::string title() const;

  // Runs every statement of the text and discards rows.
  void execute(std::string_view sql);

  // Prepares the only statement of the text. Throws kBadSql for none or several.
  Statement prepare(std::string_view sql);

  // The first value of the query's first row; empty if there is none.
  std::string value(std::string_view sql);

  // The number of rows changed by the last insert, update or delete.
  std::int64_t changes() const { return sqlite3_changes64(db_.get()); }

  // The size of the page cache in bytes.
  std::int64_t memoryInUse() const;

  bool inTransaction() const { return sqlite3_get_autocommit(db_.get()) == 0; }

  // Whether the file was deleted or replaced since it was opened.
  bool hasMoved() const;

  // Ends waits for locks, now and later, as soon as the flag is set. The flag must outlive the database.
  void stopWaitingWhen(const std::atomic<bool>& flag) { stop_ = &flag; }

  sqlite3* raw() const { return db_.get(); }

  // Throws Error for SQLite's result of an operation on this database.
  [[noreturn]] void fail(int result) const;

 private:
  friend class Statement;
  struct Closer {
    void operator()(sqlite3* db) const noexcept { sqlite3_close_v2(db); }
  };

  void open(const char* file, int flags);
  void requireRegularFile(const std::filesystem::path& file, Mode mode) const;
  void readSchema(bool mayRollBack);
  bool isTemporary() const;
  int systemError() const;
  Statement prepareNext(std::string_view& sql);
  [[noreturn]] void failAs(Cause cause, const std::string& why) const;

  static int onBusy(void* self, int attempt) noexcept;

  std::string name_;
  std::chrono::milliseconds wait_{0};
  std::chrono::steady_clock::time_point waitingSince_;
  const std::atomic<bool>* stop_ = nullptr;
  std::unique_ptr<sqlite3, Closer> db_;
};

// A write transaction. Acquires the write lock at once and rolls back unless commit() was called.
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

// A read transaction: all queries see one snapshot.
class ReadTransaction {
 public:
  explicit ReadTransaction(Database& database);
  ReadTransaction(const ReadTransaction&) = delete;
  ReadTransaction& operator=(const ReadTransaction&) = delete;
  ~ReadTransaction();

 private:
  Database& database_;
};

// Disables SQLite's memory statistics, which need a lock per allocation. Process-wide; must be called before
// any other function of SQLite.
void disableMemoryStats() noexcept;

// A quoted identifier for SQL.
std::string quotedName(std::string_view name);

}  // namespace sqlite
