#include "inventory/checked_rows.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "automation/text.h"
#include "inventory/clock.h"

namespace inventory {

// Tests eight bytes at a time: a byte from 1 to 127 has the highest bit clear, before and after subtracting
// 1.
bool isPlainText(std::string_view text) {
  constexpr std::uint64_t kOnes = 0x0101010101010101, kHighest = 0x8080808080808080;
  for (; text.size() >= sizeof kOnes; text.remove_prefix(sizeof kOnes)) {
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, text.data(), sizeof bytes);
    if ((((bytes - kOnes) | bytes) & kHighest) != 0) return false;
  }
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<signed char>(c) > 0; });
}

std::string cleanText(std::string_view text) {
  if (isPlainText(text)) return std::string(text);
  std::string clean = automation::toUtf8(automation::fromUtf8(text));
  std::size_t at = 0;
  while ((at = clean.find('\0', at)) != std::string::npos) clean.replace(at, 1, "\uFFFD");
  return clean;
}

CheckedRows::CheckedRows(const Table& table, std::unique_ptr<Rows> rows)
    : table_(table), rows_(std::move(rows)), replacements_(table.columns.size()) {}

bool CheckedRows::next() {
  reported_.reset();
  return rows_->next();
}

Cell CheckedRows::cell(std::size_t column) {
  const Cell value = rows_->cell(column);
  if (!value || (value->size() <= kLongestValue && isPlainText(*value))) return value;
  return replaced(column, *value);
}

Cell CheckedRows::replaced(std::size_t column, std::string_view text) {
  if (text.size() > kLongestValue) {
    report(column,
           fmt::format("has {} bytes and is not stored; the maximum is {}", text.size(), kLongestValue));
    return std::nullopt;
  }
  std::string clean = cleanText(text);
  if (clean == text) return text;
  report(column, "contains a NUL character or invalid text, stored as U+FFFD");
  replacements_[column] = std::move(clean);
  return replacements_[column];
}

void CheckedRows::report(std::size_t column, std::string message) {
  if (reported_.test(column)) return;
  reported_.set(column);
  const auto valueOf = [&](std::string_view name) {
    const std::size_t at = table_.find(name);
    const Cell value = at < table_.columns.size() && at != column ? rows_->cell(at) : Cell();
    return value && value->size() <= kLongestValue ? cleanText(*value) : std::string();
  };
  Problem problem;
  problem.table = table_.name;
  problem.item = valueOf(kSiteColumn);
  problem.itemKind = itemKindOf(table_.kinds[0]);
  if (table_.isAbout(ObjectKind::kPool) && problem.item.empty()) {
    problem.itemKind = ObjectKind::kPool;
    problem.item = valueOf(kPoolColumn);
  }
  problem.node = valueOf(kPathColumn);
  problem.property = table_.columns[column].name;
  problem.message = fmt::format("the value of '{}' {}", problem.property, message);
  problem.time = utcNow();
  problems_.push_back(std::move(problem));
}

}  // namespace inventory
