// What of an inventory's cells isn't known: where a problem says that something couldn't be read, the row
// holds what the failed step left there.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "inventory/inventory.h"

namespace inventory {

// The number of a problem with a text that has fewer pieces than it should have. What the missing ones stand
// for is empty.
constexpr std::string_view kTooFewPieces = "0x9";

// Which columns a property stands in, table by table; an empty table stands for every one that has them.
struct MadeOf {
  std::string_view property;
  std::string_view table;
  std::initializer_list<std::string_view> columns;
};
std::span<const MadeOf> madeOf();

// The columns of a table that a property stands in; for another property, or none, all of them but those that
// say what the row is about.
std::vector<std::string_view> columnsOf(const Table& table, std::string_view property);

// The cells of a row that aren't known.
struct NotKnownCells {
  std::uint32_t columns = 0;          // a bit for each column, by its place in the table
  std::vector<std::string> messages;  // of the problems that say so

  bool has(std::size_t column) const { return (columns >> column & 1U) != 0; }
};

// The problems of some servers, by the rows that they are about. A problem with a property concerns the
// columns that the property stands in, any other the whole row; one without an item every row of the server
// in its table. Notes, and problems that no table suffers from, concern no row.
class NotKnown {
 public:
  // The value in a column of a row, by the column's place in its table; nothing where none was written.
  using CellOf = std::function<Cell(std::size_t)>;

  // A row of the table "Problems".
  void add(std::span<const Cell> problem);

  // Of a row of the table that stands at this place in tables().
  NotKnownCells of(std::size_t table, const CellOf& cell) const;

  // Why a site or pool may have no row in a table; empty where nothing is known of a reason.
  std::vector<std::string> whyMissing(std::string_view server, std::string_view table,
                                      std::string_view item) const;

  bool empty() const { return problems_.empty(); }

 private:
  struct Entry {
    ItemKind kind = ItemKind::kNone;
    std::string node;
    std::string property;
    std::string number;
    std::string message;
  };

  const std::vector<Entry>* find(std::string_view server, std::string_view table,
                                 std::string_view item) const;

  std::unordered_map<std::string, std::vector<Entry>> problems_;  // by server, table and item
};

// The problems of these servers; of all where none is named.
NotKnown readNotKnown(Snapshot& snapshot, const std::vector<std::string>& servers);

}  // namespace inventory
