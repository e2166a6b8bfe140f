#include "platform/store/pool.h"

#include <algorithm>
#include <utility>

namespace platform::store {

using automation::Failure;
using automation::Text;
using automation::TextView;

namespace {

std::string quotedName(const char* name) {
  std::string quoted = "\"";
  for (; *name != '\0'; ++name) {
    if (*name == '"') quoted += '"';
    quoted += *name;
  }
  return quoted + '"';
}

std::string insertSqlFor(sqlite3_stmt* statement) {
  std::string table;
  std::string names;
  std::string values;
  for (int column = 0; column < sqlite3_column_count(statement); ++column) {
    const char* schemaName = sqlite3_column_database_name(statement, column);
    const char* tableName = sqlite3_column_table_name(statement, column);
    const char* columnName = sqlite3_column_origin_name(statement, column);
    if (schemaName == nullptr || tableName == nullptr || columnName == nullptr) return {};
    std::string from = quotedName(schemaName) + '.' + quotedName(tableName);
    if (column == 0) {
      table = std::move(from);
    } else if (from != table) {
      return {};
    }
    names += (column == 0 ? "" : ", ") + quotedName(columnName);
    values += column == 0 ? "?" : ", ?";
  }
  return "insert into " + table + " (" + names + ") values (" + values + ")";
}

std::shared_ptr<const Columns> describe(sqlite3_stmt* statement) {
  auto columns = std::make_shared<Columns>();
  for (int column = 0; column < sqlite3_column_count(statement); ++column) {
    const char* name = sqlite3_column_name(statement, column);
    columns->names.push_back(automation::fromUtf8(name != nullptr ? name : ""));
  }
  columns->insertSql = insertSqlFor(statement);
  return columns;
}

// A thread rarely works on more than one file, so more than a few warm ones are not worth their descriptors.
constexpr std::size_t kMostFiles = 8;

struct Entry {
  Text path;
  std::shared_ptr<SharedHandle> handle;
};

struct Pool {
  std::vector<Entry> entries;
  ~Pool();
};

thread_local Pool pool;
// Objects that outlive their thread's pool do without one.
thread_local bool poolGone = false;

Pool::~Pool() {
  poolGone = true;
}

bool isIdle(const Entry& entry) {
  return entry.handle.use_count() == 1;
}

}  // namespace

StatementPtr SharedHandle::prepareOne(TextView sql, TextView source) {
  const std::string utf8 = automation::toUtf8(sql);
  std::string_view rest;
  StatementPtr statement = prepare(utf8, rest, source);
  if (statement == nullptr) throw Failure(number::kNoCommandText, u"The SQL text is empty", Text(source));
  if (rest.find_first_not_of(" \t\r\n\f;") != std::string_view::npos) {
    throw Failure(
        number::kBadSql,
        automation::fromUtf8("Database '" + path() + "': characters found after the end of the statement"),
        Text(source));
  }
  return statement;
}

Query& SharedHandle::query(TextView sql, TextView source) {
  requireUsable(source);
  for (const auto& query : queries_) {
    if (query->sql == sql) return *query;
  }
  StatementPtr statement = prepareOne(sql, source);
  if (sqlite3_column_count(statement.get()) == 0) {
    throw Failure(number::kBadSql,
                  automation::fromUtf8("Database '" + path() + "': the statement gives no rows"),
                  Text(source));
  }
  auto columns = describe(statement.get());
  auto query = std::make_unique<Query>(Query{Text(sql), std::move(statement), std::move(columns)});
  if (queries_.size() < kMostQueries) {
    queries_.push_back(std::move(query));
    return *queries_.back();
  }
  auto& place = queries_[nextToDrop_++ % kMostQueries];
  place = std::move(query);
  return *place;
}

void SharedHandle::refreshColumns(Query& query) {
  if (sqlite3_stmt_status(query.statement.get(), SQLITE_STMTSTATUS_REPREPARE, 1) == 0) return;
  query.columns = describe(query.statement.get());
}

sqlite3_stmt* SharedHandle::insertion(const std::string& sql, TextView source) {
  requireUsable(source);
  const auto found = insertions_.find(sql);
  if (found != insertions_.end()) return found->second.get();
  std::string_view rest;
  return insertions_.emplace(sql, prepare(sql, rest, source)).first->second.get();
}

std::shared_ptr<SharedHandle> openShared(TextView path, TextView source) {
  const auto openCold = [&] {
    return std::make_shared<SharedHandle>(automation::toUtf8(path), Handle::Mode::kReadWrite, source);
  };
  if (poolGone) return openCold();

  auto& entries = pool.entries;
  const auto found =
      std::find_if(entries.begin(), entries.end(), [&](const Entry& entry) { return entry.path == path; });
  if (found != entries.end()) {
    if (identityOf(found->handle->path().c_str()) == found->handle->identity()) return found->handle;
    found->handle->abandon();
    entries.erase(found);
  }
  std::shared_ptr<SharedHandle> handle = openCold();
  if (entries.size() >= kMostFiles) {
    const auto idle = std::find_if(entries.begin(), entries.end(), isIdle);
    if (idle != entries.end()) entries.erase(idle);
  }
  entries.push_back({Text(path), handle});
  return handle;
}

void closeIdle() noexcept {
  if (!poolGone) std::erase_if(pool.entries, isIdle);
}

}  // namespace platform::store
