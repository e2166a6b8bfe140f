// Determines the unknown cells of a collection: if a read failed, the row contains a leftover value of the
// failed step.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "inventory/model.h"

namespace inventory {

// Indexes the problems of a collection by the rows they affect. A problem with a property affects the columns
// derived from it, any other problem the whole row; a problem without an item affects every row of its table.
// Notes and problems without a table affect no row.
class UnknownCells {
 public:
  // A row to be checked.
  struct Row {
    ObjectKind kind = ObjectKind::kNone;
    std::string_view item;  // the site or pool that it belongs to
    std::string_view node;  // the path of a directory; empty for another kind
    std::function<Cell(std::size_t)> cell;
  };

  explicit UnknownCells(std::span<const Problem> problems);

  // Whether a table may have unknown cells at all.
  bool concerns(std::string_view table) const { return problems_.contains(table); }

  // The value of `not_known` for a row: its unknown columns as "|column|column|" in view names, or empty.
  std::string of(const Table& table, const Row& row) const;

  // Whether rows of an item may be missing in a table, or rows of every item.
  bool mayLackRows(std::string_view table, std::string_view item) const;

 private:
  struct Entry {
    ObjectKind itemKind = ObjectKind::kNone;
    std::string node;  // folded
    std::string property;
    bool hasTooFewPieces = false;
  };

  static bool concernsRow(const Entry& entry, const Table& table, const Row& row);
  static std::uint64_t columnsOf(const Entry& entry, const Table& table, const Row& row);

  // By table, then by the item's folded name, followed by the folded node for problems of a directory.
  std::unordered_map<std::string_view, std::unordered_map<std::string, std::vector<Entry>>> problems_;
};

}  // namespace inventory
