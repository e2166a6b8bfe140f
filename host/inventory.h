// The database of an inventory, as its owner sees it: who makes its tables, clears rows and counts them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "host/gatherings.h"
#include "platform/store/database.h"

namespace host {

// A number of rows for each of tables(), in their order.
using RowCounts = std::vector<std::int64_t>;

RowCounts operator-(RowCounts left, const RowCounts& right);
RowCounts operator+(RowCounts left, const RowCounts& right);
std::int64_t total(const RowCounts& counts);

// Opens the file for a collection. Makes the file where it isn't there, and what is missing of its tables,
// all in one transaction; a file whose making failed is taken away again. Throws automation::Failure, also
// for a table that lacks a column.
platform::store::Database openInventory(const std::filesystem::path& file);

// Removes the rows of a server that a collection of the selection makes anew, in one transaction, and tells
// how many. The selection's sites and pools are spelled as the rows spell them. Throws automation::Failure.
RowCounts clearRows(platform::store::Database& database, const std::string& server,
                    const Selection& selection);

// How many rows stand for these servers. Throws automation::Failure.
RowCounts countRows(platform::store::Database& database, const std::vector<std::string>& servers);

// The sites' identifiers or the pools' names that discovery has written for a server, in the order of
// discovery. Throws automation::Failure.
std::vector<std::string> listedItems(platform::store::Database& database, const std::string& server,
                                     Side side);

}  // namespace host
