// Adds PostgreSQL's functions to SQLite, so that a query runs on both.
#pragma once

#include "sqlite/database.h"

namespace inventory {

// Registers string_agg, bool_or, bool_and, strpos and starts_with with PostgreSQL's semantics, and
// fold(text), which converts a text to lower case, not only ASCII. Throws sqlite::Error.
void addFunctions(sqlite::Database& database);

}  // namespace inventory
