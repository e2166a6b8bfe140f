// What still stands of a former publication.
#pragma once

#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "inventory/inventory.h"
#include "inventory/names.h"

namespace inventory {

// The parts of a publication whose rows have not all been replaced: tables, and of each every item but some,
// or some items alone.
class Remainder {
 public:
  // All that a publication of this scope has brought; `brought` tells whether it has rows of a table and a
  // kind.
  template <typename Brought>
  static Remainder of(const Scope& scope, const Brought& brought) {
    Remainder all;
    for (const Table& table : tables()) {
      for (const ItemKind kind : kindsOf(table)) {
        if (!brought(table, kind)) continue;
        Part part{std::string(table.name), kind, true, {}};
        for (const TableScope& given : scope.tables) {
          if (scope.whole || given.table != table.name || given.kind != kind) continue;
          part.everyItem = given.everyItem;
          for (const std::string& item : given.items) part.items.insert(folded(item));
        }
        all.parts_.push_back(std::move(part));
      }
    }
    return all;
  }

  // The kinds of rows that a table may hold.
  static std::span<const ItemKind> kindsOf(const Table& table);

  // Text that keeps it, and what it is from such a text. Throws Error for a text that is none.
  std::string toText() const;
  static Remainder fromText(std::string_view text);

  // Takes out what a publication of this scope replaces.
  void subtract(const Scope& scope);

  // Whether it has the rows of a kind in a table: those of an item, or of every one where that is empty.
  bool covers(std::string_view table, ItemKind kind, std::string_view item) const;

  bool coversSome(std::string_view table, ItemKind kind) const;

  bool isEmpty() const { return parts_.empty(); }

 private:
  struct Part {
    std::string table;
    ItemKind kind = ItemKind::kNone;
    bool everyItem = true;
    std::set<std::string> items;  // folded; all but these where it is every item, else these alone
  };
  static bool isReplaced(Part& part, const TableScope& scope);

  std::vector<Part> parts_;
};

// An item kind in a database: "site", "pool" or an empty text.
std::string_view wordFor(ItemKind kind);
ItemKind kindOf(std::string_view word);

}  // namespace inventory
