// What of a server has been collected: a table without a row may have none, or nobody may have looked.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "inventory/inventory.h"
#include "inventory/remainder.h"

namespace inventory {

class Coverage {
 public:
  // Of these servers. Throws Error.
  static Coverage read(Snapshot& snapshot, const std::vector<std::string>& servers);

  // Whether the rows of a kind in a table have been collected: of one item, or of every one where it is
  // empty. Of a server whose collections aren't told, everything has been.
  bool has(std::string_view server, std::string_view table, ItemKind kind, std::string_view item = {}) const;

  // Whether those of any item have.
  bool hasSome(std::string_view server, std::string_view table, ItemKind kind) const;

 private:
  struct Collection {
    std::string selection;
    Remainder rows;
  };

  std::unordered_map<std::string, std::vector<Collection>> collections_;  // by folded name
};

}  // namespace inventory
