#include "platform/store/session.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <set>
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

// Where the columns of a query come from, if it is one table.
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

// The idiom that asks for a table's columns alone.
bool endsInNoRow(TextView sql) {
  constexpr TextView kNoRow = u" where 1=2";
  return sql.size() >= kNoRow.size() &&
         automation::equalsIgnoringCase(sql.substr(sql.size() - kNoRow.size()), kNoRow);
}

bool names(TextView sql, std::string_view table) {
  const auto found =
      std::search(sql.begin(), sql.end(), table.begin(), table.end(), [](char16_t left, char right) {
        return automation::toLower(left) == automation::toLower(static_cast<unsigned char>(right));
      });
  return found != sql.end();
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
    throw Failure(number::kNoCommandText, u"The SQL text is empty", Text(source));
  }
  sqlite::Statement statement = attempt(source, [&] { return database_->prepare(utf8); });
  if (statement.columnCount() == 0) {
    throw Failure(number::kBadSql,
                  automation::fromUtf8(database_->title() + ": the statement gives no rows"),
                  Text(source));
  }
  auto columns = describe(statement);
  auto query =
      std::make_unique<Query>(Query{Text(sql), std::move(statement), std::move(columns), endsInNoRow(sql)});
  if (queries_.size() < kMostQueries) {
    queries_.push_back(std::move(query));
    return *queries_.back();
  }
  auto& place = queries_[nextToDrop_++ % kMostQueries];
  place = std::move(query);
  return *place;
}

void Session::refreshColumns(Query& query) {
  if (sqlite3_stmt_status(query.statement.raw(), SQLITE_STMTSTATUS_REPREPARE, 1) == 0) return;
  query.columns = describe(query.statement);
}

void Session::settleFor(const Query& query) {
  if (!query.asksForColumns) settleNamedIn(query.sql, false);
}

// A statement names every table that it is about. A name in a value is taken for one too, which does no harm.
void Session::settleNamedIn(TextView sql, bool changes) {
  for (auto& [insertSql, addition] : additions_) {
    if (!addition.waiting || (addition.waiting->isEmpty() && !changes)) continue;
    if (!names(sql, addition.table)) continue;
    settle(addition);
    if (changes) addition.begun = true;
  }
}

Addition& Session::addition(const Columns& columns, TextView source) {
  const auto found = additions_.find(columns.insertSql);
  if (found != additions_.end()) return found->second;
  return attempt(source, [&]() -> Addition& {
    Addition made{columns.table, columns.names.size(), database_->prepare(columns.insertSql), {}, true};
    return additions_.emplace(columns.insertSql, std::move(made)).first->second;
  });
}

void Session::letRowsWait(const std::string& table) {
  const auto columns = describe(database_->prepare("select * from " + sqlite::quotedName(table)));
  Addition made{columns->table, columns->names.size(), database_->prepare(columns->insertSql),
                RowLog(columns->names.size()), false};
  additions_.insert_or_assign(columns->insertSql, std::move(made));
}

const RowLog* Session::waiting(std::string_view table) {
  for (auto& [sql, addition] : additions_) {
    if (!addition.waiting || addition.table != table) continue;
    if (!addition.begun) return &*addition.waiting;
    settle(addition);
  }
  return nullptr;
}

void Session::settle() {
  for (auto& [sql, addition] : additions_) {
    if (addition.waiting) settle(addition);
    addition.begun = true;
  }
}

void Session::settle(Addition& addition) {
  RowLog& log = *addition.waiting;
  if (log.isEmpty()) return;
  RowLog::Reader rows(log);
  while (rows.next()) insert(addition, [&](std::size_t column) { return rows.cell(column); });
  waitingBytes_ -= log.bytes();
  log.clear();
}

void Session::removeRows() {
  std::set<std::string, std::less<>> spared;
  for (auto& [sql, addition] : additions_) {
    if (!addition.waiting) continue;
    addition.waiting->clear();
    if (!addition.begun) spared.insert(addition.table);
  }
  waitingBytes_ = 0;
  std::vector<std::string> tables;
  {
    sqlite::Statement names = database_->prepare(
        "select name from sqlite_schema where type = 'table' and name not like 'sqlite_%'");
    while (names.step()) tables.emplace_back(names.text(0).value_or(""));
  }
  for (const std::string& table : tables) {
    if (!spared.contains(table)) database_->execute("delete from " + sqlite::quotedName(table));
  }
  for (auto& [sql, addition] : additions_) addition.begun = !addition.waiting;
}

// The other connections of the database would be drawn into a transaction that an SQL text begins, and one
// that it ends is somebody else's.
void Session::execute(TextView sql, TextView source) {
  const std::string utf8 = automation::toUtf8(sql);
  if (utf8.find_first_not_of(" \t\r\n\f;") == std::string::npos) {
    throw Failure(number::kNoCommandText, u"The SQL text is empty", Text(source));
  }
  attempt(source, [&] {
    settleNamedIn(sql, true);
    const bool open = database_->inTransaction();
    database_->prepare(utf8).run();
    if (database_->inTransaction() == open) return;
    database_->execute(open ? "begin" : "rollback");
    throw Failure(automation::number::kNotAllowedInContext,
                  u"A transaction can't be begun or ended by an SQL text", Text(source));
  });
}

void Session::fail(const sqlite::Error& error, TextView source) {
  const bool lasting = error.cause() == Cause::kLack || error.cause() == Cause::kUnusable;
  if (lasting && breakdown_.empty()) breakdown_ = error.what();
  failAs(error, source);
}

std::shared_ptr<Session> openFile(TextView path, TextView source) {
  try {
    auto database = std::make_unique<sqlite::Database>(automation::toUtf8(path),
                                                       sqlite::Database::Mode::kReadWrite, waitForLocks);
    // Somebody who is writing shows now, and not at the first row.
    sqlite::Transaction probe(*database);
    return std::make_shared<Session>(std::move(database));
  } catch (const sqlite::Error& error) {
    failAs(error, source);
  }
}

}  // namespace platform::store
