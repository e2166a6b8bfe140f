// Rows on their way to the standard output, in one of the formats of "show".
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/console/output.h"

namespace host {

enum class Format { kTable, kCsv, kJson };

// A value of a row; nothing where none was written.
using Value = std::optional<std::string>;
using Row = std::vector<Value>;

// Columns, and rows that can be gone through again and again.
struct Listing {
  struct Column {
    std::string name;
    bool isNumber = false;
    bool isJson = false;         // objects and booleans
    bool tellsProblems = false;  // how many there are
  };
  std::vector<Column> columns;
  std::function<void(const std::function<void(const Row&)>&)> forEachRow;
};

// Shown in place of an unknown value.
inline constexpr std::string_view kNotKnownText = "not known";

// How a listing is printed. The last four are for terminals, or for those who open a file in a spreadsheet.
struct PrintOptions {
  Format format = Format::kTable;
  bool hasForms = false;  // whether the command has options for the next two
  bool isWide = false;    // lines as long as their row
  bool vertical = false;  // columns below each other
  bool writeBom = false;  // a byte order mark ahead of CSV
};

// A text in JSON, in quotation marks. What a terminal would act on is escaped.
std::string jsonText(std::string_view text);

// Prints a listing row by row, so that memory doesn't grow with it.
//
// kTable goes through the rows twice, the first time for the widths. On a terminal where they don't fit
// beside each other the widest are cut; elsewhere nothing is. A value that wasn't written shows as "-". kCsv
// is that of RFC 4180, with an empty field for it, kJson an array of objects, with a null; numbers and JSON
// values are there what they are, and texts where they are none. What a terminal would act on is visible in a
// table and on a terminal, and escaped in JSON.
void print(const Listing& listing, const PrintOptions& options, Output& output);

}  // namespace host
