// A table whose columns are data.
#pragma once

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "host/report/values.h"

namespace host::page {

// `label`: the title of the column, which is shown before the value on a narrow screen.
struct TableCell {
  std::string label;
  Value value;

  void visit(auto& add) const { add("label", label)("value", value.text)("isUnknown", value.isUnknown); }
};

struct TableRow {
  std::vector<TableCell> cells;

  void visit(auto& add) const { add("cells", cells); }
};

struct Table {
  std::string kind;  // the class of its style
  std::string title;
  std::vector<std::string> columns;
  std::vector<TableRow> rows;

  void addRow(std::vector<Value> values) {
    TableRow& row = rows.emplace_back();
    for (std::size_t at = 0; at < values.size(); ++at)
      row.cells.push_back({columns[at], std::move(values[at])});
  }

  void visit(auto& add) const { add("kind", kind)("label", title)("columns", columns)("rows", rows); }
};

}  // namespace host::page
