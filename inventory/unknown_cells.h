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

// The problems of a collection, by the rows that they concern. A problem with a property concerns the columns
// that are made of it, any other one the whole row; one without an item concerns every row of its table.
// Notes, and problems without a table, concern no row.
class UnknownCells {
 public:
  // A row whose cells are asked for.
  struct Row {
    ObjectKind kind = ObjectKind::kNone;
    std::string_view item;  // the site or pool that it belongs to
    std::string_view node;  // the path of a directory; empty for another kind
    std::function<Cell(std::size_t)> cell;
  };

  explicit UnknownCells(std::span<const Problem> problems);

  // Whether a table may have unknown cells at all.
  bool concerns(std::string_view table) const { return problems_.contains(table); }

  // The unknown columns of a row, as `not_known` keeps them: "|column|column|" in view names, or empty.
  std::string of(const Table& table, const Row& row) const;

  // Whether rows of an item may be missing in a table, or rows of every item.
  bool mayLackRows(std::string_view table, std::string_view item) const;

 private:
  struct Entry {
    ObjectKind itemKind = ObjectKind::kNone;
    std::string node;  // in small letters
    std::string property;
    bool hasTooFewPieces = false;
  };

  static bool concernsRow(const Entry& entry, const Table& table, const Row& row);
  static std::uint64_t columnsOf(const Entry& entry, const Table& table, const Row& row);

  // By table, then by the item's folded name, with the folded node behind it where a problem is at a
  // directory.
  std::unordered_map<std::string_view, std::unordered_map<std::string, std::vector<Entry>>> problems_;
};

}  // namespace inventory
