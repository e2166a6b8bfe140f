// The tables of an inventory database, in the order in which they are made and shown.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace inventory {

// A table and its columns. Every column is text that compares without regard to case.
struct Table {
  std::string_view name;
  std::vector<std::string_view> columns;
};

std::span<const Table> tables();

// The place of a table in tables(). The name is one of theirs.
std::size_t tableIndex(std::string_view name);

// The place of a column among a table's, or their number where it has none of that name.
std::size_t columnIndex(const Table& table, std::string_view column);
bool hasColumn(const Table& table, std::string_view column);

// Columns that tell what a row is about. A table without the server's name has a path that begins with
// IIS://server/.
inline constexpr std::string_view kServerColumn = "Server name";
inline constexpr std::string_view kPathColumn = "IISPath";
inline constexpr std::string_view kSiteColumn = "Identifier";
inline constexpr std::string_view kPoolColumn = "Application pool name";

// The table of what has been published, its columns that hold a number, and the one that holds a JSON object.
inline constexpr std::string_view kCollectionsTable = "Collections";
inline constexpr std::string_view kNumberColumns[] = {"File size", "Rows", "Problems", "Notes", "Seconds"};
inline constexpr std::string_view kJsonColumn = "Rows by table";

// The SQL text that makes the table where it is not there.
std::string creationSql(const Table& table);

}  // namespace inventory
