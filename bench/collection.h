// A whole collection, as a host makes it, and the same work with bare libraries.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/collection.h"

namespace bench {

using test::registerEverything;

// Creates a database with all tables, which are empty.
void createDatabase(const std::filesystem::path& database);

// The number of rows in all tables.
std::int64_t countRows(const std::filesystem::path& database);

// The lower bound: rows in memory, written by bare libsqlite3 with one prepared insert per table in one
// transaction, after parsing the file with bare pugixml.
class BareWriter {
 public:
  // Loads the rows of all tables of a collected database into memory.
  explicit BareWriter(const std::filesystem::path& collected);

  // Parses `metabase` and writes all rows into the empty tables of `database`. Returns the number of rows.
  std::int64_t write(const std::filesystem::path& metabase, const std::filesystem::path& database) const;

 private:
  struct Rows {
    std::string insertSql;
    int columns = 0;
    std::vector<std::pair<bool, std::string>> values;  // row by row; false represents null
  };
  std::vector<Rows> tables_;
};

}  // namespace bench
