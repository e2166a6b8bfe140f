#include "host/listing.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "automation/text.h"
#include "host/terminal_text.h"

namespace host {
namespace {

constexpr std::string_view kNotWritten = "-";
constexpr std::string_view kGap = "  ";
constexpr std::size_t kLeastForValues = 22;
constexpr std::size_t kNarrowIndent = 2;

std::string shown(const Value& value) {
  return value ? harmless(*value) : std::string(kNotWritten);
}

std::string blanks(std::size_t count) {
  return std::string(count, ' ');
}

// The columns' widths where each value stands on one line.
std::vector<std::size_t> columnWidths(const Listing& listing) {
  std::vector<std::size_t> widths;
  for (const Listing::Column& column : listing.columns) widths.push_back(displayWidth(harmless(column.name)));
  listing.forEachRow([&](const Row& row) {
    for (std::size_t at = 0; at < widths.size(); ++at) {
      widths[at] = std::max(widths[at], displayWidth(shown(row[at])));
    }
  });
  return widths;
}

// Beside each other: a line for each row.
void printLines(const Listing& listing, const std::vector<std::size_t>& widths, Output& output) {
  const auto printLine = [&](const std::function<std::string(std::size_t)>& cell) {
    std::string line;
    for (std::size_t at = 0; at < widths.size(); ++at) {
      if (at > 0) line += kGap;
      const std::string text = cell(at);
      const std::size_t width = displayWidth(text);
      const std::string fill = blanks(widths[at] > width ? widths[at] - width : 0);
      line += listing.columns[at].isNumber ? fill + text : text + fill;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    output.write(line + "\n");
  };
  printLine([&](std::size_t at) { return harmless(listing.columns[at].name); });
  printLine([&](std::size_t at) { return std::string(widths[at], '-'); });
  listing.forEachRow([&](const Row& row) { printLine([&](std::size_t at) { return shown(row[at]); }); });
}

// The lines of a value that may break itself, as a message of several lines does.
std::vector<std::string> wrappedLines(const Value& value, std::size_t width) {
  if (!value) return {std::string(kNotWritten)};
  std::vector<std::string> lines;
  std::string_view rest = *value;
  while (true) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    std::string_view line = rest.substr(0, end);
    if (end < rest.size() && line.ends_with('\r')) line.remove_suffix(1);
    for (std::string& piece : wrapToWidth(harmless(line), width)) lines.push_back(std::move(piece));
    if (end == rest.size()) return lines;
    rest.remove_prefix(end + 1);
  }
}

// Below each other: a block for each row, a line or more for each column.
void printBlocks(const Listing& listing, std::size_t width, Output& output) {
  std::vector<std::string> labels;
  std::size_t indent = 0;
  for (const Listing::Column& column : listing.columns) {
    labels.push_back(harmless(column.name) + ": ");
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
      // A long name has its value below it.
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

void printTable(const Listing& listing, Output& output) {
  const std::vector<std::size_t> widths = columnWidths(listing);
  const bool onTerminal = ::isatty(STDOUT_FILENO) != 0;
  const std::size_t room =
      onTerminal ? terminalColumns(STDOUT_FILENO) : std::numeric_limits<std::size_t>::max();
  std::size_t whole = widths.empty() ? 0 : (widths.size() - 1) * kGap.size();
  for (const std::size_t width : widths) whole += width;
  if (whole <= room) {
    printLines(listing, widths, output);
  } else {
    printBlocks(listing, room, output);
  }
}

void printCsv(const Listing& listing, Output& output) {
  const auto printField = [&](std::size_t at, std::string_view text) {
    if (at > 0) output.write(",");
    if (text.find_first_of("\",\r\n") == std::string_view::npos) return output.write(text);
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
      if (column.isNumber ? value.is_number() : value.is_object()) member = std::move(value);
    }
    output.write(first ? "\n  " : ",\n  ");
    output.write(object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
    first = false;
  });
  output.write(first ? "]\n" : "\n]\n");
}

}  // namespace

void print(const Listing& listing, Format format, Output& output) {
  switch (format) {
    case Format::kTable:
      return printTable(listing, output);
    case Format::kCsv:
      return printCsv(listing, output);
    case Format::kJson:
      return printJson(listing, output);
  }
}

}  // namespace host
