// Whole collections through the public surface, by programmatic id as any host makes them, and what stands in
// a database afterwards.
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

// Collects everything of the server: all tabs of all sites and pools, all directory trees, the extensions and
// the applications of all pools. Its name must be mapped; the database has the tables; the logs go into
// `logDirectory`.
void collectEverything(const std::string& server, const std::filesystem::path& database,
                       const std::filesystem::path& logDirectory);

// All rows of all tables in an order that doesn't depend on the collection's, as "table: value|value", with
// "-" for null. Of a file as it stands at one moment; none where it isn't there or has no table.
std::vector<std::string> everyRow(sqlite::Database& database);
std::vector<std::string> everyRow(const std::filesystem::path& database);

// Those of one server.
std::vector<std::string> rowsOf(const std::string& server, const std::vector<std::string>& rows);

}  // namespace test
