// The problems and notes of one server.
#pragma once

#include <string>
#include <vector>

#include "host/report/columns.h"

namespace host::page {

struct ProblemRow {
  std::string location, table, property, number, message;

  void visit(auto& add) const {
    add("location", location)("table", table)("property", property)("number", number)("message", message);
  }
};

struct ProblemList {
  std::string title;
  std::string lead;
  std::size_t count = 0;
  std::vector<ProblemRow> rows = {};
  std::string more = {};  // what is not listed

  void visit(auto& add) const {
    add("title", title)("lead", lead)("count", count)("rows", rows)("more", more);
  }
};

// Problems, or notes: what cannot be corrected and makes nothing unknown.
ProblemList problemList(const ServerData& server, bool notes);

}  // namespace host::page
