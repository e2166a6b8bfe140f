// What the report shows about the sites, pools and extensions of one server.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "host/query/rule.h"
#include "host/report/directory_tree.h"
#include "host/report/setting_groups.h"
#include "host/report/table.h"

namespace host::page {

// The rules with findings on an object.
using Marks = std::vector<const Rule*>;

// A site or pool.
struct Item {
  std::string anchor;
  std::string name;
  std::string identifier;
  std::string address;
  std::vector<std::string> marks;  // titles of rules
  std::vector<SettingGroup> groups;
  std::string listTitle;     // of the directories or applications; empty for no list
  DirectoryTree tree;        // of a site
  Table applications;        // of a pool
  std::string missing = {};  // why the list is empty

  void visit(auto& add) const {
    add("anchor", anchor)("name", name)("identifier", identifier)("address", address)("marks", marks)(
        "groups", groups)("listTitle", listTitle)("directories", tree.directories)(
        "openLists", std::vector<bool>(tree.openLists, true))("hasApplications", !applications.rows.empty())(
        "applications", applications)("missing", missing)(
        "isEmpty", tree.directories.empty() && applications.rows.empty() && missing.empty());
  }
};

class Items {
 public:
  explicit Items(const ServerData& server);

  // `row`: the one that lists the site or pool.
  Item site(const DataRow& row, std::string anchor, const Marks& marks) const;
  Item pool(const DataRow& row, std::string anchor, const Marks& marks) const;

  Table extensions() const;

 private:
  using RowsByItem = std::unordered_map<std::string, Rows>;

  const ServerData& server_;
  RowsByItem directories_;   // by identifier of their site
  RowsByItem applications_;  // by folded name of their pool
};

}  // namespace host::page
