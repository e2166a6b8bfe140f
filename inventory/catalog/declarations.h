// Reads the declarations of the tables, at compile time. To be included through catalog.h.
#pragma once

#include <array>
#include <cstddef>
#include <stdexcept>
#include <string_view>

#include "inventory/catalog/catalog_text.h"

namespace inventory::declarations {

// Takes the text up to a delimiter, and the delimiter.
constexpr std::string_view take(std::string_view& text, char delimiter) {
  const std::size_t end = text.find(delimiter);
  const std::string_view taken = text.substr(0, end);
  text.remove_prefix(end == text.npos ? text.size() : end + 1);
  return taken;
}

// A field in which "-" stands for nothing.
constexpr std::string_view takeField(std::string_view& line) {
  const std::string_view field = take(line, '\t');
  return field == "-" ? std::string_view() : field;
}

constexpr std::size_t lineCount(std::string_view text) {
  std::size_t count = 0;
  for (const char c : text) count += c == '\n' ? 1U : 0U;
  return count;
}

template <typename Value, std::size_t kCount>
constexpr Value find(const std::pair<std::string_view, Value> (&words)[kCount], std::string_view word) {
  for (const auto& [text, value] : words) {
    if (text == word) return value;
  }
  throw std::logic_error("unknown word in a declaration");
}

inline constexpr std::pair<std::string_view, ObjectKind> kKinds[] = {
    {"", ObjectKind::kNone},
    {"site", ObjectKind::kSite},
    {"directory", ObjectKind::kDirectory},
    {"pool", ObjectKind::kPool},
    {"extension", ObjectKind::kExtension},
    {"application", ObjectKind::kApplication}};
inline constexpr std::pair<std::string_view, Type> kTypes[] = {{"text", Type::kText},
                                                               {"integer", Type::kInteger},
                                                               {"real", Type::kReal},
                                                               {"boolean", Type::kBoolean},
                                                               {"time", Type::kTime}};
inline constexpr std::pair<std::string_view, Role> kRoles[] = {{"identity", Role::kIdentity},
                                                               {"value", Role::kValue},
                                                               {"listed", Role::kListed},
                                                               {"bookkeeping", Role::kBookkeeping}};

inline constexpr std::size_t kColumnCount = lineCount(kColumns) - 1;
inline constexpr std::size_t kTableCount = lineCount(kTables) - 1;

struct OfTable {
  std::string_view table;
  Column column;
};

consteval std::array<OfTable, kColumnCount> readColumns() {
  std::array<OfTable, kColumnCount> all{};
  std::string_view text = kColumns;
  take(text, '\n');
  for (OfTable& each : all) {
    std::string_view line = take(text, '\n');
    Column& column = each.column;
    each.table = takeField(line);
    column.name = takeField(line);
    column.viewName = takeField(line);
    column.role = find(kRoles, take(line, '\t'));
    column.type = find(kTypes, take(line, '\t'));
    column.viewType = find(kTypes, take(line, '\t'));
    if (const std::string_view group = takeField(line); !group.empty()) column.group = group[0] - '0';
    column.onlyOf = find(kKinds, takeField(line));
    column.properties = take(line, '\t');
    column.defaults = takeField(line);
    column.reference = takeField(line);
    column.meaning = line;
    if (column.meaning.empty()) throw std::logic_error("a column without a meaning");
  }
  return all;
}
inline constexpr std::array<OfTable, kColumnCount> kColumnsWithTables = readColumns();

consteval std::array<Column, kColumnCount> columnsAlone() {
  std::array<Column, kColumnCount> all{};
  for (std::size_t at = 0; at < kColumnCount; ++at) all[at] = kColumnsWithTables[at].column;
  return all;
}
inline constexpr std::array<Column, kColumnCount> kAllColumns = columnsAlone();

consteval std::array<Table, kTableCount> readTables() {
  std::array<Table, kTableCount> all{};
  std::string_view text = kTables;
  take(text, '\n');
  for (Table& table : all) {
    std::string_view line = take(text, '\n');
    table.name = takeField(line);
    table.tab = takeField(line);
    std::string_view kinds = takeField(line);
    table.kinds[0] = find(kKinds, take(kinds, ' '));
    table.kinds[1] = find(kKinds, kinds);
    table.hasSeveralRows = takeField(line) == "several";
    table.meaning = line;
    std::size_t first = 0;
    while (first < kColumnCount && kColumnsWithTables[first].table != table.name) ++first;
    std::size_t end = first;
    while (end < kColumnCount && kColumnsWithTables[end].table == table.name) ++end;
    if (first == end) throw std::logic_error("a table without columns");
    table.columns = std::span(kAllColumns).subspan(first, end - first);
  }
  return all;
}
inline constexpr std::array<Table, kTableCount> kAllTables = readTables();

// The tables of collected rows come first; those without a kind are the inventory's own.
consteval std::size_t dataTableCount() {
  std::size_t count = 0;
  while (count < kTableCount && kAllTables[count].kinds[0] != ObjectKind::kNone) ++count;
  return count;
}

}  // namespace inventory::declarations
