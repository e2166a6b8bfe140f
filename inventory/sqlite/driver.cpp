// The driver for SQLite: one file, one writer at a time.

#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <system_error>
#include <unordered_map>
#include <utility>

#include "inventory/driver.h"
#include "inventory/names.h"
#include "inventory/sqlite/functions.h"
#include "sqlite/database.h"

namespace inventory {
namespace {

using sqlite::Database;
using sqlite::Statement;
namespace fs = std::filesystem;

// Maps sqlite::Error to the inventory's errors.
template <typename Work>
decltype(auto) attempt(const Work& work) {
  try {
    return work();
  } catch (const sqlite::Error& error) {
    if (error.cause() == sqlite::Cause::kLocked) throw Locked(error.what());
    throw Error(error.what());
  }
}

void bindAll(Statement& statement, const Parameters& parameters) {
  for (std::size_t at = 0; at < parameters.size(); ++at) {
    const std::string name = fmt::format("${}", at + 1);
    const int place = sqlite3_bind_parameter_index(statement.raw(), name.c_str());
    if (place == 0) continue;
    const Parameter& parameter = parameters[at];
    if (const auto* const text = std::get_if<std::string>(&parameter)) {
      statement.bind(place, *text);
    } else if (const auto* const integer = std::get_if<std::int64_t>(&parameter)) {
      statement.bind(place, *integer);
    } else {
      statement.bindNull(place);
    }
  }
}

// A database with its cached statements.
class Handle {
 public:
  Handle(const std::string& file, Database::Mode mode, std::chrono::milliseconds wait)
      : database_(file, mode, wait) {}

  Database& database() { return database_; }

  Statement& statement(const std::string& sql) {
    if (statements_.size() > kMaxStatements) statements_.clear();
    const auto found = statements_.find(sql);
    if (found == statements_.end()) return statements_.emplace(sql, database_.prepare(sql)).first->second;
    found->second.reset();
    return found->second;
  }

 private:
  static constexpr std::size_t kMaxStatements = 256;

  Database database_;
  std::unordered_map<std::string, Statement> statements_;
};

class SqliteCursor : public Cursor {
 public:
  SqliteCursor(Statement& statement, Parameters parameters)
      : statement_(statement), parameters_(std::move(parameters)) {
    bindAll(statement_, parameters_);
  }
  ~SqliteCursor() override { statement_.reset(); }

  bool next() override {
    return attempt([&] { return statement_.step(); });
  }
  Cell cell(std::size_t column) override { return statement_.text(static_cast<int>(column)); }
  std::size_t columnCount() const override { return static_cast<std::size_t>(statement_.columnCount()); }

 private:
  Statement& statement_;
  const Parameters parameters_;  // the statement refers to their texts
};

class SqliteInserter : public Inserter {
 public:
  explicit SqliteInserter(Statement& statement) : statement_(statement) {}

  void text(Cell value) override { statement_.bindOrNull(++at_, value); }
  void integer(std::int64_t value) override { statement_.bind(++at_, value); }
  void real(double value) override { statement_.bind(++at_, value); }
  void boolean(bool value) override { statement_.bind(++at_, std::int64_t{value}); }
  void null() override { statement_.bindNull(++at_); }
  void endRow() override {
    attempt([&] { statement_.run(); });
    at_ = 0;
  }
  void finish() override {}

 private:
  Statement& statement_;
  int at_ = 0;
};

class SqliteSession : public Session {
 public:
  SqliteSession(Handle& handle, const Dialect& dialect) : handle_(handle), dialect_(dialect) {}
  ~SqliteSession() override { sqlite3_progress_handler(handle_.database().raw(), 0, nullptr, nullptr); }

  const Dialect& dialect() const override { return dialect_; }

  void execute(const std::string& sql, const Parameters& parameters) override {
    attempt([&] {
      if (parameters.empty()) return handle_.database().execute(sql);
      Statement& statement = handle_.statement(sql);
      bindAll(statement, parameters);
      statement.run();
    });
  }

  std::unique_ptr<Cursor> query(const std::string& sql, const Parameters& parameters) override {
    deadline_ = std::chrono::steady_clock::now() + limit_;
    return attempt([&] { return std::make_unique<SqliteCursor>(handle_.statement(sql), parameters); });
  }

  void limitQueries(std::chrono::milliseconds limit) override {
    constexpr int kInstructions = 10000;         // between two checks of the deadline
    constexpr int kMaxBytes = 64 * 1024 * 1024;  // of a value, because one long operation is not interrupted
    limit_ = limit;
    sqlite3* const database = handle_.database().raw();
    sqlite3_limit(database, SQLITE_LIMIT_LENGTH, kMaxBytes);
    sqlite3_progress_handler(database, limit.count() == 0 ? 0 : kInstructions, &SqliteSession::isOverdue,
                             this);
  }

  std::unique_ptr<Inserter> insertInto(std::string_view table,
                                       std::span<const InsertColumn> columns) override {
    const std::string sql =
        fmt::format("insert into {} ({}) values ({})", quotedName(table), namesOf(columns),
                    joined(columns, [](const InsertColumn&) { return "?"; }));
    return attempt([&] { return std::make_unique<SqliteInserter>(handle_.statement(sql)); });
  }

 protected:
  Handle& handle_;

 private:
  static int isOverdue(void* self) {
    return std::chrono::steady_clock::now() > static_cast<SqliteSession*>(self)->deadline_ ? 1 : 0;
  }

  const Dialect& dialect_;
  std::chrono::milliseconds limit_{0};
  std::chrono::steady_clock::time_point deadline_;
};

class SqliteReading : public SqliteSession {
 public:
  SqliteReading(Handle& handle, const Dialect& dialect)
      : SqliteSession(handle, dialect), transaction_(handle.database()) {}

 private:
  sqlite::ReadTransaction transaction_;
};

class SqliteDriver : public Driver {
 public:
  SqliteDriver(std::string file, Access access) : file_(std::move(file)), access_(std::move(access)) {}

  void openForReading() { open(Database::Mode::kReadOnly); }

  void openForChange() {
    std::error_code error;
    if (!fs::exists(file_, error) && !error) return requireWritableDirectory("create", file_);
    open(Database::Mode::kReadWrite);
    // SQLite's journal is beside the target of a symbolic link.
    requireWritableDirectory("use", fs::canonical(file_, error));
    leaveWriteAheadMode();
  }

  std::string shownName() const override { return file_; }
  const Dialect& dialect() const override { return dialect_; }
  bool readsConcurrently() const override { return false; }

  std::unique_ptr<Session> read() override {
    if (handle_ == nullptr) openForReading();
    return attempt([&] { return std::make_unique<SqliteReading>(*handle_, dialect_); });
  }

  void checkWritable(std::span<const std::string>,
                     const std::function<void(Session&)>& checkSchema) override {
    if (handle_ == nullptr) return;
    const auto session = read();
    checkSchema(*session);
  }

  // Reopens the file if it was replaced.
  void change(const Change& change) override {
    for (int tries = 1;; ++tries) {
      const bool isNew = openOrCreate();
      try {
        if (attempt([&] { return changeOnce(change); })) return;
      } catch (...) {
        if (isNew) removeEmptyFile();
        throw;
      }
      // The file was replaced after it was opened.
      handle_.reset();
      if (hasChanged_) throw Error(cannotUse("it was moved or replaced during this run"));
      if (tries == kMaxTries) throw Error(cannotUse("it keeps being replaced"));
    }
  }

  // SQLite finds rows by key and needs no statistics.
  void analyze(std::span<const std::string>) override {}

  std::vector<std::string> checkIntegrity() override {
    const auto session = read();
    const auto rows = session->query("pragma integrity_check");
    std::vector<std::string> lines;
    try {
      while (rows->next()) {
        if (rows->cell(0) != "ok") lines.push_back(rows->text(0));
      }
    } catch (const Error&) {
      // The check ends at an unreadable page.
      if (lines.empty()) throw;
    }
    return lines;
  }

  void stopWaiting() override { stopWaiting_ = true; }

 private:
  static constexpr int kMaxTries = 5;
  // SQLite's page cache: for a change, the size before pages are written ahead of the commit; and for
  // reading.
  static constexpr int kCacheKibibytes = 16 * 1024;
  static constexpr int kReadingKibibytes = 2 * 1024;

  void open(Database::Mode mode) {
    attempt([&] {
      handle_ = std::make_unique<Handle>(file_, mode, access_.wait);
      Database& database = handle_->database();
      database.stopWaitingWhen(stopWaiting_);
      sqlite3_db_config(database.raw(), SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
      addFunctions(database);
      database.execute(
          fmt::format("pragma trusted_schema = off; pragma synchronous = full; pragma cache_size = -{}",
                      mode == Database::Mode::kReadOnly ? kReadingKibibytes : kCacheKibibytes));
    });
  }

  std::string cannotUse(std::string_view why) const {
    return fmt::format("cannot use the database '{}': {}", file_, why);
  }

  void requireWritableDirectory(const std::string& verb, const fs::path& file) const {
    const auto refuse = [&](const std::string& why) {
      throw Error(fmt::format("cannot {} the database '{}': {}", verb, file_, why));
    };
    const fs::path folder = fs::absolute(file).parent_path();
    std::error_code error;
    if (!fs::is_directory(folder, error)) refuse("its directory does not exist");
    if (::access(folder.c_str(), W_OK | X_OK) != 0)
      refuse(fmt::format("its directory is not writable: {}", std::strerror(errno)));
  }

  // Opens the file if it is not open. Returns whether it was created.
  bool openOrCreate() {
    if (handle_ != nullptr) return false;
    std::error_code error;
    const bool isThere = fs::exists(file_, error);
    open(Database::Mode::kCreate);
    return !isThere;
  }

  // Removes an empty file. Another process that has opened it detects that when it gets the lock.
  void removeEmptyFile() noexcept {
    if (handle_ == nullptr) return;
    try {
      // In-memory journal: there may be no space for a file.
      handle_->database().execute("pragma journal_mode = memory; begin exclusive");
      if (fs::file_size(file_) == 0 && !handle_->database().hasMoved()) fs::remove(file_);
    } catch (const std::exception&) {
      // Another process is using it.
    }
    handle_.reset();
  }

  void leaveWriteAheadMode() {
    attempt([&] {
      Database& database = handle_->database();
      if (database.value("pragma journal_mode") == "wal") {
        if (database.value("pragma journal_mode = delete") != "delete")
          throw Locked(cannotUse("it is locked by another process"));
        // In exclusive mode SQLite neither uses nor removes the log index of a killed process.
        std::error_code ignored;
        fs::remove(std::string(sqlite3_db_filename(database.raw(), "main")) + "-shm", ignored);
      }
      database.execute("pragma locking_mode = normal; select count(*) from sqlite_schema");
    });
  }

  // Returns false if the file was replaced.
  bool changeOnce(const Change& change) {
    Database& database = handle_->database();
    sqlite::Transaction transaction(database);
    if (database.hasMoved()) return false;
    SqliteSession session(*handle_, dialect_);
    const std::string version = database.value("pragma schema_version");
    if (version != preparedVersion_) change.prepare(session, true);
    change.work(session);
    // After the commit another process may have the lock.
    std::string prepared = database.value("pragma schema_version");
    transaction.commit();
    if (database.hasMoved())
      throw Error(fmt::format("the database '{}' was moved or replaced while it was written to", file_));
    preparedVersion_ = std::move(prepared);
    hasChanged_ = true;
    return true;
  }

  const std::string file_;
  const Access access_;
  const Dialect dialect_{Dialect::Kind::kSqlite};
  std::atomic<bool> stopWaiting_ = false;
  std::unique_ptr<Handle> handle_;
  std::string preparedVersion_;
  bool hasChanged_ = false;
};

}  // namespace

std::unique_ptr<Driver> openSqlite(const std::string& file, const Access& access, bool forChange) {
  auto driver = std::make_unique<SqliteDriver>(file, access);
  forChange ? driver->openForChange() : driver->openForReading();
  return driver;
}

}  // namespace inventory
