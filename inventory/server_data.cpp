#include "inventory/server_data.h"

#include <algorithm>
#include <cstring>
#include <unordered_set>

namespace inventory {
namespace {

std::uint64_t unknownBits(const Table& table, std::string_view notKnown) {
  std::uint64_t bits = 0;
  for (std::size_t at = 0; !notKnown.empty() && at < table.columns.size(); ++at) {
    const std::string mark = "|" + std::string(table.columns[at].viewName) + "|";
    if (notKnown.find(mark) != std::string_view::npos) bits |= std::uint64_t{1} << at;
  }
  return bits;
}

}  // namespace

Cell DataRow::cell(std::size_t column) const {
  const char* at = cells_;
  for (; column > 0; --column) at += std::strlen(at) + 1;
  return *at == '+' ? Cell(at + 1) : Cell();
}

ServerData::ServerData(CollectionInfo info) : info_(std::move(info)), rows_(tables().size()) {}

const ObjectInfo* ServerData::object(std::int64_t id) const {
  const auto found = std::ranges::lower_bound(objects_, id, {}, &ObjectInfo::id);
  return found == objects_.end() || found->id != id ? nullptr : &*found;
}

std::vector<DataRow> ServerData::rowsOf(std::size_t table, std::int64_t object) const {
  const auto found = std::ranges::equal_range(rows_[table], object, {}, &DataRow::id);
  return {found.begin(), found.end()};
}

std::vector<std::string> ServerData::reasons(std::string_view table, std::int64_t object) const {
  std::vector<std::string> messages;
  std::unordered_set<std::string_view> seen;
  for (const std::int64_t about : {std::int64_t{0}, object}) {
    const auto found = reasons_.find({std::string(table), about});
    for (std::size_t at = 0; found != reasons_.end() && at < found->second.size(); ++at) {
      const std::string& message = problems_[found->second[at]].message;
      if (seen.insert(message).second) messages.push_back(message);
    }
  }
  return messages;
}

bool ServerData::hasReasons(std::string_view table, std::int64_t object) const {
  const std::string name(table);
  return reasons_.contains({name, object}) || reasons_.contains({name, 0});
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
  std::string all;
  for (const Cell& cell : cells) {
    all += cell ? '+' : '-';
    all += cell.value_or("");
    all += '\0';
  }
  char* const stored = static_cast<char*>(cells_.allocate(all.size(), 1));
  std::memcpy(stored, all.data(), all.size());
  rows_[place].emplace_back(tables()[place], id, unknownBits(tables()[place], notKnown), stored);
}

// A failure at a directory also affects the lists of its site. A problem of an item without an object affects
// none.
void ServerData::addProblem(Problem problem, std::int64_t about) {
  if (!problem.isNote && (about != 0 || problem.item.empty())) {
    reasons_[{problem.table, about}].push_back(problems_.size());
    const ObjectInfo* each = object(about);
    const bool isDirectory = each != nullptr && each->kind == ObjectKind::kDirectory;
    while (each != nullptr && each->kind == ObjectKind::kDirectory) each = object(each->parent);
    if (isDirectory && each != nullptr) reasons_[{problem.table, each->id}].push_back(problems_.size());
  }
  problems_.push_back(std::move(problem));
  problemObjects_.push_back(about);
}

}  // namespace inventory
