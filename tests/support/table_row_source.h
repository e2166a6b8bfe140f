// A row source for publishing without a collection.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "inventory/inventory.h"

namespace test {

// Rows of one table; the others are empty. If `fails` is set, reading tblHealth throws.
class TableRowSource : public inventory::RowSource {
 public:
  explicit TableRowSource(std::string table, std::vector<std::vector<inventory::Cell>> rows = {})
      : cells(std::move(rows)), table_(std::move(table)) {}

  std::unique_ptr<inventory::Rows> rows(const inventory::Table& table) const override {
    struct Reading : inventory::Rows {
      bool next() override {
        if (fails) throw std::runtime_error("no rows");
        return left != nullptr && ++at < left->size();
      }
      inventory::Cell cell(std::size_t column) override {
        return column < (*left)[at].size() ? (*left)[at][column] : inventory::Cell();
      }
      const std::vector<std::vector<inventory::Cell>>* left = nullptr;
      std::size_t at = static_cast<std::size_t>(-1);
      bool fails = false;
    };
    auto reading = std::make_unique<Reading>();
    if (table.name == table_) reading->left = &cells;
    reading->fails = fails && table.name == "tblHealth";
    return reading;
  }

  std::vector<std::vector<inventory::Cell>> cells;
  bool fails = false;

 private:
  std::string table_;
};

// Publishes the rows of servers in one transaction.
inline std::vector<inventory::Published> publish(
    const std::string& database, const std::vector<std::pair<std::string, const TableRowSource*>>& servers,
    const inventory::Coverage& coverage = inventory::Coverage::everything()) {
  std::vector<inventory::Collected> collected(servers.size());
  for (std::size_t at = 0; at < servers.size(); ++at) {
    collected[at].origin.server = servers[at].first;
    collected[at].coverage = coverage;
    collected[at].rows = servers[at].second;
  }
  return inventory::openForPublishing(database, {})->publish(collected);
}

}  // namespace test
