// The tables of an inventory, each declared once. The database's definitions, the views, the comparison, the
// report's labels and the data dictionary derive from these declarations.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace inventory {

// What an inventory is about. kNone means the server as a whole.
enum class ObjectKind : std::uint8_t { kNone, kSite, kDirectory, kPool, kExtension, kApplication };
inline constexpr std::string_view kKindWords[] = {"",     "site",      "directory",
                                                  "pool", "extension", "application"};

// The types of columns. A time is a text such as 2026-01-31T12:00:00.000Z, in UTC.
enum class Type : std::uint8_t { kText, kInteger, kReal, kBoolean, kTime };
inline constexpr std::string_view kTypeWords[] = {"text", "integer", "real", "boolean", "time"};

// "site", "directory" and so on; empty for kNone. The other way kNone for an unknown word.
constexpr std::string_view wordFor(ObjectKind kind) {
  return kKindWords[static_cast<std::size_t>(kind)];
}
constexpr ObjectKind objectKind(std::string_view word) {
  const auto found = std::ranges::find(kKindWords, word);
  return found == std::end(kKindWords) ? ObjectKind::kNone : static_cast<ObjectKind>(found - kKindWords);
}
constexpr std::string_view wordFor(Type type) {
  return kTypeWords[static_cast<std::size_t>(type)];
}

// The items by which a collection may be restricted: a directory belongs to a site, an application to a pool.
constexpr ObjectKind itemKindOf(ObjectKind kind) {
  return kind == ObjectKind::kDirectory     ? ObjectKind::kSite
         : kind == ObjectKind::kApplication ? ObjectKind::kPool
         : kind == ObjectKind::kExtension   ? ObjectKind::kNone
                                            : kind;
}

// The path below /LM/ of a kind's nodes; an object's key follows it. Empty for a kind without nodes.
constexpr std::string_view nodeRootOf(ObjectKind kind) {
  return kind == ObjectKind::kPool               ? "W3SVC/AppPools/"
         : itemKindOf(kind) == ObjectKind::kSite ? "MSFTPSVC/"
                                                 : "";
}

// What a column is for in a comparison of two inventories.
enum class Role : std::uint8_t {
  kIdentity,     // identifies the row's object; always known
  kValue,        // one per object
  kListed,       // several per object, one per row
  kBookkeeping,  // of the inventory itself; not shown
};

struct Column {
  std::string_view table;
  std::string_view name;
  std::string_view viewName;  // in views and in `not_known`; empty if no view has it
  Role role;
  Type type;          // in its table
  Type viewType;      // in views
  int group;          // of kListed columns: those of one group are compared together
  ObjectKind onlyOf;  // in a table about two kinds: the only kind that has it; kNone for both
  // The metabase properties it is derived from, separated by spaces; "*" for none in particular, "-" if it is
  // always known.
  std::string_view properties;
  // Documented default values as stored in the table, separated by "|", and the page that documents them.
  std::string_view defaults, reference;
  std::string_view meaning;
};

struct Table {
  std::string_view name;
  std::string_view tab;  // the title of the tab that it is collected by; empty for the program's own tables
  // The kinds of objects that its rows are about, at most two; kNone for no second one.
  ObjectKind kinds[2];
  std::string_view key;    // the columns of its primary key
  std::string_view index;  // an additional indexed column; empty for none
  std::string_view meaning;
  std::span<const Column> columns;
  bool hasSeveralRows = key == "id, number";  // for an object

  // The index of a column, or the number of columns if there is none with that name.
  constexpr std::size_t find(std::string_view column) const {
    std::size_t at = 0;
    while (at < columns.size() && columns[at].name != column) ++at;
    return at;
  }
  constexpr bool has(std::string_view column) const { return find(column) < columns.size(); }
  constexpr bool isAbout(ObjectKind kind) const { return kinds[0] == kind || kinds[1] == kind; }
  // Whether the first column names the server. A table without it has a path that begins with IIS://SERVER/.
  constexpr bool hasServerColumn() const { return columns[0].name == "Server name"; }
};

// A column's indexes. Create it with column(), which does not compile for an unknown name.
struct ColumnRef {
  std::uint8_t table;
  std::uint8_t column;
};

}  // namespace inventory

#include "inventory/catalog/catalog_data.h"

namespace inventory {

// The tables of collected rows, in the order in which they are created and shown.
constexpr std::span<const Table> tables() {
  const auto end = std::ranges::find(declarations::kTables, "settings", &Table::name);
  return {std::begin(declarations::kTables), end};
}

// The inventory's own tables, in the order in which they are created; "settings" is the first. The program
// shows "Collections" and "Problems".
constexpr std::span<const Table> ownTables() {
  return std::span(declarations::kTables).subspan(tables().size());
}

// The index of a table in tables(), or their number.
constexpr std::size_t findTable(std::string_view name) {
  std::size_t at = 0;
  while (at < tables().size() && tables()[at].name != name) ++at;
  return at;
}

// The index of a table in tables(). Does not compile for an unknown name.
consteval std::size_t table(std::string_view name) {
  return findTable(name) < tables().size() ? findTable(name) : throw std::logic_error("no such table");
}
consteval ColumnRef column(std::string_view tableName, std::string_view name) {
  const Table& found = tables()[table(tableName)];
  return found.has(name) ? ColumnRef{static_cast<std::uint8_t>(table(tableName)),
                                     static_cast<std::uint8_t>(found.find(name))}
                         : throw std::logic_error("no such column");
}

consteval const Table& ownTable(std::string_view name) {
  for (const Table& own : ownTables()) {
    if (own.name == name) return own;
  }
  throw std::logic_error("no such table");
}
// The index of a column in one of ownTables().
consteval std::size_t ownColumn(std::string_view tableName, std::string_view name) {
  const Table& own = ownTable(tableName);
  return own.has(name) ? own.find(name) : throw std::logic_error("no such column");
}
constexpr const Table& collectionsTable() {
  return ownTable("Collections");
}
constexpr const Table& problemsTable() {
  return ownTable("Problems");
}

// Names of columns of several tables.
inline constexpr std::string_view kServerColumn = "Server name";
inline constexpr std::string_view kPathColumn = "IISPath";
inline constexpr std::string_view kDirectoryColumn = "Directory name";
inline constexpr std::string_view kSiteColumn = "Identifier";
inline constexpr std::string_view kSiteNameColumn = "FTP site name";
inline constexpr std::string_view kPoolColumn = "Application pool name";

// The list of the sites and that of the pools: the tables that are always collected whole.
constexpr std::string_view listTableOf(ObjectKind itemKind) {
  return itemKind == ObjectKind::kSite ? "tblFTPSiteInfo" : "tblAppPoolInfo";
}

// An entry of the data dictionary: a column of a table or view.
struct DictionaryEntry {
  std::string relation;
  bool isView = false;
  std::string_view relationMeaning;
  std::string column;
  Type type = Type::kText;
  std::string meaning;
  std::string nullMeaning;
  std::string properties;      // of the metabase
  bool isBookkeeping = false;  // of the inventory itself; not shown
};

// The data dictionary: of every view and table, in their order.
std::vector<DictionaryEntry> dictionary();

// The dictionary as a page of Markdown.
std::string dictionaryPage(std::span<const DictionaryEntry> entries);

}  // namespace inventory
