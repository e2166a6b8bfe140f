// The command "show".
#pragma once

#include <filesystem>
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
  // Tables, tabs or views. Empty for all tables in a search, for all views in a workbook, and else for the
  // list of tables and views.
  std::vector<std::string> tables;
  std::string database;
  inventory::Access access;
  std::vector<std::string> servers;   // all if empty
  std::string at;                     // a time in UTC; empty for the current collections
  std::vector<std::string> columns;   // all if empty
  std::vector<Condition> conditions;  // of those on one column, one = or ~ must be met and every !=
  std::string search;                 // in every column; empty for none
  std::string sort;                   // the column to sort by; empty for the order of publication
  bool isReversed = false;
  Format format = Format::kTable;
  bool isWide = false;
  bool vertical = false;
  bool forExcel = false;         // see PrintOptions
  std::filesystem::path output;  // empty for the standard output
};

// Prints tables and views of an inventory, or their list with row counts. Throws inventory::Error if it
// cannot be read, std::runtime_error if the output cannot be written, and UsageError for an unknown table,
// column or server.
void show(const ShowOptions& options, Output& output);

}  // namespace host
