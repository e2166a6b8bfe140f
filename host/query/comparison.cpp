#include "host/query/comparison.h"

#include <algorithm>
#include <array>
#include <map>
#include <unordered_map>
#include <utility>

#include "inventory/names.h"

namespace host {
namespace {

using inventory::Cell;
using inventory::DataRow;
using inventory::ObjectInfo;
using inventory::ObjectKind;
using inventory::ServerData;
using Rows = std::vector<DataRow>;
using RowPair = std::array<Rows, 2>;  // of the old and the new server

// Replaces the server's name at the beginning of a path, or of an account that a server creates for itself,
// by ".".
std::string stripServerName(std::string_view value, std::string_view server) {
  for (const std::string_view prefix : {"IIS://", "\\\\", ""}) {
    const std::size_t size = prefix.size() + server.size();
    if (value.size() <= size || !value.starts_with(prefix) ||
        !inventory::sameName(value.substr(prefix.size(), server.size()), server))
      continue;
    const char next = value[size];
    if (next == '\\' || (next == '/' && !prefix.empty()))
      return std::string(prefix) + "." + std::string(value.substr(size));
  }
  for (const std::string_view prefix : {"IUSR_", "IWAM_"}) {
    if (inventory::sameName(value, std::string(prefix) + std::string(server)))
      return std::string(prefix) + ".";
  }
  return std::string(value);
}

// One of the two compared servers.
class ServerSide {
 public:
  explicit ServerSide(const ServerData& data) : data_(data) {
    for (const ObjectInfo& object : data.objects()) {
      if (object.kind == ObjectKind::kSite || object.kind == ObjectKind::kPool)
        itemIds_.try_emplace(itemKey(object.kind, object.key), object.id);
    }
  }

  const ServerData& data() const { return data_; }

  // Returns the key of the entity that a row is about; empty for a row about another kind.
  std::string entityKey(const ComparedTable& table, const DataRow& row) const {
    std::string key;
    for (const std::size_t column : table.keyColumns) {
      const std::string_view value = row.cell(column).value_or("");
      if (value.empty()) return {};
      key += inventory::folded(normalize(value)) + '\n';
    }
    return key;
  }

  // Whether the collection covers a table: for one site or pool, or for any if `item` is empty.
  bool isCollected(const ComparedTable& table, std::string_view item) const {
    return data_.info().coverage.includes(table.table->name, table.rowKind, item);
  }
  bool hasFailed(const ComparedTable& table, std::string_view item) const {
    const auto found = itemIds_.find(itemKey(inventory::itemKindOf(table.rowKind), item));
    return data_.hasReasons(table.table->name, found == itemIds_.end() ? 0 : found->second);
  }
  // Whether rows that are missing may exist.
  bool isUnknown(const ComparedTable& table, std::string_view item) const {
    return !isCollected(table, item) || hasFailed(table, item);
  }

  // Returns a value without the server's name, so that it compares equal to that of another server.
  std::string normalize(std::string_view value) const { return stripServerName(value, data_.server()); }

 private:
  static std::string itemKey(ObjectKind kind, std::string_view item) {
    return std::string(inventory::wordFor(kind)) + '\n' + inventory::folded(item);
  }

  const ServerData& data_;
  std::unordered_map<std::string, std::int64_t> itemIds_;
};

using Sides = std::array<ServerSide, 2>;  // old and new
using Tables = std::vector<const ComparedTable*>;

// A site, directory, pool or extension on one server or both.
struct Entity {
  std::string name;                       // as it is shown
  std::string item;                       // the site or pool that it belongs to
  std::array<std::vector<Rows>, 2> rows;  // of both sides, by table
  std::array<bool, 2> isPresent{};
};

// Returns the cell of a column as text; empty if the table lacks the column.
std::string textOf(const DataRow& row, std::string_view column) {
  const std::size_t at = row.table().find(column);
  return at < row.table().columns.size() ? row.text(at) : std::string();
}

std::string itemOf(const DataRow& row, ObjectKind kind) {
  switch (inventory::itemKindOf(kind)) {
    case ObjectKind::kSite:
      return textOf(row, inventory::kSiteColumn);
    case ObjectKind::kPool:
      return textOf(row, inventory::kPoolColumn);
    default:
      return {};
  }
}

std::string entityName(const EntityType& type, const ServerSide& side, const DataRow& row) {
  if (type.kind == ObjectKind::kDirectory) {
    const std::string path = side.normalize(textOf(row, inventory::kPathColumn));
    constexpr std::string_view kPrefix = "IIS://.";
    return (path.starts_with(kPrefix) ? path.substr(kPrefix.size()) : path) + "/" +
           textOf(row, inventory::kDirectoryColumn);
  }
  const ComparedTable& list = type.tables.front();
  const std::string title = textOf(row, inventory::kSiteNameColumn) + textOf(row, "Description");
  return textOf(row, list.table->columns[list.keyColumns.front()].name) +
         (title.empty() ? "" : " (" + title + ")");
}

// Groups the rows of both servers by the entity that they are about.
std::vector<Entity> collectEntities(const EntityType& type, const Tables& tables, const Sides& sides) {
  std::vector<Entity> entities;
  std::unordered_map<std::string, std::size_t> indexes;
  for (std::size_t which = 0; which < sides.size(); ++which) {
    const ServerSide& side = sides[which];
    for (std::size_t at = 0; at < tables.size(); ++at) {
      for (std::size_t number = 0; number < side.data().rowCount(tables[at]->index); ++number) {
        const DataRow row = side.data().row(tables[at]->index, number);
        const std::string key = side.entityKey(*tables[at], row);
        if (key.empty()) continue;
        const auto [index, isNew] = indexes.try_emplace(key, entities.size());
        if (isNew) {
          Entity& entity =
              entities.emplace_back(Entity{entityName(type, side, row), itemOf(row, type.kind), {}, {}});
          for (std::vector<Rows>& rows : entity.rows) rows.resize(tables.size());
        }
        Entity& entity = entities[index->second];
        entity.isPresent[which] = true;
        entity.rows[which][at].push_back(row);
      }
    }
  }
  return entities;
}

bool hasUnknown(const Rows& rows, std::size_t column) {
  return std::ranges::any_of(rows, [&](const DataRow& row) { return row.isUnknown(column); });
}
bool hasUnknown(const Rows& rows, const ColumnIndexes& columns) {
  return std::ranges::any_of(columns, [&](std::size_t column) { return hasUnknown(rows, column); });
}

// Whether rows are about one entity: two of the same name may differ in what an entity has once.
bool isOneEntity(const Rows& rows, const ComparedTable& table) {
  if (rows.size() < 2) return true;
  return table.hasListedColumns && std::ranges::all_of(rows, [&](const DataRow& row) {
           return std::ranges::all_of(table.singleColumns,
                                      [&](std::size_t at) { return row.cell(at) == rows.front().cell(at); });
         });
}

// Returns the rows that have a value in one of the columns. The others exist for values of other columns.
Rows rowsWithValue(const Rows& rows, const ColumnIndexes& columns) {
  Rows result;
  for (const DataRow& row : rows) {
    if (std::ranges::any_of(columns, [&](std::size_t at) { return !row.cell(at).value_or("").empty(); }))
      result.push_back(row);
  }
  return result;
}

// Removes pairs of an old and a new row that have the same values in some columns: exactly, or apart from the
// servers' names.
void removeMatches(RowPair& rows, const ColumnIndexes& columns, const Sides& sides, bool isExact) {
  if (rows[0].empty() || rows[1].empty()) return;
  std::map<std::vector<Value>, RowPair> rowsByValue;
  for (std::size_t which = 0; which < sides.size(); ++which) {
    for (const DataRow& row : std::exchange(rows[which], {})) {
      std::vector<Value> values;
      for (const std::size_t at : columns) {
        const Cell cell = row.cell(at);
        values.push_back(cell && !isExact ? Value(sides[which].normalize(*cell)) : Value(cell));
      }
      rowsByValue[std::move(values)][which].push_back(row);
    }
  }
  for (const auto& [values, same] : rowsByValue) {
    const auto matches = static_cast<std::ptrdiff_t>(std::min(same[0].size(), same[1].size()));
    for (std::size_t which = 0; which < sides.size(); ++which)
      rows[which].insert(rows[which].end(), same[which].begin() + matches, same[which].end());
  }
}

// Compares one entity.
class EntityComparison {
 public:
  EntityComparison(const Sides& sides, ObjectKind kind, const Entity& entity)
      : sides_(sides), kind_(kind), entity_(entity) {}

  // `tables`: those that both collections cover.
  std::vector<Difference> run(const Tables& tables) {
    if (entity_.isPresent[0] && entity_.isPresent[1]) {
      for (std::size_t at = 0; at < tables.size(); ++at)
        compareTable(*tables[at], {entity_.rows[0][at], entity_.rows[1][at]});
    } else {
      addOneSided(nullptr, *tables.front(), entity_.isPresent[0]);
    }
    return std::move(found_);
  }

 private:
  Difference makeDifference(const ComparedTable* table, std::string column = {}) const {
    return {sides_[0].data().server(),
            inventory::wordFor(kind_),
            entity_.name,
            table == nullptr ? std::string_view() : table->table->name,
            std::move(column),
            {},
            {}};
  }

  void add(Difference difference, Outcome outcome) {
    difference.outcome = outcome;
    found_.push_back(std::move(difference));
  }

  // Adds that one side has no rows of a table, or no entity if `reported` is null.
  void addOneSided(const ComparedTable* reported, const ComparedTable& table, bool isInOld) {
    const bool isUnknown = sides_[isInOld ? 1 : 0].isUnknown(table, entity_.item);
    add(makeDifference(reported), isUnknown ? Outcome::kNotKnown
                                  : isInOld ? Outcome::kOnlyOld
                                            : Outcome::kOnlyNew);
  }

  void compareTable(const ComparedTable& table, const RowPair& rows) {
    const std::string& item = entity_.item;
    if (rows[0].empty() && rows[1].empty()) {
      if (sides_[0].hasFailed(table, item) || sides_[1].hasFailed(table, item) ||
          sides_[0].isCollected(table, item) != sides_[1].isCollected(table, item))
        add(makeDifference(&table), Outcome::kNotKnown);
    } else if (isOneSided(table, rows)) {
      addOneSided(&table, table, rows[1].empty());
    } else if (isOneEntity(rows[0], table) && isOneEntity(rows[1], table)) {
      compareColumns(table, rows);
    } else {
      ColumnIndexes all = table.singleColumns;
      for (const ColumnIndexes& columns : table.listedGroups)
        all.insert(all.end(), columns.begin(), columns.end());
      std::ranges::sort(all);
      compareSets(table, all, rows);
    }
  }

  // A pool without applications differs from one with some in these applications, not as a whole.
  bool isOneSided(const ComparedTable& table, const RowPair& rows) const {
    if (!rows[0].empty() && !rows[1].empty()) return false;
    return table.rowKind != ObjectKind::kApplication ||
           sides_[rows[0].empty() ? 0 : 1].isUnknown(table, entity_.item);
  }

  void compareColumns(const ComparedTable& table, const RowPair& rows) {
    const std::size_t earlier = found_.size();
    for (const std::size_t column : table.singleColumns) compareCells(table, column, rows);
    for (const ColumnIndexes& columns : table.listedGroups) compareSets(table, columns, rows);
    // If no column is known, the row is reported once.
    const std::size_t all = table.singleColumns.size() + table.listedGroups.size();
    if (all > 1 && found_.size() == earlier + all &&
        std::all_of(found_.end() - static_cast<std::ptrdiff_t>(all), found_.end(),
                    [](const Difference& each) { return each.outcome == Outcome::kNotKnown; })) {
      found_.resize(earlier);
      add(makeDifference(&table), Outcome::kNotKnown);
    }
  }

  void compareCells(const ComparedTable& table, std::size_t column, const RowPair& rows) {
    if (rows[0].empty() || rows[1].empty()) return;
    const Cell oldCell = rows[0].front().cell(column), newCell = rows[1].front().cell(column);
    const bool isOldUnknown = hasUnknown(rows[0], column), isNewUnknown = hasUnknown(rows[1], column);
    const bool isSame =
        oldCell == newCell ||
        (oldCell && newCell && sides_[0].normalize(*oldCell) == sides_[1].normalize(*newCell));
    if (!isOldUnknown && !isNewUnknown && isSame) return;
    Difference difference = makeDifference(&table, std::string(table.table->columns[column].name));
    difference.oldValue = isOldUnknown ? Value(kNotKnownText) : Value(oldCell);
    difference.newValue = isNewUnknown ? Value(kNotKnownText) : Value(newCell);
    add(std::move(difference), isOldUnknown || isNewUnknown ? Outcome::kNotKnown : Outcome::kDifferent);
  }

  // Adds each value that one side has more often than the other.
  void compareSets(const ComparedTable& table, const ColumnIndexes& columns, const RowPair& rows) {
    std::string title;
    for (const std::size_t at : columns)
      title += (title.empty() ? "" : ", ") + std::string(table.table->columns[at].name);
    const bool isOldUnknown = hasUnknown(rows[0], columns), isNewUnknown = hasUnknown(rows[1], columns);
    if (isOldUnknown || isNewUnknown) {
      Difference difference = makeDifference(&table, title);
      if (isOldUnknown) difference.oldValue = kNotKnownText;
      if (isNewUnknown) difference.newValue = kNotKnownText;
      return add(std::move(difference), Outcome::kNotKnown);
    }
    RowPair unmatched{rowsWithValue(rows[0], columns), rowsWithValue(rows[1], columns)};
    for (const bool isExact : {true, false}) removeMatches(unmatched, columns, sides_, isExact);
    for (const bool isOld : {true, false}) {
      for (const DataRow& row : unmatched[isOld ? 0 : 1]) {
        std::string text;
        for (const std::size_t at : columns)
          text.append(at == columns.front() ? "" : ", ").append(row.cell(at).value_or("-"));
        Difference difference = makeDifference(&table, title);
        (isOld ? difference.oldValue : difference.newValue) = std::move(text);
        add(std::move(difference), isOld ? Outcome::kOnlyOld : Outcome::kOnlyNew);
      }
    }
  }

  const Sides& sides_;
  const ObjectKind kind_;
  const Entity& entity_;
  std::vector<Difference> found_;
};

// Returns the tables that both collections cover. Adds those that only one covers to the differences.
Tables findCommonTables(const EntityType& type, const Sides& sides, Differences& differences) {
  Tables tables;
  for (const ComparedTable& table : type.tables) {
    const bool isInOld = sides[0].isCollected(table, {}), isInNew = sides[1].isCollected(table, {});
    if (isInOld && isInNew) tables.push_back(&table);
    if (isInOld == isInNew) continue;
    Difference difference{.server = sides[0].data().server(),
                          .kind = inventory::wordFor(type.kind),
                          .name = {},
                          .table = table.table->name,
                          .column = {},
                          .oldValue = {},
                          .newValue = {},
                          .outcome = Outcome::kNotKnown};
    (isInOld ? difference.newValue : difference.oldValue) = kNotCollectedText;
    differences.add(difference);
  }
  return tables;
}

}  // namespace

std::string_view wordFor(Outcome outcome) {
  constexpr std::string_view kWords[] = {"different", "only in old", "only in new", "not known"};
  return kWords[static_cast<std::size_t>(outcome)];
}

void Differences::add(const Difference& difference) {
  hasDifference = hasDifference || difference.outcome != Outcome::kNotKnown;
  rows.add(std::array<Cell, kFieldCount>{difference.server, difference.kind, difference.name,
                                         difference.table, difference.column, difference.oldValue,
                                         difference.newValue, wordFor(difference.outcome)});
}

void compareServers(const ServerData& oldData, const ServerData& newData,
                    const std::vector<EntityType>& types, Differences& differences) {
  const Sides sides{ServerSide(oldData), ServerSide(newData)};
  for (const EntityType& type : types) {
    const Tables tables = findCommonTables(type, sides, differences);
    for (const Entity& entity : collectEntities(type, tables, sides)) {
      for (const Difference& difference : EntityComparison(sides, type.kind, entity).run(tables))
        differences.add(difference);
    }
  }
}

}  // namespace host
