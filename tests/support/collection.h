// The layer behind the component, and the rows of a database after a collection.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "inventory/catalog/catalog.h"
#include "sqlite/database.h"

namespace test {

// Registers the layer behind the component and the component itself. Once per process.
void registerEverything();

// Makes all tables that the component writes to.
void createTables(sqlite::Database& database);

// The collected columns of all rows, in an order that doesn't depend on the collection's, as
// "table: value|value", with "-" for null. Of an inventory those of current collections. Of a file in one
// transaction; none where it doesn't exist or has no table.
std::vector<std::string> everyRow(sqlite::Database& database);
std::vector<std::string> everyRow(const std::filesystem::path& database);

// Those of one table that meet a condition.
std::vector<std::string> rowsWhere(sqlite::Database& database, const inventory::Table& table,
                                   const std::string& condition);

// Those of one server.
std::vector<std::string> rowsOf(const std::string& server, const std::vector<std::string>& rows);

}  // namespace test
