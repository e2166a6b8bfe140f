// The command "show".
#pragma once

#include <string>
#include <vector>

#include "host/console/listing.h"
#include "host/console/output.h"
#include "inventory/inventory.h"

namespace host {

// A condition on the value in a column.
struct Condition {
  enum class Kind { kIs, kIsNot, kContains };
  std::string column;
  Kind kind = Kind::kIs;
  std::string text;
};

struct ShowOptions {
  std::vector<std::string> tables;  // tables, tabs or views; empty for the list of tables
  std::string database;
  inventory::Access access;
  std::vector<std::string> servers;  // all if empty
  std::string at;                    // a time in UTC; empty for the current collections
  std::vector<std::string> columns;  // all if empty
  std::vector<Condition> conditions;
  std::string sort;  // the column to sort by; empty for the order of publication
  bool isReversed = false;
  Format format = Format::kTable;
  bool isWide = false;
  bool vertical = false;
  bool writeBom = false;
};

// Prints tables and views of an inventory, or the list of its tables with row counts. Throws inventory::Error
// if it cannot be read, and UsageError for an unknown table, column or server.
void show(const ShowOptions& options, Output& output);

}  // namespace host
