#include "inventory/server_data.h"

#include <algorithm>
#include <cstring>
#include <unordered_set>

#include "inventory/names.h"

namespace inventory {
namespace {

using Length = std::uint32_t;

constexpr std::size_t kHead = 2 * sizeof(std::int64_t);
constexpr std::size_t kBlock = std::size_t{64} * 1024;

template <typename Value>
Value read(const char* bytes) {
  Value value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

template <typename Value>
char* write(char* bytes, Value value) {
  std::memcpy(bytes, &value, sizeof value);
  return bytes + sizeof value;
}

std::uint64_t unknownBits(const Table& table, std::string_view notKnown) {
  std::uint64_t bits = 0;
  for (std::size_t at = 0; !notKnown.empty() && at < table.columns.size(); ++at) {
    const std::string mark = "|" + std::string(table.columns[at].viewName) + "|";
    if (notKnown.find(mark) != notKnown.npos) bits |= std::uint64_t{1} << at;
  }
  return bits;
}

}  // namespace

std::int64_t DataRow::id() const {
  return read<std::int64_t>(bytes_);
}

Cell DataRow::cell(std::size_t column) const {
  const char* const lengths = bytes_ + kHead;
  const char* value = lengths + table_->columns.size() * sizeof(Length);
  for (std::size_t at = 0; at < column; ++at) {
    const auto length = read<Length>(lengths + at * sizeof(Length));
    value += length == 0 ? 0 : length - 1;
  }
  const auto length = read<Length>(lengths + column * sizeof(Length));
  return length == 0 ? Cell() : Cell(std::string_view(value, length - 1));
}

bool DataRow::isUnknown(std::size_t column) const {
  return (read<std::uint64_t>(bytes_ + sizeof(std::int64_t)) >> column & 1U) != 0;
}

bool DataRow::hasUnknown() const {
  return read<std::uint64_t>(bytes_ + sizeof(std::int64_t)) != 0;
}

ServerData::ServerData(CollectionInfo info) : info_(std::move(info)), tables_(tables().size()) {}

const ObjectInfo* ServerData::object(std::int64_t id) const {
  const auto found = std::ranges::lower_bound(objects_, id, {}, &ObjectInfo::id);
  return found == objects_.end() || found->id != id ? nullptr : &*found;
}

DataRow ServerData::row(std::size_t table, std::size_t at) const {
  return {tables()[table], tables_[table].starts[at]};
}

std::vector<DataRow> ServerData::rowsOf(std::size_t table, std::int64_t object) const {
  const Rows& rows = tables_[table];
  if (!rows.isSorted) std::ranges::sort(rows.byObject);
  rows.isSorted = true;
  std::vector<DataRow> found;
  for (auto at = std::ranges::lower_bound(rows.byObject, std::pair(object, std::uint32_t{0}));
       at != rows.byObject.end() && at->first == object; ++at) {
    found.push_back(row(table, at->second));
  }
  return found;
}

std::vector<std::string> ServerData::reasons(std::string_view table, std::int64_t object) const {
  findReasons();
  std::vector<std::string> messages;
  std::unordered_set<std::string_view> seen;
  for (const std::int64_t about : {std::int64_t{0}, object}) {
    const auto found = reasons_.find({table, about});
    for (std::size_t at = 0; found != reasons_.end() && at < found->second.size(); ++at) {
      const std::string& message = problems_[found->second[at]].message;
      if (seen.insert(message).second) messages.push_back(message);
    }
    if (object == 0) break;
  }
  return messages;
}

bool ServerData::hasReasons(std::string_view table, std::int64_t object) const {
  findReasons();
  return reasons_.contains({table, object}) || reasons_.contains({table, 0});
}

// What fails at a directory concerns the lists of its site too. A problem of an item that is no object
// concerns none.
void ServerData::findReasons() const {
  if (std::exchange(hasReasons_, true)) return;
  for (std::size_t at = 0; at < problems_.size(); ++at) {
    const Problem& problem = problems_[at];
    const std::int64_t about = problemObjects_[at];
    if (problem.isNote || (about == 0 && !problem.item.empty())) continue;
    reasons_[{problem.table, about}].push_back(at);
    const ObjectInfo* each = object(about);
    if (each == nullptr || each->kind != ObjectKind::kDirectory) continue;
    while (each != nullptr && each->kind == ObjectKind::kDirectory) each = object(each->parent);
    if (each != nullptr) reasons_[{problem.table, each->id}].push_back(at);
  }
}

bool ServerData::isCollected(std::string_view table, ObjectKind kind, std::int64_t object) const {
  const ObjectInfo* each = this->object(object);
  while (each != nullptr && each->kind != itemKindOf(each->kind)) each = this->object(each->parent);
  return info_.coverage.includes(table, kind, each == nullptr ? std::string_view() : each->key);
}

void ServerData::addObject(ObjectInfo object) {
  objects_.push_back(std::move(object));
}

void ServerData::addRow(std::size_t place, std::int64_t id, std::string_view notKnown,
                        std::span<const Cell> cells) {
  std::size_t size = kHead + cells.size() * sizeof(Length);
  for (const Cell& cell : cells) size += cell.value_or("").size();
  char* const start = allocate(size);
  char* lengths = write(write(start, id), unknownBits(tables()[place], notKnown));
  char* value = lengths + cells.size() * sizeof(Length);
  for (const Cell& cell : cells) {
    lengths = write(lengths, cell ? static_cast<Length>(cell->size() + 1) : Length{0});
    if (!cell || cell->empty()) continue;
    std::memcpy(value, cell->data(), cell->size());
    value += cell->size();
  }
  Rows& rows = tables_[place];
  rows.isSorted = rows.isSorted && (rows.byObject.empty() || rows.byObject.back().first <= id);
  rows.byObject.emplace_back(id, static_cast<std::uint32_t>(rows.starts.size()));
  rows.starts.push_back(start);
}

void ServerData::addProblem(Problem problem, std::int64_t object) {
  problems_.push_back(std::move(problem));
  problemObjects_.push_back(object);
}

char* ServerData::allocate(std::size_t size) {
  if (size > left_) {
    left_ = std::max(size, kBlock);
    blocks_.push_back(std::make_unique_for_overwrite<char[]>(left_));
    next_ = blocks_.back().get();
  }
  left_ -= size;
  return std::exchange(next_, next_ + size);
}

}  // namespace inventory
