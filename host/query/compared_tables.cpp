#include "host/query/compared_tables.h"

#include <algorithm>
#include <map>
#include <utility>

#include "inventory/names.h"

namespace host {
namespace {

using inventory::ObjectKind;

// Returns the key columns of a type in `table`, given the table that lists the type's entities.
ColumnIndexes findKeyColumns(const inventory::Table& table, const inventory::Table& listTable) {
  ColumnIndexes key;
  for (const inventory::Column& column : listTable.columns) {
    if (column.role == inventory::Role::kIdentity && column.name != inventory::kServerColumn)
      key.push_back(table.find(column.name));
  }
  return key;
}

// Identities may differ in case; only the table that lists the entities compares them.
bool isCompared(const inventory::Column& column, bool isListTable,
                const std::vector<std::string>& ignoredColumns) {
  if (column.role == inventory::Role::kIdentity &&
      (!isListTable || column.name == inventory::kServerColumn || column.name == inventory::kPathColumn))
    return false;
  return std::ranges::find(ignoredColumns, inventory::folded(column.name)) == ignoredColumns.end();
}

// `listTable`: the table that lists the entities of the kind, possibly the same one.
ComparedTable makeComparedTable(std::size_t index, ObjectKind kind, std::size_t listTable,
                                const std::vector<std::string>& ignoredColumns) {
  const inventory::Table& table = inventory::tables()[index];
  ComparedTable compared;
  compared.table = &table;
  compared.index = index;
  compared.rowKind = table.isAbout(kind) ? kind : ObjectKind::kApplication;
  compared.keyColumns = findKeyColumns(table, inventory::tables()[listTable]);
  std::map<int, ColumnIndexes> groups;
  for (std::size_t at = 0; at < table.columns.size(); ++at) {
    const inventory::Column& column = table.columns[at];
    const bool isListed = column.role == inventory::Role::kListed;
    compared.hasListedColumns = compared.hasListedColumns || isListed;
    if (isCompared(column, index == listTable, ignoredColumns))
      (isListed ? groups[column.group] : compared.singleColumns).push_back(at);
  }
  for (auto& [group, columns] : groups) compared.listedGroups.push_back(std::move(columns));
  return compared;
}

}  // namespace

std::vector<EntityType> entityTypes(const std::vector<std::string>& ignoredColumns) {
  constexpr std::pair<ObjectKind, std::size_t> kLists[] = {
      {ObjectKind::kSite, inventory::table("tblFTPSiteInfo")},
      {ObjectKind::kDirectory, inventory::table("tblvirtualDirectory")},
      {ObjectKind::kPool, inventory::table("tblAppPoolInfo")},
      {ObjectKind::kExtension, inventory::table("tblWSExtension")}};
  std::vector<EntityType> types;
  for (const auto& [kind, list] : kLists) {
    EntityType& type =
        types.emplace_back(EntityType{kind, {makeComparedTable(list, kind, list, ignoredColumns)}});
    for (std::size_t at = 0; at < inventory::tables().size(); ++at) {
      const inventory::Table& table = inventory::tables()[at];
      // The applications of a pool are compared as a set.
      const bool isAbout =
          table.isAbout(kind) || (kind == ObjectKind::kPool && table.isAbout(ObjectKind::kApplication));
      if (at != list && isAbout) type.tables.push_back(makeComparedTable(at, kind, list, ignoredColumns));
    }
  }
  return types;
}

}  // namespace host
