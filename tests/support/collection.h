// Registration of the platform layer, and the rows of a database after a collection.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "inventory/catalog/catalog.h"
#include "sqlite/database.h"

namespace test {

// Registers the platform layer and the component. Call once per process.
void registerEverything();

// Creates all tables that the component writes.
void createTables(sqlite::Database& database);

// The collected columns of all rows, in an order that doesn't depend on the order of collection, as "table:
// value|value", with "-" for null. Of an inventory the current collections only. Reads a file in one
// transaction; returns no rows if it does not exist or has no table.
std::vector<std::string> readAllRows(sqlite::Database& database);
std::vector<std::string> readAllRows(const std::filesystem::path& database);

// The rows of one table that meet a condition.
std::vector<std::string> rowsWhere(sqlite::Database& database, const inventory::Table& table,
                                   const std::string& condition);

std::vector<std::string> selectServer(const std::string& server, const std::vector<std::string>& rows);

}  // namespace test
