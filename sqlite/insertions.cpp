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

// A statement names every table that it is about. A name in a value is taken for one too, which does no harm.
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
  if (insertion.waiting) return;
  insertion.waiting.emplace(columns);
  insertion.begun = false;
}

Insertion* Insertions::waitingInsertion(std::string_view table) {
  for (auto& [sql, insertion] : insertions_) {
    if (!insertion.waiting || insertion.table != table) continue;
    if (!insertion.begun) return &insertion;
    flush(insertion);
  }
  return nullptr;
}

const RowLog* Insertions::waiting(std::string_view table) {
  const Insertion* const insertion = waitingInsertion(table);
  return insertion == nullptr ? nullptr : &*insertion->waiting;
}

std::optional<RowLog> Insertions::takeBuffered(std::string_view table) {
  Insertion* const insertion = waitingInsertion(table);
  if (insertion == nullptr) return std::nullopt;
  waitingBytes_ -= insertion->waiting->bytes();
  return std::exchange(*insertion->waiting, RowLog(insertion->columns));
}

void Insertions::flush() {
  for (auto& [sql, insertion] : insertions_) {
    flush(insertion);
    insertion.begun = true;
  }
}

void Insertions::flushNamedIn(std::string_view sql, bool mayChange) {
  for (auto& [key, insertion] : insertions_) {
    if (!insertion.waiting || (insertion.waiting->isEmpty() && !mayChange)) continue;
    if (!names(sql, insertion.table)) continue;
    flush(insertion);
    if (mayChange) insertion.begun = true;
  }
}

void Insertions::flush(Insertion& insertion) {
  if (!insertion.waiting || insertion.waiting->isEmpty()) return;
  RowLog::Reader rows(*insertion.waiting);
  while (rows.next()) insert(insertion, [&](std::size_t column) { return rows.cell(column); });
  waitingBytes_ -= insertion.waiting->bytes();
  insertion.waiting->clear();
}

void Insertions::removeRows() {
  std::set<std::string, std::less<>> spared;
  for (auto& [sql, insertion] : insertions_) {
    if (!insertion.waiting) continue;
    insertion.waiting->clear();
    if (!insertion.begun) spared.insert(insertion.table);
  }
  waitingBytes_ = 0;
  std::vector<std::string> tables;
  {
    Statement schema =
        database_.prepare("select name from sqlite_schema where type = 'table' and name not like 'sqlite_%'");
    while (schema.step()) tables.emplace_back(schema.text(0).value_or(""));
  }
  for (const std::string& table : tables) {
    if (!spared.contains(table)) database_.execute("delete from " + quotedName(table));
  }
  for (auto& [sql, insertion] : insertions_) insertion.begun = !insertion.waiting;
}

}  // namespace sqlite
