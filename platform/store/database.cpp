#include "platform/store/database.h"

#include <utility>

#include "platform/store/handle.h"

namespace platform::store {
namespace {

constexpr automation::TextView kSource = u"Database";

bool holdsStatement(std::string_view rest) {
  return rest.find_first_not_of(" \t\r\n\f;") != std::string_view::npos;
}

}  // namespace

void Statement::Finalizer::operator()(sqlite3_stmt* statement) const noexcept {
  sqlite3_finalize(statement);
}

Statement::Statement(Handle& handle, std::string_view sql) : handle_(&handle) {
  std::string_view rest;
  statement_.reset(handle.prepare(sql, rest, kSource).release());
  if (statement_ == nullptr || holdsStatement(rest)) {
    throw automation::Failure(number::kBadSql, u"Exactly one SQL statement is expected",
                              automation::Text(kSource));
  }
}

void Statement::bind(int parameter, std::string_view utf8) {
  const int result =
      sqlite3_bind_text64(statement_.get(), parameter, utf8.data() != nullptr ? utf8.data() : "", utf8.size(),
                          SQLITE_TRANSIENT, SQLITE_UTF8);
  if (result != SQLITE_OK) handle_->fail(result, kSource);
}

void Statement::bind(int parameter, std::int64_t value) {
  const int result = sqlite3_bind_int64(statement_.get(), parameter, value);
  if (result != SQLITE_OK) handle_->fail(result, kSource);
}

void Statement::bindNull(int parameter) {
  const int result = sqlite3_bind_null(statement_.get(), parameter);
  if (result != SQLITE_OK) handle_->fail(result, kSource);
}

bool Statement::step() {
  const int result = sqlite3_step(statement_.get());
  if (result == SQLITE_ROW) return true;
  sqlite3_reset(statement_.get());
  if (result != SQLITE_DONE) handle_->fail(result, kSource);
  if (sqlite3_stmt_readonly(statement_.get()) == 0) handle_->changed();
  return false;
}

int Statement::columnCount() const {
  return sqlite3_column_count(statement_.get());
}

std::string Statement::columnName(int column) const {
  const char* name = sqlite3_column_name(statement_.get(), column);
  return name != nullptr ? name : "";
}

std::optional<std::string> Statement::columnText(int column) const {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
  if (text == nullptr) return std::nullopt;
  return std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column)));
}

std::int64_t Statement::columnInt64(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

void Statement::reset() {
  sqlite3_reset(statement_.get());
}

Database Database::openExisting(const std::filesystem::path& path, Access access) {
  const auto mode = access == Access::kReadOnly ? Handle::Mode::kReadOnly : Handle::Mode::kReadWrite;
  return Database(std::make_unique<Handle>(path, mode, kSource));
}

Database Database::create(const std::filesystem::path& path) {
  return Database(std::make_unique<Handle>(path, Handle::Mode::kCreate, kSource));
}

Database::Database(std::unique_ptr<Handle> handle) : handle_(std::move(handle)) {}
Database::Database(Database&&) noexcept = default;
Database& Database::operator=(Database&&) noexcept = default;
Database::~Database() = default;

void Database::execute(std::string_view sql) {
  while (holdsStatement(sql)) {
    StatementPtr statement = handle_->prepare(sql, sql, kSource);
    if (statement == nullptr) continue;
    int result = SQLITE_ROW;
    while (result == SQLITE_ROW) result = sqlite3_step(statement.get());
    if (result != SQLITE_DONE) handle_->fail(result, kSource);
    const bool wrote = sqlite3_stmt_readonly(statement.get()) == 0;
    statement.reset();
    if (wrote) handle_->changed();
  }
}

Statement Database::prepare(std::string_view sql) {
  return Statement(*handle_, sql);
}

std::int64_t Database::changes() const {
  return sqlite3_changes64(handle_->raw());
}

Transaction::Transaction(Database& database) : database_(database) {
  database_.handle_->executeWaiting("begin immediate", kSource);
}

Transaction::~Transaction() {
  if (open_ && database_.handle_ != nullptr) {
    sqlite3_exec(database_.handle_->raw(), "rollback", nullptr, nullptr, nullptr);
  }
}

void Transaction::commit() {
  database_.handle_->executeWaiting("commit", kSource);
  open_ = false;
  database_.handle_->changed();
}

}  // namespace platform::store
