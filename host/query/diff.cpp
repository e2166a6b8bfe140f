#include "host/query/diff.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/console/color.h"
#include "host/console/listing.h"
#include "host/console/suggestion.h"
#include "host/console/terminal_text.h"
#include "host/console/text.h"
#include "host/query/retry.h"
#include "host/query/servers.h"
#include "host/usage_error.h"
#include "inventory/names.h"
#include "os/spool.h"
#include "os/terminal.h"

namespace host {
namespace {

using inventory::Cell;
using inventory::CollectionInfo;
using inventory::DataRow;
using inventory::ObjectInfo;
using inventory::ObjectKind;
using inventory::ServerData;
using Strings = std::vector<std::string>;
using Rows = std::vector<DataRow>;
using Columns = std::vector<std::size_t>;

// A table as it is compared for one type of entity.
struct ComparedTable {
  const inventory::Table* table = nullptr;
  std::size_t place = 0;
  ObjectKind rowKind = ObjectKind::kNone;
  Columns key;                   // in the order of the type's key
  Columns single;                // that an entity has once
  std::vector<Columns> several;  // those of one group are compared together
  bool hasListed = false;
};

// A kind of objects that are compared, and the tables about them. The first table lists them.
struct EntityType {
  ObjectKind kind;
  std::vector<ComparedTable> tables;
};

ComparedTable comparedTable(std::size_t place, ObjectKind kind, const ComparedTable* list,
                            const Strings& ignored) {
  ComparedTable compared;
  const inventory::Table& table = inventory::tables()[place];
  compared.table = &table;
  compared.place = place;
  compared.rowKind = table.isAbout(kind) ? kind : ObjectKind::kApplication;
  const inventory::Table& listTable = list == nullptr ? table : *list->table;
  for (const inventory::Column& column : listTable.columns) {
    if (column.role == inventory::Role::kIdentity && column.name != inventory::kServerColumn)
      compared.key.push_back(table.find(column.name));
  }
  std::map<int, Columns> groups;
  for (std::size_t at = 0; at < table.columns.size(); ++at) {
    const inventory::Column& column = table.columns[at];
    const bool isListed = column.role == inventory::Role::kListed;
    compared.hasListed = compared.hasListed || isListed;
    // Identities may differ in case; they are compared in the table that lists the entities.
    const bool isCompared =
        column.role != inventory::Role::kIdentity ||
        (list == nullptr && column.name != inventory::kServerColumn && column.name != inventory::kPathColumn);
    if (!isCompared || std::ranges::find(ignored, inventory::folded(column.name)) != ignored.end()) continue;
    (isListed ? groups[column.group] : compared.single).push_back(at);
  }
  for (auto& [group, columns] : groups) compared.several.push_back(std::move(columns));
  return compared;
}

// `ignored`: folded names of columns.
std::vector<EntityType> entityTypes(const Strings& ignored) {
  constexpr std::pair<ObjectKind, std::size_t> kLists[] = {
      {ObjectKind::kSite, inventory::table("tblFTPSiteInfo")},
      {ObjectKind::kDirectory, inventory::table("tblvirtualDirectory")},
      {ObjectKind::kPool, inventory::table("tblAppPoolInfo")},
      {ObjectKind::kExtension, inventory::table("tblWSExtension")}};
  std::vector<EntityType> types;
  for (const auto& [kind, list] : kLists) {
    EntityType& type = types.emplace_back(EntityType{kind, {comparedTable(list, kind, nullptr, ignored)}});
    for (std::size_t at = 0; at < inventory::tables().size(); ++at) {
      const inventory::Table& table = inventory::tables()[at];
      // A pool's applications are compared as a set.
      const bool isAbout =
          table.isAbout(kind) || (kind == ObjectKind::kPool && table.isAbout(ObjectKind::kApplication));
      if (at == list || !isAbout) continue;
      const ComparedTable compared = comparedTable(at, kind, &type.tables.front(), ignored);
      type.tables.push_back(compared);
    }
  }
  return types;
}

enum class Outcome { kDifferent, kOnlyOld, kOnlyNew, kNotKnown };

constexpr const char* kNotCollected = "not collected";

constexpr std::string_view kWords[] = {"different", "only in old", "only in new", "not known"};

struct Difference {
  std::string server;
  std::string_view kind;
  std::string name;
  std::string_view table;
  std::string column;
  Value old;
  Value other;
  Outcome outcome = Outcome::kDifferent;
};

// Columns of the spooled rows.
enum Field : std::size_t { kServer, kKind, kName, kTable, kColumn, kOld, kNew, kOutcome, kFieldCount };

// Servers that were not compared, as a sentence.
std::string skippedText(const DiffOptions& options, std::int64_t skipped) {
  return pluralize(skipped, "server has", "servers have") + " " +
         (options.since.empty() ? "only one collection" : "no collection of that time");
}

// The results of a comparison.
struct Differences {
  os::Spool rows;
  bool hasDifference = false;
  std::int64_t skipped = 0;  // servers without an earlier collection

  void add(const Difference& difference) {
    hasDifference = hasDifference || difference.outcome != Outcome::kNotKnown;
    rows.add(std::array<Cell, kFieldCount>{
        difference.server, difference.kind, difference.name, difference.table, difference.column,
        difference.old, difference.other, kWords[static_cast<std::size_t>(difference.outcome)]});
  }
};

// A value without the server's name at its beginning, in which servers that are alike differ.
std::string stripServerName(std::string_view value, std::string_view server) {
  for (const std::string_view start : {"IIS://", "\\\\", ""}) {
    const std::size_t size = start.size() + server.size();
    if (value.size() <= size || !value.starts_with(start) ||
        !inventory::sameName(value.substr(start.size(), server.size()), server))
      continue;
    const char next = value[size];
    if (next == '\\' || (next == '/' && !start.empty()))
      return std::string(start) + "." + std::string(value.substr(size));
  }
  // The accounts that a server creates for itself.
  for (const std::string_view start : {"IUSR_", "IWAM_"}) {
    if (inventory::sameName(value, std::string(start) + std::string(server))) return std::string(start) + ".";
  }
  return std::string(value);
}

// One server in one database.
class Side {
 public:
  explicit Side(const ServerData& data) : data_(data) {
    for (const ObjectInfo& object : data.objects()) {
      if (object.kind == ObjectKind::kSite || object.kind == ObjectKind::kPool)
        items_.try_emplace(itemKey(object.kind, object.key), object.id);
    }
  }

  const ServerData& data() const { return data_; }

  // Identifies the entity that a row is about; empty for a row about another kind.
  std::string keyOf(const ComparedTable& table, const DataRow& row) const {
    std::string key;
    for (const std::size_t column : table.key) {
      const std::string_view value = row.cell(column).value_or("");
      if (value.empty()) return {};
      key += inventory::folded(normal(value)) + '\n';
    }
    return key;
  }

  // Whether the collection looked at rows of a table: of one item, or of any.
  bool isCollected(const ComparedTable& table, std::string_view item) const {
    return data_.info().coverage.includes(table.table->name, table.rowKind, item);
  }
  bool hasFailed(const ComparedTable& table, std::string_view item) const {
    const auto found = items_.find(itemKey(inventory::itemKindOf(table.rowKind), item));
    return data_.hasReasons(table.table->name, found == items_.end() ? 0 : found->second);
  }
  // Whether rows that are missing may exist.
  bool isUnknown(const ComparedTable& table, std::string_view item) const {
    return !isCollected(table, item) || hasFailed(table, item);
  }

  std::string normal(std::string_view value) const { return stripServerName(value, data_.server()); }

 private:
  static std::string itemKey(ObjectKind kind, std::string_view item) {
    return std::string(inventory::wordFor(kind)) + '\n' + inventory::folded(item);
  }

  const ServerData& data_;
  std::unordered_map<std::string, std::int64_t> items_;
};

// What is compared: a site, a directory, a pool or an extension.
struct Entity {
  std::string name;                       // as it is shown
  std::string item;                       // the site or pool that it belongs to
  std::array<std::vector<Rows>, 2> rows;  // of both sides, by table
  std::array<bool, 2> isThere{};
};

class Comparison {
 public:
  Comparison(const ServerData& old, const ServerData& other, const std::vector<EntityType>& types,
             Differences& differences)
      : old_(old), new_(other), types_(types), differences_(differences) {}

  void run() {
    for (const EntityType& type : types_) compare(type);
  }

 private:
  void compare(const EntityType& type) {
    type_ = &type;
    // A table that only one side's collection looked at is reported once.
    std::vector<const ComparedTable*> tables;
    for (const ComparedTable& table : type.tables) {
      const bool inOld = old_.isCollected(table, {}), inNew = new_.isCollected(table, {});
      if (inOld && inNew) tables.push_back(&table);
      if (inOld == inNew) continue;
      Difference difference = differenceOf({}, &table, "");
      (inOld ? difference.other : difference.old) = kNotCollected;
      difference.outcome = Outcome::kNotKnown;
      differences_.add(difference);
    }
    for (const Entity& entity : entities(tables)) {
      if (!entity.isThere[0] || !entity.isThere[1]) {
        const Side& without = entity.isThere[0] ? new_ : old_;
        const bool isUnknown = without.isUnknown(*tables.front(), entity.item);
        add(differenceOf(entity, nullptr, ""), isUnknown           ? Outcome::kNotKnown
                                               : entity.isThere[0] ? Outcome::kOnlyOld
                                                                   : Outcome::kOnlyNew);
      } else {
        for (std::size_t at = 0; at < tables.size(); ++at)
          compareRows(entity, *tables[at], entity.rows[0][at], entity.rows[1][at]);
      }
      for (const Difference& difference : found_) differences_.add(difference);
      found_.clear();
    }
  }

  std::vector<Entity> entities(const std::vector<const ComparedTable*>& tables) const {
    std::vector<Entity> all;
    std::unordered_map<std::string, std::size_t> places;
    for (const std::size_t which : {0U, 1U}) {
      const Side& side = which == 0 ? old_ : new_;
      for (std::size_t at = 0; at < tables.size(); ++at) {
        for (std::size_t number = 0; number < side.data().rowCount(tables[at]->place); ++number) {
          const DataRow row = side.data().row(tables[at]->place, number);
          const std::string key = side.keyOf(*tables[at], row);
          if (key.empty()) continue;
          const auto [place, isNew] = places.try_emplace(key, all.size());
          if (isNew) all.push_back(described(side, row, tables.size()));
          Entity& entity = all[place->second];
          entity.isThere[which] = true;
          entity.rows[which][at].push_back(row);
        }
      }
    }
    return all;
  }

  Entity described(const Side& side, const DataRow& row, std::size_t tables) const {
    const auto value = [&](std::string_view column) {
      const std::size_t at = row.table().find(column);
      return at < row.table().columns.size() ? row.text(at) : std::string();
    };
    Entity entity;
    for (std::vector<Rows>& rows : entity.rows) rows.resize(tables);
    const ObjectKind itemKind = inventory::itemKindOf(type_->kind);
    entity.item = itemKind == ObjectKind::kSite   ? value(inventory::kSiteColumn)
                  : itemKind == ObjectKind::kPool ? value(inventory::kPoolColumn)
                                                  : "";
    if (type_->kind == ObjectKind::kDirectory) {
      const std::string path = side.normal(value(inventory::kPathColumn));
      constexpr std::string_view kStart = "IIS://.";
      entity.name = (path.starts_with(kStart) ? path.substr(kStart.size()) : path) + "/" +
                    value(inventory::kDirectoryColumn);
    } else {
      const ComparedTable& list = type_->tables.front();
      entity.name = value(list.table->columns[list.key.front()].name);
      const std::string title = value(inventory::kSiteNameColumn) + value("Description");
      if (!title.empty()) entity.name += " (" + title + ")";
    }
    return entity;
  }

  Difference differenceOf(const Entity& entity, const ComparedTable* table, std::string column) const {
    return {old_.data().server(),
            inventory::wordFor(type_->kind),
            entity.name,
            table == nullptr ? std::string_view() : table->table->name,
            std::move(column),
            {},
            {}};
  }

  void add(Difference difference, Outcome outcome) {
    difference.outcome = outcome;
    found_.push_back(std::move(difference));
  }

  void compareRows(const Entity& entity, const ComparedTable& table, const Rows& before, const Rows& after) {
    if (before.empty() && after.empty()) {
      // Both are alike if it is known that there is nothing.
      if (old_.hasFailed(table, entity.item) || new_.hasFailed(table, entity.item) ||
          old_.isCollected(table, entity.item) != new_.isCollected(table, entity.item))
        add(differenceOf(entity, &table, ""), Outcome::kNotKnown);
      return;
    }
    if (before.empty() || after.empty()) {
      const bool isUnknown = (before.empty() ? old_ : new_).isUnknown(table, entity.item);
      // A pool that serves nothing has no applications.
      if (isUnknown || table.rowKind != ObjectKind::kApplication) {
        add(differenceOf(entity, &table, ""), isUnknown        ? Outcome::kNotKnown
                                              : before.empty() ? Outcome::kOnlyNew
                                                               : Outcome::kOnlyOld);
        return;
      }
    }
    // Rows of one entity that differ in what an entity has once are about two of the same name.
    if (!isOne(before, table) || !isOne(after, table)) {
      Columns all = table.single;
      for (const Columns& columns : table.several) all.insert(all.end(), columns.begin(), columns.end());
      std::ranges::sort(all);
      compareSets(entity, table, all, before, after);
      return;
    }
    const std::size_t earlier = found_.size();
    for (const std::size_t at : table.single) compareCells(entity, table, at, before, after);
    for (const Columns& columns : table.several) compareSets(entity, table, columns, before, after);
    // A row of which nothing is known is reported once.
    const std::size_t all = table.single.size() + table.several.size();
    if (all > 1 && found_.size() == earlier + all &&
        std::all_of(found_.end() - static_cast<std::ptrdiff_t>(all), found_.end(),
                    [](const Difference& each) { return each.outcome == Outcome::kNotKnown; })) {
      found_.resize(earlier);
      add(differenceOf(entity, &table, ""), Outcome::kNotKnown);
    }
  }

  static bool isOne(const Rows& rows, const ComparedTable& table) {
    if (rows.size() < 2) return true;
    return table.hasListed && std::ranges::all_of(rows, [&](const DataRow& row) {
             return std::ranges::all_of(
                 table.single, [&](std::size_t at) { return row.cell(at) == rows.front().cell(at); });
           });
  }

  static bool isNotKnown(const Rows& rows, std::size_t column) {
    return std::ranges::any_of(rows, [&](const DataRow& row) { return row.isUnknown(column); });
  }

  void compareCells(const Entity& entity, const ComparedTable& table, std::size_t at, const Rows& before,
                    const Rows& after) {
    if (before.empty() || after.empty()) return;
    const Cell one = before.front().cell(at), two = after.front().cell(at);
    const bool oldUnknown = isNotKnown(before, at), newUnknown = isNotKnown(after, at);
    const bool isSame = one == two || (one && two && old_.normal(*one) == new_.normal(*two));
    if (!oldUnknown && !newUnknown && isSame) return;
    Difference difference = differenceOf(entity, &table, std::string(table.table->columns[at].name));
    difference.old = oldUnknown ? Value(kNotKnownText) : Value(one);
    difference.other = newUnknown ? Value(kNotKnownText) : Value(two);
    add(std::move(difference), oldUnknown || newUnknown ? Outcome::kNotKnown : Outcome::kDifferent);
  }

  // Reports each value that one side has more often.
  void compareSets(const Entity& entity, const ComparedTable& table, const Columns& columns,
                   const Rows& before, const Rows& after) {
    std::string title;
    for (const std::size_t at : columns)
      title += (title.empty() ? "" : ", ") + std::string(table.table->columns[at].name);
    const auto isUnknown = [&](const Rows& rows) {
      return std::ranges::any_of(columns, [&](std::size_t at) { return isNotKnown(rows, at); });
    };
    if (const bool oldUnknown = isUnknown(before), newUnknown = isUnknown(after); oldUnknown || newUnknown) {
      Difference difference = differenceOf(entity, &table, title);
      if (oldUnknown) difference.old = kNotKnownText;
      if (newUnknown) difference.other = kNotKnownText;
      add(std::move(difference), Outcome::kNotKnown);
      return;
    }
    std::array<Rows, 2> left = unmatched(columns, before, after);
    for (const std::size_t which : {0U, 1U}) {
      for (const DataRow& row : left[which]) {
        std::string text;
        for (const std::size_t at : columns)
          text.append(at == columns.front() ? "" : ", ").append(row.cell(at).value_or("-"));
        Difference difference = differenceOf(entity, &table, title);
        (which == 0 ? difference.old : difference.other) = std::move(text);
        add(std::move(difference), which == 0 ? Outcome::kOnlyOld : Outcome::kOnlyNew);
      }
    }
  }

  // The rows of each side for which the other has none with the same values in these columns.
  std::array<Rows, 2> unmatched(const Columns& columns, const Rows& before, const Rows& after) const {
    std::array<Rows, 2> left;
    for (const std::size_t which : {0U, 1U}) {
      for (const DataRow& row : which == 0 ? before : after) {
        // A row without a value is there for another column.
        if (std::ranges::any_of(columns, [&](std::size_t at) { return !row.cell(at).value_or("").empty(); }))
          left[which].push_back(row);
      }
    }
    // At first rows that are the same, then those that are but for the servers' names.
    for (const bool isExact : {true, false}) {
      if (left[0].empty() || left[1].empty()) break;
      std::map<std::vector<Value>, std::array<Rows, 2>> values;
      for (const std::size_t which : {0U, 1U}) {
        const Side& side = which == 0 ? old_ : new_;
        for (const DataRow& row : std::exchange(left[which], {})) {
          std::vector<Value> value;
          for (const std::size_t at : columns) {
            const Cell cell = row.cell(at);
            value.push_back(cell && !isExact ? Value(side.normal(*cell)) : Value(cell));
          }
          values[std::move(value)][which].push_back(row);
        }
      }
      for (const auto& [value, rows] : values) {
        const auto both = static_cast<std::ptrdiff_t>(std::min(rows[0].size(), rows[1].size()));
        for (const std::size_t which : {0U, 1U})
          left[which].insert(left[which].end(), rows[which].begin() + both, rows[which].end());
      }
    }
    return left;
  }

  const Side old_;
  const Side new_;
  const std::vector<EntityType>& types_;
  Differences& differences_;
  const EntityType* type_ = nullptr;
  std::vector<Difference> found_;  // of one entity
};

// The columns to leave out, folded.
Strings ignoredOf(const Strings& names) {
  Strings all;
  for (const inventory::Table& table : inventory::tables()) {
    for (const inventory::Column& column : table.columns) all.emplace_back(column.name);
  }
  Strings ignored;
  for (const std::string& name : names) {
    ignored.push_back(inventory::folded(name));
    if (std::ranges::none_of(all, [&](const std::string& each) { return inventory::sameName(each, name); }))
      throw UsageError("--ignore: no table has a column '" + name + "'" + didYouMean(name, all));
  }
  return ignored;
}

// Compares collections, pair by pair.
class ServerComparer {
 public:
  ServerComparer(const DiffOptions& options, inventory::Reader& old, inventory::Reader& other)
      : options_(options), types_(entityTypes(ignoredOf(options.ignored))), old_(old), new_(other) {}

  Differences run() {
    if (!options_.against.empty()) {
      const auto find = [&](const std::string& server) { return chosenServers(old_, {server}).front(); };
      compare(find(options_.server), find(options_.against));
    } else if (options_.other.empty() && options_.since.empty()) {
      compareWithEarlier();
    } else {
      merge();
    }
    comparePairs();
    return std::move(differences_);
  }

 private:
  using AllData = std::vector<std::unique_ptr<ServerData>>;

  // Rows that are read at a time: reading each pair by itself would mostly wait for a server's answers.
  static constexpr std::int64_t kMostRows = 5000;

  void compare(const CollectionInfo& before, const CollectionInfo& after) {
    before_.push_back(before);
    after_.push_back(after);
    rows_ += before.rows + after.rows;
    if (rows_ >= kMostRows) comparePairs();
  }

  void comparePairs() {
    const AllData old = read(old_, before_), other = read(new_, after_);
    for (std::size_t at = 0; at < old.size(); ++at) {
      if (old[at] != nullptr && other[at] != nullptr)
        Comparison(*old[at], *other[at], types_, differences_).run();
    }
    before_.clear();
    after_.clear();
    rows_ = 0;
  }

  // Nothing for a server that was removed meanwhile.
  static AllData read(inventory::Reader& reader, const std::vector<CollectionInfo>& collections) {
    AllData all(collections.size());
    std::size_t at = 0;
    reader.forEach(collections, [&](std::unique_ptr<ServerData> data) {
      while (collections[at].serverId != data->info().serverId) ++at;
      all[at++] = std::move(data);
    });
    return all;
  }

  // Each server's current collection with the one before.
  void compareWithEarlier() {
    const std::vector<CollectionInfo> all = old_.history(servers());
    if (all.empty()) static_cast<void>(chosenServers(old_, servers()));
    for (std::size_t at = 0; at < all.size(); ++at) {
      if (!all[at].isCurrent) continue;
      if (at > 0 && all[at - 1].serverKey == all[at].serverKey) {
        compare(all[at - 1], all[at]);
      } else {
        ++differences_.skipped;
      }
    }
  }

  // Two databases, or the states of one at two times.
  void merge() {
    const auto before = old_.collections({servers(), options_.since}),
               after = new_.collections({servers(), {}});
    if (before.empty() && after.empty() && !options_.server.empty())
      static_cast<void>(chosenServers(new_, servers()));
    const auto addMissing = [&](const CollectionInfo& server, Outcome outcome) {
      comparePairs();
      differences_.add({server.server, "server", server.server, {}, {}, {}, {}, outcome});
    };
    auto one = before.begin();
    auto two = after.begin();
    while (one != before.end() || two != after.end()) {
      if (two == after.end() || (one != before.end() && one->serverKey < two->serverKey)) {
        addMissing(*one++, Outcome::kOnlyOld);
      } else if (one == before.end() || two->serverKey < one->serverKey) {
        // Earlier collections may have been deleted.
        if (options_.since.empty()) {
          addMissing(*two, Outcome::kOnlyNew);
        } else {
          ++differences_.skipped;
        }
        ++two;
      } else {
        if (options_.since.empty() || one->id != two->id) compare(*one, *two);
        ++one;
        ++two;
      }
    }
  }

  Strings servers() const { return options_.server.empty() ? Strings() : Strings{options_.server}; }

  const DiffOptions& options_;
  const std::vector<EntityType> types_;
  inventory::Reader& old_;
  inventory::Reader& new_;
  std::vector<CollectionInfo> before_, after_;  // pairs that are yet to be compared
  std::int64_t rows_ = 0;                       // of theirs
  Differences differences_;
};

Differences differencesOf(const DiffOptions& options) {
  const auto old = inventory::openForReading(options.old, options.access);
  inventory::Reader before = old->read(reportSuccessor);
  if (options.other.empty()) return ServerComparer(options, before, before).run();
  const auto other = inventory::openForReading(options.other, options.access);
  inventory::Reader after = other->read(reportSuccessor);
  return ServerComparer(options, before, after).run();
}

// Writes a line, on a terminal in as many as it takes, coloured if it says that something is not known.
void writeLine(std::size_t indent, const std::string& text, bool isKnown, Output& output) {
  const bool onTerminal = os::isTerminal(os::kStandardOutput);
  const std::size_t room =
      onTerminal ? std::max<std::size_t>(40, os::terminalColumns(os::kStandardOutput)) : text.npos;
  std::size_t lead = indent;
  for (const std::string& line : wrapToWidth(escapeForTerminal(text), room - indent - 2)) {
    output.write(std::string(lead, ' ') +
                 (isKnown ? line : colored(line, Ink::kNotice, os::kStandardOutput)) + "\n");
    lead = indent + 2;
  }
}

// The format "table": what a difference is about once, and its differences below.
class TextPrinter {
 public:
  TextPrinter(const DiffOptions& options, Output& output)
      : options_(options),
        inOld_(options.against.empty() ? "in old" : "on " + options.server),
        inNew_(options.against.empty() ? "in new" : "on " + options.against),
        output_(output) {}

  void print(const Row& row) {
    const bool isKnown = *row[kOutcome] != wordFor(Outcome::kNotKnown);
    ++(isKnown ? differences_ : unknown_);
    if (*row[kServer] != server_) {
      output_.write(server_.empty() ? "" : "\n");
      const std::string against = options_.against.empty() ? "" : " -> " + options_.against;
      writeLine(0, *row[kServer] + against, true, output_);
      server_ = *row[kServer];
      subject_.clear();
    }
    const std::string subject =
        row[kName]->empty() ? "every " + *row[kKind] : *row[kKind] + " " + *row[kName];
    const bool isWhole = row[kTable]->empty();
    if (subject != subject_)
      writeLine(2, subject + (isWhole ? ": " + outcomeText(row) : ""), isKnown || !isWhole, output_);
    subject_ = subject;
    if (!isWhole) writeLine(4, lineOf(row), isKnown, output_);
  }

  void finish(std::int64_t skipped) {
    if (differences_ + unknown_ > 0) output_.write("\n");
    if (skipped > 0) output_.write(skippedText(options_, skipped) + "\n");
    output_.write(differences_ == 0 ? "no differences"
                                    : pluralize(differences_, "difference", "differences"));
    if (unknown_ > 0) output_.write(", " + std::to_string(unknown_) + " not known");
    output_.write("\n");
  }

 private:
  static std::string_view wordFor(Outcome outcome) { return kWords[static_cast<std::size_t>(outcome)]; }

  std::string outcomeText(const Row& row) const {
    return *row[kOutcome] == wordFor(Outcome::kNotKnown)  ? std::string(kNotKnownText)
           : *row[kOutcome] == wordFor(Outcome::kOnlyOld) ? "only " + inOld_
                                                          : "only " + inNew_;
  }

  std::string lineOf(const Row& row) const {
    const auto shown = [](const Value& value) {
      return !value ? "-" : *value == kNotKnownText ? *value : "'" + *value + "'";
    };
    const bool isKnown = *row[kOutcome] != wordFor(Outcome::kNotKnown);
    if (row[kColumn]->empty()) {
      const bool isPartial = !isKnown && (row[kOld] || row[kNew]);
      return *row[kTable] + ": " + outcomeText(row) +
             (isPartial ? std::string(", ") + kNotCollected + " " + (row[kOld] ? inOld_ : inNew_) : "");
    }
    const std::string line = *row[kTable] + ", " + *row[kColumn] + ": ";
    if (isKnown && *row[kOutcome] != wordFor(Outcome::kDifferent)) {
      return line + outcomeText(row) + ": " +
             shown(*row[kOutcome] == wordFor(Outcome::kOnlyOld) ? row[kOld] : row[kNew]);
    }
    return line + shown(row[kOld]) + " -> " + shown(row[kNew]);
  }

  const DiffOptions& options_;
  const std::string inOld_;
  const std::string inNew_;
  Output& output_;
  std::string server_;
  std::string subject_;
  std::int64_t differences_ = 0;
  std::int64_t unknown_ = 0;
};

}  // namespace

int diff(const DiffOptions& options, Output& output) {
  Differences differences = retryOnDisconnect([&] { return differencesOf(options); });
  return printed(output, differences.hasDifference ? 1 : 0, [&] {
    const auto forEachRow = [&](const std::function<void(const Row&)>& each) {
      differences.rows.forEach(kFieldCount, each);
    };
    if (options.format == Format::kTable) {
      TextPrinter printer(options, output);
      forEachRow([&](const Row& row) { printer.print(row); });
      printer.finish(differences.skipped);
      return;
    }
    if (differences.skipped > 0) printError(skippedText(options, differences.skipped));
    const Listing listing{
        {{"Server"}, {"Object"}, {"Name"}, {"Table"}, {"Column"}, {"Old"}, {"New"}, {"Result"}}, forEachRow};
    print(listing, {options.format}, output);
  });
}

}  // namespace host
