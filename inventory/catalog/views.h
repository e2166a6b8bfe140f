// Views over an inventory's tables, for tools that make reports: plain names and types, ids to join by, and
// null for unknown values and for what was not collected.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "inventory/driver.h"

namespace inventory {

// A column of a view with its description for the dictionary.
struct ViewColumn {
  std::string name;
  Type type = Type::kText;
  std::string meaning;
  std::string_view properties;
  bool isBookkeeping = false;  // an id or a property of the inventory itself
};

struct View {
  std::string name;
  std::string_view meaning;
  std::vector<ViewColumn> columns;
  std::string select;
};

// All views, in the order of their dependencies. `selected` is the SQL of a relation with the columns
// collection_id and server: the collections that they show.
std::vector<View> views(const Dialect& dialect, const std::string& selected);

// The stored view that selects the collections that the other views show, and its query.
inline constexpr std::string_view kSelectedView = "selected";
std::string selectCurrent();

// Prefixes a query with the views as common table expressions over `selected`.
std::string withViews(const Dialect& dialect, const std::string& selected, const std::string& sql);

// A table that a view shows, and the kind of object that those of its rows are about.
struct ViewSource {
  const Table* table = nullptr;
  ObjectKind kind = ObjectKind::kNone;
};

// The source tables of a view's column, or of the whole view if `column` is empty. None for views of
// bookkeeping and for columns that every object has.
std::vector<ViewSource> sourcesOf(std::string_view view, std::string_view column);

// A query for the objects of another query `sql`, which has the columns object_id, holds and `columns`.
// Returns the rows whose `holds` is not false, with kObjectsColumns and then `columns`.
std::string objectsQuery(const std::string& sql, const std::vector<std::string>& columns);
enum ObjectsColumn : std::size_t {
  kObjectId,
  kObjectHolds,
  kObjectKind,
  kObjectKey,
  kParentKey,
  kSiteName,
  kObjectLine,
  kObjectsColumns
};

}  // namespace inventory
