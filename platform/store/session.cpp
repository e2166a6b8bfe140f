#include "platform/store/session.h"

#include <atomic>
#include <cstring>
#include <utility>

#include "platform/store/store.h"

namespace platform::store {

using automation::Failure;
using automation::Text;
using automation::TextView;
using sqlite::Cause;

namespace {

std::atomic<std::chrono::milliseconds> waitForLocks{std::chrono::milliseconds(5000)};

[[noreturn]] void failAs(const sqlite::Error& error, TextView source) {
  std::int32_t code = number::kUnusableFile;
  if (error.cause() == Cause::kNoTable) code = number::kNoSuchTable;
  if (error.cause() == Cause::kBadSql) code = number::kBadSql;
  if (error.cause() == Cause::kConstraint) code = number::kConstraint;
  throw Failure(code, automation::fromUtf8(error.what()), Text(source));
}

struct Target {
  std::string table;
  std::string insertSql;
};

// The table that all columns of a query come from; empty if there is no single one.
Target targetOf(sqlite3_stmt* statement) {
  std::string table;
  std::string name;
  std::string names;
  std::string values;
  for (int column = 0; column < sqlite3_column_count(statement); ++column) {
    const char* schemaName = sqlite3_column_database_name(statement, column);
    const char* tableName = sqlite3_column_table_name(statement, column);
    const char* columnName = sqlite3_column_origin_name(statement, column);
    if (schemaName == nullptr || tableName == nullptr || columnName == nullptr) return {};
    if (column == 0) name = tableName;
    std::string from = sqlite::quotedName(schemaName) + '.' + sqlite::quotedName(tableName);
    if (column == 0) {
      table = std::move(from);
    } else if (from != table) {
      return {};
    }
    names += (column == 0 ? "" : ", ") + sqlite::quotedName(columnName);
    values += column == 0 ? "?" : ", ?";
  }
  return {std::move(name), "insert into " + table + " (" + names + ") values (" + values + ")"};
}

// Whether a query only asks for a table's columns, by an idiom of ADO programs.
bool endsInNoRow(TextView sql) {
  constexpr TextView kNoRow = u" where 1=2";
  return sql.size() >= kNoRow.size() &&
         automation::equalsIgnoringCase(sql.substr(sql.size() - kNoRow.size()), kNoRow);
}

std::shared_ptr<const Columns> describe(const sqlite::Statement& statement) {
  auto columns = std::make_shared<Columns>();
  for (int column = 0; column < statement.columnCount(); ++column) {
    columns->names.push_back(automation::fromUtf8(statement.columnName(column)));
  }
  auto [table, insertSql] = targetOf(statement.raw());
  columns->table = std::move(table);
  columns->insertSql = std::move(insertSql);
  return columns;
}

}  // namespace

void setLockWait(std::chrono::milliseconds wait) {
  waitForLocks = wait;
}

Query& Session::query(TextView sql, TextView source) {
  for (const auto& query : queries_) {
    if (query->sql.size() == sql.size() &&
        std::memcmp(query->sql.data(), sql.data(), sql.size() * sizeof(char16_t)) == 0) {
      return *query;
    }
  }
  const std::string utf8 = automation::toUtf8(sql);
  if (utf8.find_first_not_of(" \t\r\n\f;") == std::string::npos) {
    throw Failure(number::kNoCommandText, u"the SQL text is empty", Text(source));
  }
  sqlite::Statement statement = attempt(source, [&] { return database_->prepare(utf8); });
  if (statement.columnCount() == 0) {
    throw Failure(number::kBadSql,
                  automation::fromUtf8(database_->title() + ": the statement returns no rows"), Text(source));
  }
  auto columns = describe(statement);
  auto query =
      std::make_unique<Query>(Query{Text(sql), std::move(statement), std::move(columns), endsInNoRow(sql)});
  if (queries_.size() < kMaxQueries) {
    queries_.push_back(std::move(query));
    return *queries_.back();
  }
  auto& place = queries_[nextToDrop_++ % kMaxQueries];
  place = std::move(query);
  return *place;
}

void Session::refreshColumns(Query& query) {
  if (sqlite3_stmt_status(query.statement.raw(), SQLITE_STMTSTATUS_REPREPARE, 1) == 0) return;
  query.columns = describe(query.statement);
}

void Session::flushFor(const Query& query) {
  if (!query.asksForColumns) insertions_.flushNamedIn(automation::toUtf8(query.sql), false);
}

sqlite::Insertion& Session::insertion(const Columns& columns, TextView source) {
  return attempt(source, [&]() -> sqlite::Insertion& {
    return insertions_.prepared(columns.insertSql, columns.table, columns.names.size());
  });
}

void Session::bufferRows(const std::string& table) {
  const auto columns = describe(database_->prepare("select * from " + sqlite::quotedName(table)));
  insertions_.buffer(columns->insertSql, columns->table, columns->names.size());
}

// Transaction statements are rejected, because they would affect the other connections that share the handle.
void Session::execute(TextView sql, TextView source) {
  const std::string utf8 = automation::toUtf8(sql);
  if (utf8.find_first_not_of(" \t\r\n\f;") == std::string::npos) {
    throw Failure(number::kNoCommandText, u"the SQL text is empty", Text(source));
  }
  attempt(source, [&] {
    insertions_.flushNamedIn(utf8, true);
    const bool open = database_->inTransaction();
    database_->prepare(utf8).run();
    if (database_->inTransaction() == open) return;
    database_->execute(open ? "begin" : "rollback");
    throw Failure(automation::number::kNotAllowedInContext,
                  u"cannot begin or end a transaction by an SQL text", Text(source));
  });
}

void Session::fail(const sqlite::Error& error, TextView source) {
  const bool lasting = error.cause() == Cause::kResourceExhausted || error.cause() == Cause::kUnusable;
  if (lasting && fatalError_.empty()) fatalError_ = error.what();
  failAs(error, source);
}

std::shared_ptr<Session> openFile(TextView path, TextView source) {
  try {
    const std::string utf8 = automation::toUtf8(path);
    auto database =
        std::make_unique<sqlite::Database>(std::filesystem::path(std::u8string(utf8.begin(), utf8.end())),
                                           sqlite::Database::Mode::kReadWrite, waitForLocks);
    // Reports a locked database now, not at the first row.
    sqlite::Transaction probe(*database);
    return std::make_shared<Session>(std::move(database));
  } catch (const sqlite::Error& error) {
    failAs(error, source);
  }
}

}  // namespace platform::store
