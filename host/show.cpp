#include "host/show.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "automation/text.h"
#include "host/listing.h"
#include "host/tables.h"
#include "platform/store/database.h"

namespace host {
namespace {

using platform::store::Database;
using platform::store::Statement;

constexpr std::int64_t kRowsAtOnce = 500;

// The inventory's tables that the database has, in the inventory's order.
std::vector<std::string> tablesOf(Database& database) {
  Statement statement =
      database.prepare("select name from sqlite_master where type = 'table' and name = ? collate nocase");
  std::vector<std::string> names;
  for (const Table& table : tables()) {
    statement.bind(1, table.name);
    if (statement.step()) names.push_back(*statement.columnText(0));
    statement.reset();
  }
  return names;
}

Listing listTables(Database& database, const std::vector<std::string>& names) {
  Listing listing{{{"Table", false}, {"Rows", true}}, {}};
  listing.forEachRow = [&database, names](const std::function<void(const Row&)>& take) {
    for (const std::string& name : names) {
      Statement statement = database.prepare("select count(*) from " + quotedName(name));
      statement.step();
      const std::int64_t rows = statement.columnInt64(0);
      statement.reset();
      take({name, std::to_string(rows)});
    }
  };
  return listing;
}

// The rows are fetched some at a time, so that a reader who takes long over them (a pager) keeps no
// collection from writing.
Listing listRows(Database& database, const std::string& table) {
  const std::string from = " from " + quotedName(table);
  Listing listing;
  {
    Statement statement = database.prepare("select *" + from);
    for (int column = 0; column < statement.columnCount(); ++column) {
      listing.columns.push_back({statement.columnName(column), false});
    }
  }
  listing.forEachRow = [&database, from](const std::function<void(const Row&)>& take) {
    Statement statement =
        database.prepare("select rowid, *" + from + " where rowid > ? order by rowid limit ?");
    statement.bind(2, kRowsAtOnce);
    std::int64_t last = -1;
    std::vector<Row> rows;
    do {
      rows.clear();
      statement.bind(1, last);
      while (statement.step()) {
        last = statement.columnInt64(0);
        Row row;
        for (int column = 1; column < statement.columnCount(); ++column) {
          row.push_back(statement.columnText(column));
        }
        rows.push_back(std::move(row));
      }
      for (const Row& row : rows) take(row);
    } while (!rows.empty());
  };
  return listing;
}

}  // namespace

void show(const ShowOptions& options, Output& output) {
  Database database = Database::openExisting(options.database, platform::store::Access::kReadOnly);
  const std::vector<std::string> names = tablesOf(database);
  if (names.empty()) {
    throw UsageError("the database '" + options.database.string() + "' has none of an inventory's tables");
  }
  if (options.table.empty()) {
    print(listTables(database, names), options.format, output);
  } else {
    const auto found = std::find_if(names.begin(), names.end(), [&](const std::string& name) {
      return automation::equalsIgnoringCase(automation::fromUtf8(name), automation::fromUtf8(options.table));
    });
    if (found == names.end()) {
      std::string message = "there is no table '" + options.table + "'; there are:";
      for (const std::string& name : names) message += (name == names.front() ? " " : ", ") + name;
      throw UsageError(message);
    }
    print(listRows(database, *found), options.format, output);
  }
  output.flush();
}

}  // namespace host
