// Writes listings as an Excel workbook (.xlsx).
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/console/listing.h"

namespace host {

struct Sheet {
  std::string name;  // any text; see sheetNames()
  Listing listing;
};

// Writes a sheet per listing, with a heading that stays visible, a filter and fitting widths, in constant
// memory. Cells are numbers, truth values and times (UTC) as their column's `cellType` says, if their texts
// are such; all others are texts, never formulas. Throws std::runtime_error if there are more rows or longer
// texts than a sheet can have, or if a temporary file cannot be written.
void writeWorkbook(std::span<const Sheet> sheets, Output& output);

// Returns names that a workbook may have: distinct, of at most 31 characters and without []:*?/\ in them.
std::vector<std::string> sheetNames(std::span<const Sheet> sheets);

}  // namespace host
