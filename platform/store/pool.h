// The database files that a thread keeps open for its connections, whether one is open at the moment or not.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "automation/text.h"
#include "platform/store/handle.h"

namespace platform::store {

// The columns of a query's rows.
struct Columns {
  std::vector<automation::Text> names;
  // Adds a row with a value for each column to the table that all of them come from; empty where there is no
  // such table.
  std::string insertSql;
};

// A query that is ready to run.
struct Query {
  automation::Text sql;
  StatementPtr statement;
  std::shared_ptr<const Columns> columns;
};

// A file's handle with the statements that its connections use again and again. No statement is under way
// between two calls: an idle file holds no lock and keeps nothing from anybody.
class SharedHandle : public Handle {
 public:
  using Handle::Handle;

  // The query of a text, which must be one statement that gives rows. Valid until the next call.
  Query& query(automation::TextView sql, automation::TextView source);

  // Describes a query's columns anew where the tables have changed since. To be called once it has run.
  void refreshColumns(Query& query);

  // The statement of an insertSql. Valid as long as the handle.
  sqlite3_stmt* insertion(const std::string& sql, automation::TextView source);

  // Prepares the one statement of a text.
  StatementPtr prepareOne(automation::TextView sql, automation::TextView source);

 private:
  // Enough for all the texts of a collection that don't hold a name.
  static constexpr std::size_t kMostQueries = 32;

  std::vector<std::unique_ptr<Query>> queries_;
  std::size_t nextToDrop_ = 0;
  std::unordered_map<std::string, StatementPtr> insertions_;
};

// The calling thread's handle on a file, opened where the thread has none. Whoever lets go of the last
// reference but the thread's own leaves it warm. Fails as Handle does.
std::shared_ptr<SharedHandle> openShared(automation::TextView path, automation::TextView source);

// Closes those of the thread's handles that nobody else refers to.
void closeIdle() noexcept;

}  // namespace platform::store
