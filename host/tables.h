// The tables of an inventory database, in the order in which they are made and shown.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace host {

// A table and its columns. Every column is text that compares without regard to case.
struct Table {
  std::string_view name;
  std::vector<std::string_view> columns;
};

std::span<const Table> tables();

// The place of a table in tables(). The name is one of theirs.
std::size_t tableIndex(std::string_view name);

// A name in an SQL text.
std::string quotedName(std::string_view name);

// The SQL text that makes the table where it is not there.
std::string creationSql(const Table& table);

}  // namespace host
