#include "sqlite/insertions.h"

#include <algorithm>
#include <set>
#include <utility>
#include <vector>

namespace sqlite {
namespace {

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 0x20) : c;
}

// Whether a statement may use a table. A match in a value is harmless.
bool names(std::string_view sql, std::string_view table) {
  return std::search(sql.begin(), sql.end(), table.begin(), table.end(),
                     [](char left, char right) { return lower(left) == lower(right); }) != sql.end();
}

}  // namespace

Insertion& Insertions::prepared(const std::string& sql, const std::string& table, std::size_t columns) {
  const auto found = insertions_.find(sql);
  if (found != insertions_.end()) return found->second;
  Insertion made{table, columns, database_.prepare(sql), {}, true};
  return insertions_.emplace(sql, std::move(made)).first->second;
}

void Insertions::buffer(const std::string& sql, const std::string& table, std::size_t columns) {
  Insertion& insertion = prepared(sql, table, columns);
  if (insertion.buffered) return;
  insertion.buffered.emplace(columns);
  insertion.mayBeStored = false;
}

Insertion* Insertions::bufferedInsertion(std::string_view table) {
  for (auto& [sql, insertion] : insertions_) {
    if (!insertion.buffered || insertion.table != table) continue;
    if (!insertion.mayBeStored) return &insertion;
    flush(insertion);
  }
  return nullptr;
}

const RowLog* Insertions::bufferedRows(std::string_view table) {
  const Insertion* const insertion = bufferedInsertion(table);
  return insertion == nullptr ? nullptr : &*insertion->buffered;
}

std::optional<RowLog> Insertions::takeBufferedRows(std::string_view table) {
  Insertion* const insertion = bufferedInsertion(table);
  if (insertion == nullptr) return std::nullopt;
  bufferedBytes_ -= insertion->buffered->bytes();
  return std::exchange(*insertion->buffered, RowLog(insertion->columns));
}

void Insertions::flush() {
  for (auto& [sql, insertion] : insertions_) {
    flush(insertion);
    insertion.mayBeStored = true;
  }
}

void Insertions::flushNamedIn(std::string_view sql, bool mayChange) {
  for (auto& [key, insertion] : insertions_) {
    if (!insertion.buffered || (insertion.buffered->isEmpty() && !mayChange)) continue;
    if (!names(sql, insertion.table)) continue;
    flush(insertion);
    if (mayChange) insertion.mayBeStored = true;
  }
}

void Insertions::flush(Insertion& insertion) {
  if (!insertion.buffered || insertion.buffered->isEmpty()) return;
  RowLog::Reader rows(*insertion.buffered);
  while (rows.next()) insert(insertion, [&](std::size_t column) { return rows.cell(column); });
  bufferedBytes_ -= insertion.buffered->bytes();
  insertion.buffered->clear();
}

void Insertions::removeRows() {
  std::set<std::string, std::less<>> neverStored;
  for (auto& [sql, insertion] : insertions_) {
    if (!insertion.buffered) continue;
    insertion.buffered->clear();
    if (!insertion.mayBeStored) neverStored.insert(insertion.table);
  }
  bufferedBytes_ = 0;
  std::vector<std::string> tables;
  {
    Statement schema =
        database_.prepare("select name from sqlite_schema where type = 'table' and name not like 'sqlite_%'");
    while (schema.step()) tables.emplace_back(schema.text(0).value_or(""));
  }
  for (const std::string& table : tables) {
    if (!neverStored.contains(table)) database_.execute("delete from " + quotedName(table));
  }
  for (auto& [sql, insertion] : insertions_) insertion.mayBeStored = !insertion.buffered;
}

}  // namespace sqlite
