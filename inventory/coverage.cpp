#include "inventory/coverage.h"

#include <algorithm>

#include "inventory/records.h"

namespace inventory {

Coverage Coverage::read(Snapshot& snapshot, const std::vector<std::string>& servers) {
  Coverage coverage;
  const std::vector<std::string> names = snapshot.tableNames();
  const std::string table(kCollections);
  if (std::ranges::find(names, table) == names.end()) return coverage;
  const std::size_t selection = columnIndex(collectionsTable(), "Selection");
  const std::size_t current = collectionsTable().columns.size();
  const auto rows = snapshot.rowsOf(table, servers);
  while (rows->next()) {
    const Cell still = rows->cell(current);
    coverage.collections_[rows->server()].push_back(
        {std::string(rows->cell(selection).value_or("")),
         still.value_or("").empty() ? Remainder() : Remainder::fromText(*still)});
  }
  return coverage;
}

bool Coverage::hasSome(std::string_view server, std::string_view table, ItemKind kind) const {
  const auto found = collections_.find(folded(server));
  if (found == collections_.end()) return true;
  return std::ranges::any_of(found->second, [&](const Collection& collection) {
    return collection.selection.empty() || collection.rows.coversSome(table, kind);
  });
}

bool Coverage::has(std::string_view server, std::string_view table, ItemKind kind,
                   std::string_view item) const {
  const auto found = collections_.find(folded(server));
  if (found == collections_.end()) return true;
  return std::ranges::any_of(found->second, [&](const Collection& collection) {
    // Whatever part of a whole collection isn't told any more has been replaced by another's.
    return collection.rows.covers(table, kind, item) ||
           (collection.selection.empty() && !collection.rows.coversSome(table, kind));
  });
}

}  // namespace inventory
