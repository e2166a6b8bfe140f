// The virtual directories of a site as nested lists.
#pragma once

#include <string>
#include <vector>

#include "host/report/values.h"

namespace host::page {

// A directory in the order of the tree. Which lists begin and end before it makes the nesting.
struct Directory {
  std::size_t closedLists = 0;  // with their items
  bool isSibling = false;       // ends the item before it
  bool opensList = false;
  bool isFirst = false;
  std::string name;  // with its path in a tree that is too deep to nest
  Value path;
  std::string rights;
  bool isWritable = false;
  Value clients;       // empty if all are admitted
  std::string reason;  // why the clients are not known

  void visit(auto& add) const {
    add("closedLists", std::vector<bool>(closedLists, true))("isSibling", isSibling)("opensList", opensList)(
        "isFirst", isFirst)("name", name)("path", path.text)("isPathUnknown", path.isUnknown)(
        "rights", rights)("isWritable", isWritable)("clients", clients.text)(
        "isClientsUnknown", clients.isUnknown)("reason", reason);
  }
};

struct DirectoryTree {
  std::vector<Directory> directories;
  std::size_t openLists = 0;  // at the end
};

// `rows`: the directories of one site.
DirectoryTree directoryTree(const ServerData& server, const Rows& rows);

}  // namespace host::page
