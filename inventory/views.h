// Views over an inventory's tables, for tools that make reports: plain names, numbers and truth values, what
// belongs to one thing in one row. A value that isn't there or isn't what it should be is null.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace inventory {

// The words of one kind of database.
struct ViewLanguage {
  std::function<std::string(std::string_view)> table;  // a table's name in its SQL
  // Whether the tables have the columns server_id and row_order, as on PostgreSQL, or are SQLite's.
  bool isPostgres = false;
};

struct View {
  std::string name;
  std::string select;
};

// All views. The tables must be there.
std::vector<View> views(const ViewLanguage& language);

}  // namespace inventory
