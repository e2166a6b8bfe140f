// What still stands of a former publication.
#pragma once

#include <map>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "inventory/inventory.h"
#include "inventory/names.h"

namespace inventory {

// The items of each kind, folded, that a server has now and hadn't when it was last listed.
using Newcomers = std::map<ItemKind, std::set<std::string>>;

// The parts of a publication that have not all been replaced: tables, and of each every item but some, or
// some items alone. A part without rows is one too: that there are none is what was found.
class Remainder {
 public:
  // All of a publication of this scope.
  static Remainder of(const Scope& scope);

  // The kinds of rows that a table may hold.
  static std::span<const ItemKind> kindsOf(const Table& table);

  // Text that keeps it, and what it is from such a text. Throws Error for a text that is none.
  std::string toText() const;
  static Remainder fromText(std::string_view text);

  // Takes out what a publication of this scope replaces, and the newcomers, of which nothing was known.
  void subtract(const Scope& scope, const Newcomers& newcomers);

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
