#include "bench/collection.h"

#include <sqlite3.h>

#include <memory>
#include <pugixml.hpp>
#include <stdexcept>

#include "inventory/catalog/catalog.h"
#include "sqlite/database.h"

namespace bench {
namespace {

struct Closer {
  void operator()(sqlite3* database) const { sqlite3_close(database); }
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Handle = std::unique_ptr<sqlite3, Closer>;
using Prepared = std::unique_ptr<sqlite3_stmt, Closer>;

void require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

Handle open(const std::filesystem::path& path) {
  sqlite3* database = nullptr;
  require(sqlite3_open(path.c_str(), &database) == SQLITE_OK, "can't open the database");
  return Handle(database);
}

Prepared prepare(const Handle& database, const std::string& sql) {
  sqlite3_stmt* statement = nullptr;
  require(sqlite3_prepare_v2(database.get(), sql.c_str(), -1, &statement, nullptr) == SQLITE_OK,
          sqlite3_errmsg(database.get()));
  return Prepared(statement);
}

std::string columnsOf(const inventory::Table& table) {
  std::string list;
  for (const inventory::Column& column : table.columns)
    list += (list.empty() ? "" : ", ") + sqlite::quotedName(column.name);
  return list;
}

}  // namespace

void createDatabase(const std::filesystem::path& database) {
  std::filesystem::remove(database);
  sqlite::Database created(database, sqlite::Database::Mode::kCreate, std::chrono::seconds(5));
  test::createTables(created);
}

std::int64_t countRows(const std::filesystem::path& database) {
  const Handle handle = open(database);
  std::int64_t rows = 0;
  for (const inventory::Table& table : inventory::tables()) {
    const Prepared statement = prepare(handle, "select count(*) from " + sqlite::quotedName(table.name));
    require(sqlite3_step(statement.get()) == SQLITE_ROW, "can't count rows");
    rows += sqlite3_column_int64(statement.get(), 0);
  }
  return rows;
}

BareWriter::BareWriter(const std::filesystem::path& collected) {
  const Handle handle = open(collected);
  for (const inventory::Table& table : inventory::tables()) {
    Rows rows;
    rows.columns = static_cast<int>(table.columns.size());
    rows.insertSql = "insert into " + sqlite::quotedName(table.name) + " values (?";
    for (int column = 1; column < rows.columns; ++column) rows.insertSql += ",?";
    rows.insertSql += ")";
    const Prepared statement =
        prepare(handle, "select " + columnsOf(table) + " from " + sqlite::quotedName(table.name));
    while (sqlite3_step(statement.get()) == SQLITE_ROW) {
      for (int column = 0; column < rows.columns; ++column) {
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), column));
        rows.values.emplace_back(text != nullptr, text != nullptr ? text : "");
      }
    }
    tables_.push_back(std::move(rows));
  }
}

std::int64_t BareWriter::write(const std::filesystem::path& metabase,
                               const std::filesystem::path& database) const {
  pugi::xml_document document;
  require(document.load_file(metabase.c_str(), pugi::parse_default & ~pugi::parse_wconv_attribute),
          "can't parse the metabase");

  const Handle handle = open(database);
  require(sqlite3_exec(handle.get(), "begin", nullptr, nullptr, nullptr) == SQLITE_OK, "can't begin");
  std::int64_t written = 0;
  for (const Rows& rows : tables_) {
    const Prepared statement = prepare(handle, rows.insertSql);
    for (std::size_t at = 0; at < rows.values.size(); at += static_cast<std::size_t>(rows.columns)) {
      for (int column = 0; column < rows.columns; ++column) {
        const auto& [present, text] = rows.values[at + static_cast<std::size_t>(column)];
        if (present) {
          sqlite3_bind_text(statement.get(), column + 1, text.data(), static_cast<int>(text.size()),
                            SQLITE_STATIC);
        } else {
          sqlite3_bind_null(statement.get(), column + 1);
        }
      }
      require(sqlite3_step(statement.get()) == SQLITE_DONE, "can't insert");
      sqlite3_reset(statement.get());
      ++written;
    }
  }
  require(sqlite3_exec(handle.get(), "commit", nullptr, nullptr, nullptr) == SQLITE_OK, "can't commit");
  return written;
}

}  // namespace bench
