// Renders the blocks of the report about the sites, pools and extensions of one server.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/query/rule.h"
#include "inventory/server_data.h"

namespace host {

// The rules with findings on an object.
using Marks = std::vector<const Rule*>;

// Explains why a table has no rows about an object: "Not collected.", "Not known: ..." with the first reason,
// or empty if there is nothing to list. An object of 0 means any.
std::string missingReason(const inventory::ServerData& data, std::size_t table, inventory::ObjectKind kind,
                          std::int64_t object);
// Returns a missingReason() as a paragraph, or `none` if it is empty.
std::string missingParagraph(const std::string& reason, const std::string& none);

class ItemBlocks {
 public:
  explicit ItemBlocks(const inventory::ServerData& data);

  // Return the block of a site or pool with all its tabs. `row`: the one that lists it. `id`: the anchor.
  std::string site(const inventory::DataRow& row, const std::string& id, const Marks& marks) const;
  std::string pool(const inventory::DataRow& row, const std::string& id, const Marks& marks) const;

  // Returns the table of the extensions; empty if there are none.
  std::string extensions() const;

 private:
  using RowsByItem = std::unordered_map<std::string, std::vector<inventory::DataRow>>;

  std::string directories(const inventory::DataRow& site) const;
  std::string applications(const inventory::DataRow& pool) const;

  const inventory::ServerData& data_;
  RowsByItem directories_;   // by identifier of their site
  RowsByItem applications_;  // by folded name of their pool
};

}  // namespace host
