#include "host/console/listing.h"

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <numeric>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <fmt/core.h>

#include "automation/text.h"
#include "host/console/color.h"
#include "host/console/terminal_text.h"
#include "host/console/text.h"
#include "os/terminal.h"

namespace host {
namespace {

constexpr std::string_view kNotWritten = "-";
constexpr std::string_view kGap = "  ";
constexpr std::size_t kLeastForValues = 22;
constexpr std::size_t kLeastColumn = 8;
constexpr std::size_t kNarrowIndent = 2;

std::string shown(const Value& value) {
  return value ? escapeForTerminal(*value) : std::string(kNotWritten);
}

std::string blanks(std::size_t count) {
  return std::string(count, ' ');
}

// The columns' widths if no value is broken or cut.
std::vector<std::size_t> columnWidths(const Listing& listing) {
  std::vector<std::size_t> widths;
  for (const Listing::Column& column : listing.columns)
    widths.push_back(displayWidth(escapeForTerminal(column.name)));
  listing.forEachRow([&](const Row& row) {
    for (std::size_t at = 0; at < widths.size(); ++at) {
      widths[at] = std::max(widths[at], displayWidth(shown(row[at])));
    }
  });
  return widths;
}

// A column of no width is left out.
std::size_t lineWidth(const std::vector<std::size_t>& widths) {
  std::size_t whole = 0;
  for (const std::size_t width : widths) whole += width == 0 ? 0 : width + kGap.size();
  return whole == 0 ? 0 : whole - kGap.size();
}

// Narrows the widest columns until a line fits, after leaving out as many as necessary, from the last
// one on. A message keeps most of the line.
void narrow(const Listing& listing, std::vector<std::size_t>& widths, std::size_t room) {
  std::vector<std::size_t> least;
  for (std::size_t at = 0; at < widths.size(); ++at)
    least.push_back(std::min(widths[at], listing.columns[at].isMessage ? room * 5 / 8 : kLeastColumn));
  for (std::size_t at = widths.size(); at-- > 1 && lineWidth(least) > room;) {
    if (!listing.columns[at].isMessage) least[at] = widths[at] = 0;
  }
  for (std::size_t whole = lineWidth(widths); whole > room; --whole) {
    const auto spare = [&](std::size_t at) { return widths[at] > least[at] ? widths[at] : 0; };
    std::size_t widest = 0;
    for (std::size_t at = 1; at < widths.size(); ++at) widest = spare(at) > spare(widest) ? at : widest;
    if (spare(widest) == 0) break;
    --widths[widest];
  }
  if (!widths.empty()) widths.front() = std::min(widths.front(), room);
}

// The lines of a value, which may contain line breaks.
std::vector<std::string> wrappedLines(const Value& value, std::size_t width) {
  if (!value) return {std::string(kNotWritten)};
  std::vector<std::string> lines;
  std::string_view rest = *value;
  while (true) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    std::string_view line = rest.substr(0, end);
    if (end < rest.size() && line.ends_with('\r')) line.remove_suffix(1);
    for (std::string& piece : wrapToWidth(escapeForTerminal(line), width)) lines.push_back(std::move(piece));
    if (end == rest.size()) return lines;
    rest.remove_prefix(end + 1);
  }
}

// Columns beside each other. A row has a line, or as many as its message needs.
void printLines(const Listing& listing, const std::vector<std::size_t>& widths, Output& output) {
  const auto padded = [&](std::size_t at, const std::string& text) {
    const std::size_t width = displayWidth(text);
    const std::string fill = blanks(widths[at] > width ? widths[at] - width : 0);
    const bool isAlarming = listing.columns[at].isProblemCount && text[0] >= '1' && text[0] <= '9';
    const std::string shown = text == kNotKnownText ? colored(text, Ink::kNotice, output.descriptor())
                              : isAlarming          ? colored(text, Ink::kProblem, output.descriptor())
                                                    : text;
    return listing.columns[at].isNumber ? fill + shown : shown + fill;
  };
  const auto printRow = [&](const std::function<Value(std::size_t)>& cell) {
    std::vector<std::vector<std::string>> cells;
    std::size_t height = 1;
    for (std::size_t at = 0; at < widths.size(); ++at) {
      const Value value = cell(at);
      cells.push_back(listing.columns[at].isMessage && widths[at] > 0
                          ? wrappedLines(value, widths[at])
                          : std::vector{cutToWidth(shown(value), widths[at])});
      height = std::max(height, cells.back().size());
    }
    for (std::size_t number = 0; number < height; ++number) {
      std::string line;
      for (std::size_t at = 0; at < widths.size(); ++at) {
        if (widths[at] == 0) continue;
        line += (line.empty() ? std::string() : std::string(kGap)) +
                padded(at, number < cells[at].size() ? cells[at][number] : "");
      }
      line.erase(line.find_last_not_of(' ') + 1);
      output.write(line + "\n");
    }
  };
  printRow([&](std::size_t at) { return Value(listing.columns[at].name); });
  printRow([&](std::size_t at) { return Value(std::string(widths[at], '-')); });
  listing.forEachRow([&](const Row& row) { printRow([&](std::size_t at) { return row[at]; }); });
}

// Columns below each other: a block for each row, with lines for each column.
void printBlocks(const Listing& listing, std::size_t width, Output& output) {
  std::vector<std::string> labels;
  std::size_t indent = 0;
  for (const Listing::Column& column : listing.columns) {
    labels.push_back(escapeForTerminal(column.name) + ": ");
    indent = std::max(indent, displayWidth(labels.back()));
  }
  if (width < 2 * kLeastForValues) indent = std::min(kNarrowIndent, width / 2);
  if (width >= 2 * kLeastForValues) indent = std::min(indent, width - kLeastForValues);
  std::int64_t number = 0;
  listing.forEachRow([&](const Row& row) {
    if (number > 0) output.write("\n");
    output.write(cutToWidth("-- row " + std::to_string(++number) + " --", width) + "\n");
    for (std::size_t at = 0; at < labels.size(); ++at) {
      std::string start = labels[at];
      // After a long name the value begins on a line of its own.
      if (displayWidth(start) > indent) {
        for (std::string& piece : wrapToWidth(start.substr(0, start.size() - 1), width)) {
          output.write(piece + "\n");
        }
        start = blanks(indent);
      }
      start += blanks(indent - displayWidth(start));
      for (const std::string& line : wrappedLines(row[at], width - indent)) {
        std::string whole = start + line;
        whole.erase(whole.find_last_not_of(' ') + 1);
        output.write(whole + "\n");
        start = blanks(indent);
      }
    }
  });
}

void printTable(const Listing& listing, const PrintOptions& options, Output& output) {
  const bool onTerminal = os::isTerminal(output.descriptor());
  const std::size_t room = os::terminalColumns(output.descriptor());
  if (options.vertical) return printBlocks(listing, room, output);
  std::vector<std::size_t> widths = columnWidths(listing);
  const bool isCut = onTerminal && !options.isWide && lineWidth(widths) > room;
  if (isCut) narrow(listing, widths, room);
  printLines(listing, widths, output);
  if (!isCut) return;
  const auto missing = std::ranges::count(widths, std::size_t{0});
  output.write(
      cutToWidth(fmt::format("(truncated; {}{})\n",
                             missing > 0 ? pluralize(missing, "column", "columns") + " left out; " : "",
                             options.hasForms ? "use --wide or --blocks" : "redirect for full output"),
                 room + 1));
}

// A spreadsheet reads a cell that begins with one of these as a formula.
constexpr std::string_view kFormulaStarts = "=+-@\t\r";

void printCsv(const Listing& listing, bool forExcel, Output& output) {
  const bool onTerminal = os::isTerminal(output.descriptor());
  if (forExcel) output.write("\uFEFF");
  const auto printField = [&](std::size_t at, std::string_view field) {
    std::string text = onTerminal ? escapeForTerminal(field) : std::string(field);
    if (forExcel && !listing.columns[at].isNumber && !field.empty() &&
        kFormulaStarts.find(field[0]) != field.npos)
      text.insert(0, "'");
    if (at > 0) output.write(",");
    if (text.find_first_of("\",\r\n") == std::string::npos) return output.write(text);
    std::string quoted = "\"";
    for (const char c : text) quoted.append(c == '"' ? 2 : 1, c);
    output.write(quoted + "\"");
  };
  for (std::size_t at = 0; at < listing.columns.size(); ++at) printField(at, listing.columns[at].name);
  output.write("\r\n");
  listing.forEachRow([&](const Row& row) {
    for (std::size_t at = 0; at < row.size(); ++at) printField(at, row[at] ? *row[at] : std::string_view());
    output.write("\r\n");
  });
}

// Escapes in a JSON text the characters that a terminal would interpret.
std::string escaped(const std::string& text) {
  if (escapeForTerminal(text) == text) return text;
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t begin = at;
    const char32_t point = automation::nextPoint(text, at);
    const std::string character = text.substr(begin, at - begin);
    if (escapeForTerminal(character) == character) {
      result += character;
    } else {
      constexpr char kDigits[] = "0123456789abcdef";
      result += "\\u";
      for (unsigned shift = 16; shift > 0;) result += kDigits[point >> (shift -= 4) & 0xFU];
    }
  }
  return result;
}

void printJson(const Listing& listing, Output& output) {
  bool first = true;
  output.write("[");
  listing.forEachRow([&](const Row& row) {
    nlohmann::ordered_json object = nlohmann::ordered_json::object();
    for (std::size_t at = 0; at < row.size(); ++at) {
      auto& member = object[listing.columns[at].name];
      if (!row[at]) continue;
      member = *row[at];
      const Listing::Column& column = listing.columns[at];
      if (!column.isNumber && !column.isJson) continue;
      auto value = nlohmann::ordered_json::parse(*row[at], nullptr, false);
      if (column.isNumber ? value.is_number() : value.is_object() || value.is_boolean())
        member = std::move(value);
    }
    output.write(first ? "\n  " : ",\n  ");
    output.write(escaped(object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace)));
    first = false;
  });
  output.write(first ? "]\n" : "\n]\n");
}

}  // namespace

std::string jsonText(std::string_view text) {
  const bool isPlain =
      std::ranges::all_of(text, [](char c) { return c >= 0x20 && c < 0x7F && c != '"' && c != '\\'; });
  if (isPlain) return std::string("\"").append(text).append("\"");
  return escaped(nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

void print(const Listing& listing, const PrintOptions& options, Output& output) {
  switch (options.format) {
    case Format::kTable:
      return printTable(listing, options, output);
    case Format::kCsv:
      return printCsv(listing, options.forExcel, output);
    case Format::kJson:
      return printJson(listing, output);
    case Format::kXlsx:
      throw std::logic_error("a workbook is not printed");
  }
}

}  // namespace host
