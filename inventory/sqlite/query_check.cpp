#include "inventory/sqlite/query_check.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "inventory/catalog/views.h"
#include "inventory/names.h"
#include "inventory/sqlite/functions.h"
#include "sqlite/database.h"

namespace inventory {
namespace {

// Functions that are the same in both kinds of database.
constexpr std::string_view kFunctions[] = {
    "abs",        "bool_and", "bool_or",     "coalesce",   "count",  "fold",   "lag",
    "lead",       "length",   "ltrim",       "max",        "min",    "nullif", "replace",
    "row_number", "rtrim",    "starts_with", "string_agg", "strpos", "substr", "sum"};

// An empty database in which a query can only read an inventory's views. They are tables in it, so that
// everything a query uses is named in its own text.
class EmptyInventory {
 public:
  EmptyInventory() : database_("", 64) {
    std::string sql;
    for (const View& view : views(Dialect(Dialect::Kind::kSqlite), std::string(kSelectedView))) {
      sql += fmt::format("create table {} ({});", quotedName(view.name),
                         joined(view.columns, [](const ViewColumn& each) { return quotedName(each.name); }));
    }
    addFunctions(database_);
    database_.execute(sql);
    sqlite3_drop_modules(database_.raw(), nullptr);
    sqlite3_db_config(database_.raw(), SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
    sqlite3_set_authorizer(database_.raw(), &EmptyInventory::authorize, this);
  }

  std::optional<QueryError> check(const std::string& sql) {
    refusal_.clear();
    sqlite3_stmt* statement = nullptr;
    const char* rest = nullptr;
    const int result =
        sqlite3_prepare_v2(database_.raw(), sql.c_str(), static_cast<int>(sql.size()), &statement, &rest);
    sqlite3_finalize(statement);
    if (result == SQLITE_OK) {
      const auto end = static_cast<std::size_t>(rest - sql.c_str());
      if (sql.find_first_not_of(" \t\r\n;", end) == std::string::npos) return std::nullopt;
      return QueryError{end, "there is more than one statement"};
    }
    const int offset = sqlite3_error_offset(database_.raw());
    return QueryError{offset < 0 ? sql.size() : static_cast<std::size_t>(offset),
                      refusal_.empty() ? sqlite3_errmsg(database_.raw()) : refusal_};
  }

 private:
  static int authorize(void* self, int action, const char* first, const char* second, const char*,
                       const char*) {
    return static_cast<EmptyInventory*>(self)->allow(action, first, second) ? SQLITE_OK : SQLITE_DENY;
  }

  bool allow(int action, const char* first, const char* second) {
    if (action == SQLITE_SELECT) return true;
    if (action == SQLITE_READ) {
      // Everything else is built into SQLite.
      const std::string name = folded(first);
      if (!name.starts_with("sqlite_") && !name.starts_with("pragma_")) return true;
      return refuse(fmt::format("no view '{}'", name));
    }
    if (action == SQLITE_FUNCTION) {
      if (std::ranges::find(kFunctions, std::string_view(second)) != std::end(kFunctions)) return true;
      return refuse(fmt::format("the function '{}' is not available", second));
    }
    if (action == SQLITE_RECURSIVE) return refuse("recursion is not available");
    return refuse("only a SELECT is allowed");
  }

  bool refuse(std::string why) noexcept {
    if (refusal_.empty()) refusal_ = std::move(why);
    return false;
  }

  sqlite::Database database_;
  std::string refusal_;
};

}  // namespace

std::optional<QueryError> checkQuery(const std::string& sql) {
  thread_local EmptyInventory inventory;
  return inventory.check(sql);
}

}  // namespace inventory
