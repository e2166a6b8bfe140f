#include "host/report/directory_tree.h"

#include <algorithm>
#include <set>
#include <unordered_map>
#include <utility>

#include "host/console/terminal_text.h"
#include "host/report/clients.h"
#include "inventory/names.h"

namespace host::page {
namespace {

constexpr std::size_t kMaxDepth = 30;  // of nested lists: browsers nest elements 512 deep

constexpr std::size_t kAddresses = inventory::table("tblvirtualDirSecurity");
constexpr ColumnRef kParentPath = column("tblvirtualDirectory", "IISPath");
constexpr ColumnRef kName = column("tblvirtualDirectory", "Directory name");
constexpr ColumnRef kRead = column("tblvirtualDirectory", "Read");
constexpr ColumnRef kLogVisits = column("tblvirtualDirectory", "Log visits");

std::string pathOf(const DataRow& directory) {
  return inventory::folded(directory.text(kParentPath) + "/" + directory.text(kName));
}

std::string rightsOf(const DataRow& row) {
  std::string rights;
  const auto add = [&](ColumnRef right, const std::string& word) {
    if (row.isUnknown(right)) {
      append(rights, word + " not known");
    } else if (row.text(right) == "Yes") {
      append(rights, word);
    }
  };
  add(kRead, "read");
  add(kDirectoryWrite, "write");
  add(kLogVisits, "logged");
  return rights.empty() ? "no access" : rights;
}

Directory directoryOf(const ServerData& server, const DataRow& row, bool withPath) {
  Directory directory;
  const std::string name = row.text(kName);
  directory.name = escapeForTerminal(withPath ? row.text(kParentPath) + "/" + name : name);
  directory.path = valueOf(row, kDirectoryPath);
  directory.rights = rightsOf(row);
  directory.isWritable = !row.isUnknown(kDirectoryWrite) && row.text(kDirectoryWrite) == "Yes";
  const std::int64_t object = row.objectId();
  const Rows addresses = object == 0 ? Rows() : server.rowsOf(kAddresses, object);
  if (addresses.empty()) return directory;
  directory.clients = allowedClients(addresses, kDirectoryAccess);
  if (!directory.clients.isUnknown) return directory;
  const auto reasons = server.reasons(inventory::tables()[kAddresses].name, object);
  if (!reasons.empty()) directory.reason = escapeForTerminal(reasons.front());
  return directory;
}

// A row, by its index, and its depth from 1.
struct Place {
  std::size_t row = 0;
  std::size_t depth = 0;
};

// Returns the rows in the order of the tree.
std::vector<Place> treeOrder(const Rows& rows) {
  std::unordered_map<std::string, std::vector<std::size_t>> children;
  std::set<std::string> paths;
  for (const DataRow& row : rows) paths.insert(pathOf(row));
  std::vector<Place> open, order;  // `open`: the next one last
  for (std::size_t at = rows.size(); at > 0; --at) {
    const std::string parent = inventory::folded(rows[at - 1].text(kParentPath));
    if (paths.contains(parent)) {
      children[parent].push_back(at - 1);
    } else {
      open.push_back({at - 1, 1});
    }
  }
  while (!open.empty()) {
    const Place place = open.back();
    open.pop_back();
    order.push_back(place);
    if (const auto below = children.find(pathOf(rows[place.row])); below != children.end()) {
      for (const std::size_t child : below->second) open.push_back({child, place.depth + 1});
    }
  }
  return order;
}

}  // namespace

DirectoryTree directoryTree(const ServerData& server, const Rows& rows) {
  DirectoryTree tree;
  for (const Place& place : treeOrder(rows)) {
    Directory directory = directoryOf(server, rows[place.row], place.depth > kMaxDepth);
    const std::size_t depth = std::min(place.depth, kMaxDepth);
    directory.isFirst = tree.openLists == 0;
    directory.opensList = depth > tree.openLists;
    directory.isSibling = !directory.opensList;
    if (directory.isSibling) directory.closedLists = tree.openLists - depth;
    tree.openLists = depth;
    tree.directories.push_back(std::move(directory));
  }
  return tree;
}

}  // namespace host::page
