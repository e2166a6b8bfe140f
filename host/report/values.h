// How the report shows values, and why there are none.
#pragma once

#include <string>

#include "host/report/columns.h"

namespace host::page {

// A value of a table's cell or a list's field.
struct Value {
  std::string text;
  bool isUnknown = false;
};

// Returns a cell's value: "not known" if it is unknown, "-" if none was stored.
Value valueOf(const DataRow& row, std::size_t column);
inline Value valueOf(const DataRow& row, ColumnRef column) {
  return valueOf(row, column.column);
}

// Explains why a table has no rows about an object: "Not collected.", "Not known: ..." with the first reason,
// or empty if there is nothing to list. An object of 0 means any.
std::string missingReason(const ServerData& server, std::size_t table, ObjectKind kind, std::int64_t object);

// Adds a word to a list of words.
void append(std::string& list, std::string_view word);

}  // namespace host::page
