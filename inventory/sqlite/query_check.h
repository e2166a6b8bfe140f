// Checks queries over an inventory's views before they run on any database.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace inventory {

struct QueryError {
  std::size_t position = 0;  // in the text; its length if unknown
  std::string message;       // the database's
};

// Checks a query in an empty inventory in memory: it must be one SELECT, read views and no tables, and use no
// functions but those that both kinds of database have and that only compute. Returns the error, if any.
// `sql` may have parameters.
std::optional<QueryError> checkQuery(const std::string& sql);

}  // namespace inventory
