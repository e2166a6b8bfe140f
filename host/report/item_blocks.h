// The blocks of a report's page about the sites, pools and extensions of one server, in HTML.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/query/rule.h"
#include "inventory/server_data.h"

namespace host {

// The rules that hold for an object.
using Marks = std::vector<const Rule*>;

// "Not collected.", "Not known: ..." with the first reason, or empty if there are no rows of a table about an
// object because there is nothing. An object of 0 means any.
std::string whyMissing(const inventory::ServerData& data, std::size_t table, inventory::ObjectKind kind,
                       std::int64_t object);
// The same as a paragraph; `none` means nothing.
std::string missingParagraph(const std::string& whyMissing, const std::string& none);

class ItemBlocks {
 public:
  explicit ItemBlocks(const inventory::ServerData& data);

  // A site or pool with all its tabs. `row` is the one that lists it, `id` the block's anchor.
  std::string site(const inventory::DataRow& row, const std::string& id, const Marks& marks) const;
  std::string pool(const inventory::DataRow& row, const std::string& id, const Marks& marks) const;

  // The table of the extensions; empty if there are none.
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
