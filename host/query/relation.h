// The tables and views that "show" knows.
#pragma once

#include <string>
#include <vector>

#include "inventory/catalog/catalog.h"

namespace host {

struct Relation {
  std::string name;
  const inventory::Table* table = nullptr;  // null for a view

  bool isView() const { return table == nullptr; }
  bool isData() const { return table != nullptr && table->kinds[0] != inventory::ObjectKind::kNone; }
};

// All tables, "Collections" and "Problems", and then all views.
std::vector<Relation> relations();

// Returns the relations of the given names, each once. The name of a tab selects all its tables. Throws
// UsageError for an unknown name.
std::vector<Relation> findRelations(const std::vector<std::string>& names);

}  // namespace host
