// Where the component writes the rows of one server.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "inventory/inventory.h"
#include "platform/store/private_database.h"

namespace host {

// The SQL statement that creates one of the component's tables. Its texts compare without regard to case.
std::string stagingTableSql(const inventory::Table& table);

// A private database with the tables that the component writes to, reused for one collection after another.
// Members throw sqlite::Error.
class StagingDatabase : public inventory::RowSource {
 public:
  // `name` is that of the inventory, which the component's records contain.
  explicit StagingDatabase(const std::string& name);

  platform::store::PrivateDatabase& database() { return database_; }

  std::unique_ptr<inventory::Rows> rows(const inventory::Table& table) const override;

  // The number of rows of each table.
  inventory::RowCounts rowCounts();

  // Takes the rows of a collection out of its database, or the whole database if they are too many.
  static std::unique_ptr<inventory::RowSource> takeRows(std::unique_ptr<StagingDatabase>& staging);

  // Makes a database ready for the next collection, or destroys it if a new one is better. Null is allowed.
  static void recycle(std::unique_ptr<StagingDatabase>& staging) noexcept;

 private:
  // A database that has been larger keeps its memory and its temporary file.
  static constexpr std::int64_t kMostKeptBytes = 1024 * 1024;

  // Reading a table may first write its buffered rows.
  mutable platform::store::PrivateDatabase database_;
  // By the table's place.
  mutable std::vector<sqlite::Statement> readings_;
  std::vector<sqlite::Statement> counts_;
};

}  // namespace host
