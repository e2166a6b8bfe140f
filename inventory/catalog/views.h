// Views over an inventory's tables, for tools that make reports: plain names and types, ids to join by, and
// null for what isn't known or wasn't collected.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "inventory/driver.h"

namespace inventory {

// A column of a view, for the dictionary: what it is made of, or a meaning of its own.
struct ViewColumn {
  std::string name;
  Type type = Type::kText;
  std::string meaning;
  std::string_view properties;
  bool isBookkeeping = false;  // an id, or what the inventory says of itself
};

struct View {
  std::string name;
  std::string_view meaning;
  std::vector<ViewColumn> columns;
  std::string select;
};

// All views, those first that others are made of. `selected` is the SQL of a relation with the columns
// collection_id and server, which says what they show.
std::vector<View> views(const Dialect& dialect, const std::string& selected);

// The name of the stored view that says what the others show, and the query that it is made of.
inline constexpr std::string_view kSelectedView = "selected";
std::string selectCurrent();

// The text of a query over views as common table expressions, which show what `selected` gives.
std::string withViews(const Dialect& dialect, const std::string& selected, const std::string& sql);

}  // namespace inventory
