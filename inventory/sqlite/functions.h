// PostgreSQL's functions that SQLite lacks, so that one query runs on both.
#pragma once

#include "sqlite/database.h"

namespace inventory {

// Registers string_agg, bool_or, bool_and, strpos and starts_with as PostgreSQL has them, and
// fold(text), which gives a text in lower case, beyond ASCII too. Throws sqlite::Error.
void addFunctions(sqlite::Database& database);

}  // namespace inventory
