// Whole collections through the public surface, by programmatic id as any host makes them, and what stands in
// a database afterwards.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/store/database.h"

namespace test {

// Registers the layer behind the component and the component itself. Once per process.
void registerEverything();

// Makes a database with all tables and nothing in them.
void createDatabase(const std::filesystem::path& database);

// Collects everything of the server: all tabs of all sites and pools, all directory trees, the extensions and
// the applications of all pools. Its name must be mapped; the logs go into `logDirectory`. `finished` is
// called behind each call of the component that fills tables.
void collectEverything(const std::string& server, const std::filesystem::path& database,
                       const std::filesystem::path& logDirectory, const std::function<void()>& finished = {});

// The rows of each table in the order in which they were saved, "|" between the values and "-" for null.
std::vector<std::vector<std::string>> rowsOf(platform::store::Database& database);

// All rows of all tables in an order that doesn't depend on the collection's.
std::vector<std::string> everyRow(const std::filesystem::path& database);

}  // namespace test
