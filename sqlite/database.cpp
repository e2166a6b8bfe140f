#include "sqlite/database.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <system_error>
#include <thread>
#include <utility>

namespace sqlite {
namespace {

using std::chrono::steady_clock;

int primary(int result) {
  return result & 0xFF;
}

// SQLite's messages may quote lines of a statement.
std::string oneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, ' ');
  return text;
}

// Reads the version fields of the header ("Database File Format", 1.3.3).
bool isWriteAhead(const std::filesystem::path& file) {
  char head[20] = {};
  std::ifstream in(file, std::ios::binary);
  return in.read(head, sizeof head) && head[18] == 2 && head[19] == 2;
}

// EDQUOT is not defined on all systems.
bool isOutOfSpace(int error) {
#ifdef EDQUOT
  if (error == EDQUOT) return true;
#endif
  return error == ENOSPC || error == EFBIG;
}

bool hasStatement(std::string_view rest) {
  return rest.find_first_not_of(" \t\r\n\f;") != std::string_view::npos;
}

}  // namespace

std::string Statement::columnName(int column) const {
  const char* const name = sqlite3_column_name(statement_.get(), column);
  return name != nullptr ? name : "";
}

bool Statement::step() {
  const int result = sqlite3_step(statement_.get());
  if (result == SQLITE_ROW) return true;
  if (result != SQLITE_DONE) {
    try {
      fail(result);
    } catch (...) {
      sqlite3_reset(statement_.get());
      throw;
    }
  }
  sqlite3_reset(statement_.get());
  return false;
}

void Statement::fail(int result) const {
  database_->fail(result);
}

Database::Database(const std::filesystem::path& file, Mode mode, std::chrono::milliseconds wait)
    : name_(utf8Of(file)), wait_(wait) {
  requireRegularFile(file, mode);
  const int access = mode == Mode::kReadOnly    ? SQLITE_OPEN_READONLY
                     : mode == Mode::kReadWrite ? SQLITE_OPEN_READWRITE
                                                : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  // SQLite takes a relative name that begins with "file:" or ":" for something else.
  open(utf8Of(std::filesystem::absolute(file)).c_str(), access);
  if (mode != Mode::kReadOnly && sqlite3_db_readonly(db_.get(), "main") != 0) {
    failAs(Cause::kUnusable, "it is read-only");
  }
  // In write-ahead mode the log's index would be in shared memory beside the file, and writing to that on a
  // full disk crashes the process. In exclusive mode SQLite keeps it in its own memory.
  if (mode != Mode::kReadOnly && isWriteAhead(file)) execute("pragma locking_mode = exclusive");
  readSchema(mode == Mode::kReadOnly);
}

Database::Database(std::string name, int cacheKibibytes) : name_(std::move(name)) {
  open("", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  execute(
      "pragma journal_mode = off; pragma synchronous = off; pragma locking_mode = exclusive;"
      "pragma cache_size = -" +
      std::to_string(cacheKibibytes));
}

void Database::open(const char* file, int flags) {
  sqlite3* opened = nullptr;
  const int result = sqlite3_open_v2(file, &opened, flags | SQLITE_OPEN_NOMUTEX, nullptr);
  db_.reset(opened);
  if (result != SQLITE_OK) {
    if (primary(result) == SQLITE_NOMEM) throw std::bad_alloc();
    const int cause = opened != nullptr ? sqlite3_system_errno(opened) : 0;
    failAs(cause == ENOSPC || cause == EMFILE ? Cause::kResourceExhausted : Cause::kUnusable,
           cause != 0 ? std::strerror(cause) : sqlite3_errstr(result));
  }
  sqlite3_extended_result_codes(db_.get(), 1);
  sqlite3_busy_handler(db_.get(), &Database::onBusy, this);
}

void Database::requireRegularFile(const std::filesystem::path& file, Mode mode) const {
  if (name_.empty()) throw Error(Cause::kUnusable, "cannot open a database: its name is empty");
  if (name_.find('\0') != std::string::npos) {
    failAs(Cause::kUnusable, "its name contains a NUL character");
  }
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(file, error);
  if (std::filesystem::exists(status)) {
    if (std::filesystem::is_directory(status)) failAs(Cause::kUnusable, "it is a directory");
    if (!std::filesystem::is_regular_file(status)) failAs(Cause::kUnusable, "it is not a regular file");
    return;
  }
  if (error && error != std::errc::no_such_file_or_directory) failAs(Cause::kUnusable, error.message());
  if (mode != Mode::kCreate) failAs(Cause::kUnusable, "there is no such file");
  std::error_code ignored;
  if (!std::filesystem::is_directory(std::filesystem::absolute(file).parent_path(), ignored)) {
    failAs(Cause::kUnusable, "its directory does not exist");
  }
}

// Reads the schema, because SQLite defers all checks of the file until then.
void Database::readSchema(bool mayRollBack) {
  const int result = sqlite3_exec(db_.get(), "select count(*) from sqlite_schema", nullptr, nullptr, nullptr);
  if (result == SQLITE_OK) return;
  // A hot journal of a killed writer: only a writable handle can roll it back.
  const bool unfinished = result == SQLITE_READONLY_ROLLBACK || result == SQLITE_READONLY_RECOVERY ||
                          result == SQLITE_READONLY_CANTINIT || primary(result) == SQLITE_CANTOPEN;
  if (!mayRollBack || !unfinished) fail(result);
  sqlite3* opened = nullptr;
  const char* const file = sqlite3_db_filename(db_.get(), "main");
  sqlite3_open_v2(file, &opened, SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_READWRITE, nullptr);
  const std::unique_ptr<sqlite3, Closer> writer(opened);
  if (writer != nullptr) {
    sqlite3_exec(writer.get(), "select count(*) from sqlite_schema", nullptr, nullptr, nullptr);
  }
  readSchema(false);
}

Statement Database::prepareNext(std::string_view& sql) {
  if (sql.size() > static_cast<std::size_t>(sqlite3_limit(db_.get(), SQLITE_LIMIT_SQL_LENGTH, -1))) {
    fail(SQLITE_TOOBIG);
  }
  // SQLite would silently truncate the statement at a NUL character.
  if (sql.find('\0') != std::string_view::npos) {
    throw Error(Cause::kBadSql, title() + ": the SQL text contains a NUL character");
  }
  sqlite3_stmt* prepared = nullptr;
  const char* tail = nullptr;
  const int result =
      sqlite3_prepare_v3(db_.get(), sql.data(), static_cast<int>(sql.size()), 0, &prepared, &tail);
  if (result != SQLITE_OK) fail(result);
  sql.remove_prefix(static_cast<std::size_t>(tail - sql.data()));
  Statement statement;
  statement.database_ = this;
  statement.statement_.reset(prepared);
  return statement;
}

Statement Database::prepare(std::string_view sql) {
  Statement statement = prepareNext(sql);
  if (!statement) throw Error(Cause::kBadSql, title() + ": the SQL text is empty");
  if (hasStatement(sql)) {
    throw Error(Cause::kBadSql, title() + ": unexpected text after the end of the statement");
  }
  return statement;
}

void Database::execute(std::string_view sql) {
  while (hasStatement(sql)) {
    if (Statement statement = prepareNext(sql)) statement.run();
  }
}

std::string Database::value(std::string_view sql) {
  Statement statement = prepare(sql);
  if (!statement.step()) return {};
  return std::string(statement.text(0).value_or(""));
}

std::int64_t Database::memoryInUse() const {
  int bytes = 0;
  int ignored = 0;
  sqlite3_db_status(db_.get(), SQLITE_DBSTATUS_CACHE_USED, &bytes, &ignored, 0);
  return bytes;
}

bool Database::hasMoved() const {
  int moved = 0;
  sqlite3_file_control(db_.get(), "main", SQLITE_FCNTL_HAS_MOVED, &moved);
  return moved != 0;
}

// A publication takes milliseconds, another program's transaction longer, so the intervals grow.
int Database::onBusy(void* self, int attempt) noexcept {
  Database& database = *static_cast<Database*>(self);
  const auto now = steady_clock::now();
  if (attempt == 0) database.waitingSince_ = now;
  if (now - database.waitingSince_ >= database.wait_) return 0;
  if (database.stop_ != nullptr && *database.stop_) return 0;
  std::this_thread::sleep_for(std::chrono::microseconds(std::min(100 << std::min(attempt / 4, 6), 5000)));
  return 1;
}

void Database::fail(int result) const {
  const int code = db_ != nullptr ? sqlite3_extended_errcode(db_.get()) : result;
  const std::string message = oneLine(db_ != nullptr ? sqlite3_errmsg(db_.get()) : sqlite3_errstr(result));
  switch (primary(result)) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      failAs(Cause::kLocked, "it is locked by another process");
    case SQLITE_NOTADB:
      failAs(Cause::kUnusable, "it is not a database");
    case SQLITE_READONLY:
      if (code == SQLITE_READONLY_ROLLBACK || code == SQLITE_READONLY_RECOVERY ||
          code == SQLITE_READONLY_CANTINIT) {
        failAs(
            Cause::kUnusable,
            "an interrupted write must be rolled back (run any command as a user with write access to it and "
            "to its directory)");
      }
      failAs(Cause::kUnusable, "it is read-only");
    case SQLITE_CANTOPEN:
      if (isTemporary())
        failAs(Cause::kResourceExhausted, "cannot create its file in the temporary directory");
      failAs(Cause::kUnusable, "cannot open a file beside it (its directory may be read-only)");
    case SQLITE_FULL:
      failAs(Cause::kResourceExhausted, "no space left: " + message);
    case SQLITE_NOMEM:
      failAs(Cause::kResourceExhausted, "out of memory");
    case SQLITE_IOERR: {
      const int cause = systemError();
      const bool exhausted =
          code == SQLITE_IOERR_NOMEM || code == SQLITE_IOERR_GETTEMPPATH || isOutOfSpace(cause);
      failAs(exhausted ? Cause::kResourceExhausted : Cause::kUnusable,
             message + (cause != 0 ? std::string(": ") + std::strerror(cause) : std::string()));
    }
    case SQLITE_CORRUPT:
      failAs(Cause::kUnusable, "it is damaged: " + message);
    case SQLITE_CONSTRAINT:
      throw Error(Cause::kConstraint, title() + ": " + message);
    case SQLITE_ERROR:
      throw Error(message.starts_with("no such table") ? Cause::kNoTable : Cause::kBadSql,
                  title() + ": " + message);
    default:
      throw Error(Cause::kOther, title() + ": " + message);
  }
}

void Database::failAs(Cause cause, const std::string& why) const {
  const std::string what = isTemporary() ? "temporary database" : "database '" + oneLine(name_) + "'";
  throw Error(cause, "cannot use the " + what + ": " + why);
}

std::string Database::title() const {
  return isTemporary() ? "temporary database" : "database '" + oneLine(name_) + "'";
}

bool Database::isTemporary() const {
  const char* const file = db_ != nullptr ? sqlite3_db_filename(db_.get(), "main") : nullptr;
  return file != nullptr && *file == '\0';
}

// SQLite reports the system's error of a step, but that of a commit only for the file.
int Database::systemError() const {
  int error = sqlite3_system_errno(db_.get());
  if (error == 0) sqlite3_file_control(db_.get(), "main", SQLITE_FCNTL_LAST_ERRNO, &error);
  return error;
}

Transaction::Transaction(Database& database) : database_(database) {
  database_.execute("begin immediate");
}

Transaction::~Transaction() {
  if (open_ && database_.inTransaction()) {
    sqlite3_exec(database_.raw(), "rollback", nullptr, nullptr, nullptr);
  }
}

void Transaction::commit() {
  database_.execute("commit");
  open_ = false;
}

ReadTransaction::ReadTransaction(Database& database) : database_(database) {
  database_.execute("begin; select count(*) from sqlite_schema");
}

ReadTransaction::~ReadTransaction() {
  if (database_.inTransaction()) sqlite3_exec(database_.raw(), "rollback", nullptr, nullptr, nullptr);
}

void disableMemoryStats() noexcept {
  sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
}

std::string quotedName(std::string_view name) {
  std::string quoted = "\"";
  for (const char c : name) quoted.append(c == '"' ? 2 : 1, c);
  return quoted + '"';
}

}  // namespace sqlite
