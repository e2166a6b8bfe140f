// Prints rows as a table, CSV or JSON.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/console/output.h"
#include "inventory/catalog/catalog.h"

namespace host {

// kXlsx is not for print(): see writeWorkbook().
enum class Format { kTable, kCsv, kJson, kXlsx };

// A value of a row; nothing if none was written.
using Value = std::optional<std::string>;
using Row = std::vector<Value>;

// Columns, and rows that can be enumerated repeatedly.
struct Listing {
  struct Column {
    std::string name;
    bool isNumber = false;
    bool isJson = false;  // objects and booleans
    bool isProblemCount = false;
    inventory::Type cellType = inventory::Type::kText;  // of its cells in a spreadsheet
    bool isMessage = false;                             // stays on a narrow terminal
  };
  std::vector<Column> columns;
  std::function<void(const std::function<void(const Row&)>&)> forEachRow;
};

// Shown for an unknown value.
inline constexpr std::string_view kNotKnownText = "not known";

// How a listing is printed.
struct PrintOptions {
  Format format = Format::kTable;
  bool hasForms = false;  // whether the command has options for the next two
  bool isWide = false;    // does not truncate lines
  bool vertical = false;  // columns below each other
  bool forExcel = false;  // CSV for spreadsheets: a byte order mark, and no cell that is a formula
};

// A text as a JSON string. Characters that a terminal would interpret are escaped.
std::string jsonText(std::string_view text);

// Prints a listing row by row, in constant memory.
//
// kTable enumerates the rows twice, first for the widths, and cuts the widest columns to a terminal's width.
// What then does not fit is left out, from the last column on, but never a message, which is wrapped.
// kCsv follows RFC 4180, with `forExcel` texts that begin with = + - @ TAB or CR get an apostrophe; kJson is
// an array of objects with numbers and JSON values unquoted. A value that was not written is "-" in a table,
// an empty field in CSV and null in JSON. Characters that a terminal would interpret are shown visibly on a
// terminal and in tables, and escaped in JSON.
void print(const Listing& listing, const PrintOptions& options, Output& output);

}  // namespace host
