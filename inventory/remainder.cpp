#include "inventory/remainder.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

namespace inventory {

std::string_view wordFor(ItemKind kind) {
  if (kind == ItemKind::kSite) return "site";
  return kind == ItemKind::kPool ? "pool" : "";
}

ItemKind kindOf(std::string_view word) {
  if (word == "site") return ItemKind::kSite;
  return word == "pool" ? ItemKind::kPool : ItemKind::kNone;
}

std::span<const ItemKind> Remainder::kindsOf(const Table& table) {
  static constexpr std::array kAll = {ItemKind::kSite, ItemKind::kPool, ItemKind::kNone};
  const std::span all(kAll);
  const bool sites = hasColumn(table, kSiteColumn);
  const bool pools = hasColumn(table, kPoolColumn);
  if (sites) return all.first(pools ? 2 : 1);
  return pools ? all.subspan(1, 1) : all.last(1);
}

std::string Remainder::toText() const {
  nlohmann::json all = nlohmann::json::array();
  for (const Part& part : parts_) {
    nlohmann::json entry{{"table", part.table}};
    if (part.kind != ItemKind::kNone) entry["of"] = wordFor(part.kind);
    if (!part.everyItem || !part.items.empty()) entry[part.everyItem ? "without" : "only"] = part.items;
    all.push_back(std::move(entry));
  }
  return all.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

Remainder Remainder::fromText(std::string_view text) {
  try {
    Remainder remainder;
    const auto all = nlohmann::json::parse(text);
    for (const auto& entry : all.get_ref<const nlohmann::json::array_t&>()) {
      Part part{entry.at("table"), kindOf(entry.value("of", "")), !entry.contains("only"), {}};
      const char* const list = part.everyItem ? "without" : "only";
      if (entry.contains(list)) part.items = entry.at(list).get<std::set<std::string>>();
      remainder.parts_.push_back(std::move(part));
    }
    return remainder;
  } catch (const nlohmann::json::exception&) {
    throw Error("what is kept of a former publication can't be understood");
  }
}

Remainder Remainder::of(const Scope& scope) {
  Remainder all;
  if (scope.whole) {
    for (const Table& table : tables()) {
      for (const ItemKind kind : kindsOf(table))
        all.parts_.push_back({std::string(table.name), kind, true, {}});
    }
    return all;
  }
  for (const TableScope& given : scope.tables) {
    Part part{std::string(given.table), given.kind, given.everyItem, {}};
    for (const std::string& item : given.items) {
      if (!given.everyItem) part.items.insert(folded(item));
    }
    all.parts_.push_back(std::move(part));
  }
  return all;
}

void Remainder::subtract(const Scope& scope, const Newcomers& newcomers) {
  if (scope.whole) {
    parts_.clear();
    return;
  }
  std::erase_if(parts_, [&](Part& part) {
    return std::any_of(scope.tables.begin(), scope.tables.end(), [&](const TableScope& table) {
      return table.table == part.table && table.kind == part.kind && isReplaced(part, table);
    });
  });
  for (Part& part : parts_) {
    const auto found = newcomers.find(part.kind);
    if (part.everyItem && found != newcomers.end())
      part.items.insert(found->second.begin(), found->second.end());
  }
}

bool Remainder::covers(std::string_view table, ItemKind kind, std::string_view item) const {
  return std::any_of(parts_.begin(), parts_.end(), [&](const Part& part) {
    if (part.table != table || part.kind != kind) return false;
    if (item.empty()) return part.everyItem && part.items.empty();
    return part.everyItem != part.items.contains(folded(item));
  });
}

bool Remainder::coversSome(std::string_view table, ItemKind kind) const {
  return std::any_of(parts_.begin(), parts_.end(),
                     [&](const Part& part) { return part.table == table && part.kind == kind; });
}

// Takes the replaced items out of a part, and tells whether nothing of it is left.
bool Remainder::isReplaced(Part& part, const TableScope& scope) {
  if (scope.everyItem) return true;
  std::set<std::string> selected;
  std::set<std::string> there;
  for (const std::string& item : scope.items) selected.insert(folded(item));
  for (const std::string& item : scope.there) there.insert(folded(item));
  if (part.everyItem) {
    part.items.merge(selected);
    return std::includes(part.items.begin(), part.items.end(), there.begin(), there.end());
  }
  std::erase_if(part.items,
                [&](const std::string& item) { return selected.contains(item) || !there.contains(item); });
  return part.items.empty();
}

}  // namespace inventory
