#include <algorithm>
#include <nlohmann/json.hpp>

#include "inventory/model.h"
#include "inventory/names.h"

namespace inventory {
namespace {

using nlohmann::json;

bool isList(std::string_view table, ObjectKind kind) {
  return table == listTableOf(itemKindOf(kind));
}

std::size_t bitOf(std::string_view table, ObjectKind kind) {
  const std::size_t at = findTable(table);
  return 2 * at + (tables()[at].kinds[0] == kind ? 0 : 1);
}

template <typename Each>
void forEachEntry(const Each& each) {
  for (const Table& table : tables()) {
    for (const ObjectKind kind : table.kinds) {
      if (kind != ObjectKind::kNone) each(table, kind);
    }
  }
}

}  // namespace

Coverage Coverage::everything() {
  Coverage all;
  forEachEntry([&](const Table& table, ObjectKind kind) { all.add(table, kind); });
  return all;
}

void Coverage::add(const Table& table, ObjectKind kind) {
  if (kind != ObjectKind::kNone && table.isAbout(kind)) looked_.set(bitOf(table.name, kind));
}

void Coverage::restrict(ObjectKind itemKind, const std::vector<std::string>& items) {
  std::vector<std::string>& names = items_[itemKind];
  names.clear();
  for (const std::string& item : items) names.push_back(folded(item));
  std::ranges::sort(names);
}

bool Coverage::includes(std::string_view table, ObjectKind kind, std::string_view item) const {
  if (findTable(table) == tables().size() || !looked_.test(bitOf(table, kind))) return false;
  if (item.empty() || isList(table, kind)) return true;
  const auto items = items_.find(itemKindOf(kind));
  return items == items_.end() || std::ranges::binary_search(items->second, folded(item));
}

bool Coverage::covers(const Coverage& other) const {
  bool covers = (other.looked_ & ~looked_).none();
  forEachEntry([&](const Table& table, ObjectKind kind) {
    const auto own = items_.find(itemKindOf(kind)), others = other.items_.find(itemKindOf(kind));
    if (own == items_.end() || !other.includes(table.name, kind) || isList(table.name, kind)) return;
    covers = covers && others != other.items_.end() && std::ranges::includes(own->second, others->second);
  });
  return covers;
}

std::string Coverage::tablesText() const {
  std::string text = "|";
  if (looked_ == everything().looked_) return text + "*" + std::to_string(tables().size()) + "|";
  forEachEntry([&](const Table& table, ObjectKind kind) {
    if (!includes(table.name, kind)) return;
    text.append(table.name);
    if (table.kinds[1] != ObjectKind::kNone) text.append(":").append(wordFor(kind));
    text.append("|");
  });
  return text;
}

std::string Coverage::itemsText() const {
  json items = json::object();
  for (const auto& [kind, names] : items_) items[std::string(wordFor(kind))] = names;
  return items.empty() ? "" : items.dump(-1, ' ', false, json::error_handler_t::replace);
}

Coverage Coverage::fromTexts(std::string_view tables, std::string_view items) {
  // The coverage of nearly all collections.
  static const Coverage kAll = everything();
  static const std::string kAllText = kAll.tablesText();
  Coverage coverage = tables == kAllText ? kAll : Coverage();
  while (!tables.empty() && tables != kAllText) {
    // Unknown tables of later versions are ignored.
    const std::string entry(tables.substr(0, tables.find('|')));
    tables.remove_prefix(std::min(tables.size(), entry.size() + 1));
    const std::string name = entry.substr(0, entry.find(':'));
    const std::size_t count = entry.starts_with('*') ? std::strtoul(entry.c_str() + 1, nullptr, 10) : 0;
    forEachEntry([&](const Table& table, ObjectKind kind) {
      const std::string_view word = name == entry ? wordFor(table.kinds[0]) : entry.c_str() + name.size() + 1;
      if (findTable(table.name) < count || (table.name == name && wordFor(kind) == word))
        coverage.add(table, kind);
    });
  }
  if (items.empty()) return coverage;
  try {
    const json all = json::parse(items);
    for (const auto& [word, names] : all.items())
      coverage.restrict(objectKind(word), names.get<std::vector<std::string>>());
  } catch (const json::exception&) {
    throw Error(R"(the column "Items" of "Collections" holds an invalid text)");
  }
  return coverage;
}

}  // namespace inventory
