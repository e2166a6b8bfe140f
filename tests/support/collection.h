// The layer behind the component, and what stands in a database after a collection.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "sqlite/database.h"

namespace test {

// Registers the layer behind the component and the component itself. Once per process.
void registerEverything();

// Makes all tables of an inventory.
void createTables(sqlite::Database& database);

// All rows of all tables in an order that doesn't depend on the collection's, as "table: value|value", with
// "-" for null. Of a file as it stands at one moment; none where it isn't there or has no table.
std::vector<std::string> everyRow(sqlite::Database& database);
std::vector<std::string> everyRow(const std::filesystem::path& database);

// Those of one server.
std::vector<std::string> rowsOf(const std::string& server, const std::vector<std::string>& rows);

}  // namespace test
