// The tables and columns that a comparison of servers covers.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "inventory/server_data.h"

namespace host {

using ColumnIndexes = std::vector<std::size_t>;

// A table as it is compared for one type of entity.
struct ComparedTable {
  const inventory::Table* table = nullptr;
  std::size_t index = 0;  // in inventory::tables()
  inventory::ObjectKind rowKind = inventory::ObjectKind::kNone;
  ColumnIndexes keyColumns;                 // in the order of the type's key
  ColumnIndexes singleColumns;              // one value per entity
  std::vector<ColumnIndexes> listedGroups;  // several values per entity; a group is compared as one tuple
  bool hasListedColumns = false;            // also if all of them are ignored
};

// A kind of objects that are compared, and the tables about them. The first table lists the objects.
struct EntityType {
  inventory::ObjectKind kind;
  std::vector<ComparedTable> tables;
};

// Returns the types of compared entities: sites, directories, pools and extensions.
// `ignoredColumns`: folded names of columns to leave out.
std::vector<EntityType> entityTypes(const std::vector<std::string>& ignoredColumns);

}  // namespace host
