// Reads the rows and columns of a table or view that the options of "show" select.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/console/listing.h"
#include "host/query/relation.h"
#include "host/query/show.h"
#include "inventory/inventory.h"
#include "os/spool.h"

namespace host {

// The rows of one table, read completely before the first one is printed, so that a slow consumer of the
// output does not block publications.
struct CapturedTable {
  std::string name;
  std::vector<Listing::Column> columns;
  os::Spool rows;
  bool isEmpty = true;

  void add(const std::vector<inventory::Cell>& row) {
    rows.add(row);
    isEmpty = false;
  }
};

class TableReader {
 public:
  // Throws UsageError for an unknown column.
  TableReader(const ShowOptions& options, const Relation& relation);

  CapturedTable read(inventory::Reader& reader, const std::vector<inventory::CollectionInfo>& collections);

 private:
  struct Column {
    std::string name;
    inventory::Type type = inventory::Type::kText;
    inventory::Type cellType = inventory::Type::kText;  // of its cells in a spreadsheet
    std::size_t index = 0;                              // in the table or in the query
  };
  struct ColumnConditions {
    std::size_t column = 0;
    std::vector<const Condition*> conditions;
  };

  void readColumns();
  std::size_t findColumn(const std::string& wanted) const;
  Listing::Column listingColumn(const Column& column) const;
  bool isRowsByTable(const Column& column) const;
  bool hasUnknownColumn() const;
  std::string viewQuery() const;
  template <typename Handle>
  void forEachRow(inventory::Reader& reader, std::vector<inventory::CollectionInfo> collections,
                  const Handle& handle);
  std::string_view text(std::size_t column) const;
  bool matchesConditions() const;
  bool matchesSearch();
  const std::vector<inventory::Cell>& shownCells();

  const ShowOptions& options_;
  const Relation& relation_;
  const std::string search_;  // folded
  std::vector<Column> columns_;
  std::vector<std::size_t> shownColumns_;
  std::vector<ColumnConditions> conditions_;
  // The current row.
  std::vector<inventory::Cell> cells_;
  std::vector<bool> isUnknown_;
  std::vector<inventory::Cell> out_;
  std::string foundIn_, unknownNames_, rowsByTable_;
};

}  // namespace host
