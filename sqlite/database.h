// SQLite for whoever has a file or a private database: a handle, a statement, a transaction.
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

// A path as messages and SQLite have it: in UTF-8 on every system.
inline std::string utf8Of(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}

// Why an operation failed.
enum class Cause {
  kUnusable,           // the file as such: not there, no database, read-only, damaged, a failing disk
  kLocked,             // somebody else holds the lock, and the wait for it has run out
  kResourceExhausted,  // no space, no memory, or no place for a temporary file
  kNoTable,            // the SQL text names a table that isn't there
  kBadSql,             // the SQL text can't be understood
  kConstraint,         // a row breaks a rule of its table
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

// One SQL statement. Text is UTF-8. Parameters count from 1, columns from 0, as in SQLite. Lives no longer
// than its database. Members that fail throw Error.
class Statement {
 public:
  Statement() = default;

  // A bound text must live until the statement has run. Values stay bound over reset().
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

  // Runs to the next row. False when there is none, and the statement is then ready to run again; it is too
  // when the step fails.
  bool step();

  // Runs to the end and drops the rows.
  void run() {
    while (step()) {
    }
  }

  // Ends the run and so the reading of the database, whatever row it stands at.
  void reset() noexcept { sqlite3_reset(statement_.get()); }

  int columnCount() const { return sqlite3_column_count(statement_.get()); }
  std::string columnName(int column) const;
  // The value as text, good until the next step; nothing where it is null.
  std::optional<std::string_view> text(int column) const {
    const auto* data = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
    if (data == nullptr) return std::nullopt;
    return std::string_view(data, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column)));
  }
  // The value as a number, 0 where it is none.
  std::int64_t number(int column) const { return sqlite3_column_int64(statement_.get(), column); }

  // Whether there is a statement at all: an SQL text may be nothing but blanks and comments.
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

// An open database. Used by one thread at a time, and not on both sides of a fork. Doesn't move: statements
// and the waiting for locks refer to it. Members that fail throw Error.
class Database {
 public:
  enum class Mode {
    kReadOnly,
    kReadWrite,  // creates nothing
    kCreate,     // creates the file where it isn't there; its directory must exist
  };

  // Opens a file. A file that is not there, a directory, a file that is no database, one that may not be
  // written (unless kReadOnly) and one that somebody else keeps locked for longer than `wait` each fail here,
  // with a message of their own. A change that a killed writer has left half made is undone here too.
  Database(const std::filesystem::path& file, Mode mode, std::chrono::milliseconds wait);

  // Opens a database that nobody else sees: in memory, and in a nameless file of the temporary directory when
  // it grows beyond `cacheKibibytes`. No journal, no lock, no sync: after a failure of kind
  // kResourceExhausted what stands in it is not to be relied on. `name` stands for it in the program;
  // messages call it temporary.
  Database(std::string name, int cacheKibibytes);

  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  const std::string& name() const { return name_; }

  // What messages begin with.
  std::string title() const;

  // Runs every statement of the text and drops the rows they give.
  void execute(std::string_view sql);

  // Prepares the one statement of the text. Fails with kBadSql for none and for more than one.
  Statement prepare(std::string_view sql);

  // The first value of the first row of a text; empty where there is none.
  std::string value(std::string_view sql);

  // How many rows the last insert, update or delete has touched.
  std::int64_t changes() const { return sqlite3_changes64(db_.get()); }

  // What its pages take of memory, in bytes.
  std::int64_t memoryInUse() const;

  bool inTransaction() const { return sqlite3_get_autocommit(db_.get()) == 0; }

  // Whether the file has been removed, or another one has taken its name.
  bool hasMoved() const;

  // From now on a wait for a lock ends as soon as the flag is set. The flag must outlive the database.
  void stopWaitingWhen(const std::atomic<bool>& flag) { stop_ = &flag; }

  sqlite3* raw() const { return db_.get(); }

  // Fails for the SQLite result of an operation on this database.
  [[noreturn]] void fail(int result) const;

 private:
  friend class Statement;
  struct Closer {
    void operator()(sqlite3* db) const noexcept { sqlite3_close_v2(db); }
  };

  void open(const char* file, int flags);
  void requirePlainFile(const std::filesystem::path& file, Mode mode) const;
  void readHead(bool mayUndo);
  bool isTemporary() const;
  int systemError() const;
  Statement prepareNext(std::string_view& sql);
  [[noreturn]] void failUnusable(Cause cause, const std::string& why) const;

  static int onBusy(void* self, int attempt) noexcept;

  std::string name_;
  std::chrono::milliseconds wait_{0};
  std::chrono::steady_clock::time_point waitingSince_;
  const std::atomic<bool>* stop_ = nullptr;
  std::unique_ptr<sqlite3, Closer> db_;
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

// Reading that sees one state from its first look to its end.
class ReadTransaction {
 public:
  explicit ReadTransaction(Database& database);
  ReadTransaction(const ReadTransaction&) = delete;
  ReadTransaction& operator=(const ReadTransaction&) = delete;
  ~ReadTransaction();

 private:
  Database& database_;
};

// Has SQLite leave out the counting of its memory, which costs every allocation a lock. For a whole program,
// to be called before anything else of this library; of no effect later.
void disableMemoryStats() noexcept;

// A name in an SQL text.
std::string quotedName(std::string_view name);

}  // namespace sqlite
