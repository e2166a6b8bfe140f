// A whole collection, as a host makes one, and the bare libraries doing the same work.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/collection.h"

namespace bench {

using test::registerEverything;

// Makes a database with all tables and nothing in them.
void createDatabase(const std::filesystem::path& database);

// How many rows stand in all tables together.
std::int64_t countRows(const std::filesystem::path& database);

// The limit: rows that stand in memory, written by bare libsqlite3 with one prepared insert for each table in
// one transaction, behind a parse of the file by bare pugixml.
class BareWriter {
 public:
  // Takes the rows of all tables of a collected database into memory.
  explicit BareWriter(const std::filesystem::path& collected);

  // Parses `metabase` and writes all rows into the empty tables of `database`. Gives the number of rows.
  std::int64_t write(const std::filesystem::path& metabase, const std::filesystem::path& database) const;

 private:
  struct Rows {
    std::string insertSql;
    int columns = 0;
    std::vector<std::pair<bool, std::string>> values;  // row by row; false stands for null
  };
  std::vector<Rows> tables_;
};

}  // namespace bench
