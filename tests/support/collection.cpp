#include "tests/support/collection.h"

#include <algorithm>

#include "platform/desktop/desktop.h"
#include "platform/metabase/servers.h"
#include "platform/store/store.h"
#include "platform/wmi/wmi.h"
#include "server/portable/server.h"

namespace test {

using sqlite::Database;

void registerEverything() {
  platform::metabase::registerMoniker();
  platform::wmi::registerMoniker();
  platform::desktop::registerDesktop();
  platform::store::registerStore();
  DllRegisterServer();
}

namespace {

std::string columnsOf(const inventory::Table& table, const std::string& after) {
  std::string list;
  for (const inventory::Column& column : table.columns)
    list += (list.empty() ? "" : ", ") + sqlite::quotedName(column.name) + after;
  return list;
}

}  // namespace

void createTables(Database& database) {
  for (const inventory::Table& table : inventory::tables()) {
    database.execute("create table " + sqlite::quotedName(table.name) + " (" +
                     columnsOf(table, " text collate nocase") + ")");
  }
}

std::vector<std::string> rowsWhere(Database& database, const inventory::Table& table,
                                   const std::string& condition) {
  auto statement = database.prepare("select " + columnsOf(table, "") + " from " +
                                    sqlite::quotedName(table.name) + " where " + condition);
  std::vector<std::string> all;
  while (statement.step()) {
    std::string& row = all.emplace_back(std::string(table.name) + ": ");
    for (int column = 0; column < statement.columnCount(); ++column)
      row.append(column == 0 ? "" : "|").append(statement.text(column).value_or("-"));
  }
  std::sort(all.begin(), all.end());
  return all;
}

std::vector<std::string> readAllRows(Database& database) {
  const bool isInventory = database.value("select count(*) from sqlite_schema where name = 'servers'") == "1";
  std::vector<std::string> all;
  for (const inventory::Table& table : inventory::tables()) {
    const auto rows =
        rowsWhere(database, table,
                  isInventory ? "id / 4294967296 in (select current_collection from servers)" : "true");
    all.insert(all.end(), rows.begin(), rows.end());
  }
  std::sort(all.begin(), all.end());
  return all;
}

std::vector<std::string> readAllRows(const std::filesystem::path& path) {
  if (!std::filesystem::exists(path)) return {};
  Database database(path, Database::Mode::kReadOnly, std::chrono::hours(1));
  const sqlite::ReadTransaction transaction(database);
  const bool hasTables = database.value("select count(*) from sqlite_schema") != "0";
  return hasTables ? readAllRows(database) : std::vector<std::string>();
}

std::vector<std::string> selectServer(const std::string& server, const std::vector<std::string>& rows) {
  std::vector<std::string> own;
  std::copy_if(rows.begin(), rows.end(), std::back_inserter(own), [&](const std::string& row) {
    const std::string_view values = std::string_view(row).substr(row.find(": ") + 2);
    return values.starts_with(server + "|") || values.starts_with("IIS://" + server + "/");
  });
  return own;
}

}  // namespace test
