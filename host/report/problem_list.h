// The problems of one server.
#pragma once

#include <string>
#include <vector>

#include "host/report/columns.h"

namespace host::page {

struct ProblemRow {
  std::string location, table, property, number, message;
  bool isNote = false;

  void visit(auto& add) const {
    add("location", location)("table", table)("property", property)("number", number)("message", message)(
        "isNote", isNote);
  }
};

struct ProblemList {
  std::vector<ProblemRow> rows;
  std::string more;  // what is not listed

  void visit(auto& add) const { add("rows", rows)("more", more); }
};

ProblemList problemList(const ServerData& server);

}  // namespace host::page
