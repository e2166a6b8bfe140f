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

std::vector<std::string> foldedAll(const std::vector<std::string>& names) {
  std::vector<std::string> all;
  for (const std::string& name : names) all.push_back(folded(name));
  std::sort(all.begin(), all.end());
  return all;
}

bool coversItems(const std::optional<std::vector<std::string>>& one,
                 const std::optional<std::vector<std::string>>& other) {
  if (!one) return true;
  return other && std::ranges::includes(*one, *other);
}

// The bit of a table and a kind, or nothing for a table that doesn't exist or isn't about the kind.
std::optional<std::size_t> placeOf(std::string_view name, ObjectKind kind) {
  const std::size_t at = findTable(name);
  if (at == tables().size() || kind == ObjectKind::kNone || !tables()[at].isAbout(kind)) return std::nullopt;
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
  if (const auto at = placeOf(table.name, kind)) looked_.set(*at);
}

void Coverage::restrict(ObjectKind itemKind, const std::vector<std::string>& items) {
  (itemKind == ObjectKind::kSite ? sites_ : pools_) = foldedAll(items);
}

bool Coverage::includes(std::string_view table, ObjectKind kind, std::string_view item) const {
  const auto at = placeOf(table, kind);
  if (!at || !looked_.test(*at)) return false;
  if (item.empty() || isList(table, kind)) return true;
  const ObjectKind itemKind = itemKindOf(kind);
  const auto& items = itemKind == ObjectKind::kSite ? sites_ : pools_;
  return itemKind == ObjectKind::kNone || !items || std::ranges::binary_search(*items, folded(item));
}

bool Coverage::covers(const Coverage& other) const {
  if ((other.looked_ & ~looked_).any()) return false;
  bool covers = true;
  forEachEntry([&](const Table& table, ObjectKind kind) {
    if (!other.includes(table.name, kind) || isList(table.name, kind)) return;
    const ObjectKind itemKind = itemKindOf(kind);
    if (itemKind == ObjectKind::kSite) covers = covers && coversItems(sites_, other.sites_);
    if (itemKind == ObjectKind::kPool) covers = covers && coversItems(pools_, other.pools_);
  });
  return covers;
}

std::string Coverage::tablesText() const {
  std::string text = "|";
  if (looked_ == everything().looked_) return text + "*" + std::to_string(inventory::tables().size()) + "|";
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
  if (sites_) items["site"] = *sites_;
  if (pools_) items["pool"] = *pools_;
  return items.empty() ? "" : items.dump(-1, ' ', false, json::error_handler_t::replace);
}

Coverage Coverage::fromTexts(std::string_view tables, std::string_view items) {
  Coverage coverage;
  tables.remove_prefix(std::min<std::size_t>(1, tables.size()));
  while (tables.size() > 1) {
    // A table of a later version is none that this one could miss.
    const std::string_view entry = tables.substr(0, tables.find('|'));
    tables.remove_prefix(std::min(tables.size(), entry.size() + 1));
    if (entry.starts_with('*')) {
      const auto count = static_cast<std::size_t>(std::atoi(std::string(entry.substr(1)).c_str()));
      forEachEntry([&](const Table& table, ObjectKind kind) {
        if (findTable(table.name) < count) coverage.add(table, kind);
      });
      continue;
    }
    const std::string_view name = entry.substr(0, entry.find(':'));
    const std::size_t table = findTable(name);
    if (table == inventory::tables().size()) continue;
    const bool hasKind = name.size() < entry.size();
    const ObjectKind kind =
        hasKind ? objectKind(entry.substr(name.size() + 1)) : inventory::tables()[table].kinds[0];
    coverage.add(inventory::tables()[table], kind);
  }
  if (items.empty()) return coverage;
  try {
    const json all = json::parse(items);
    const auto read = [&](const char* kind, std::optional<std::vector<std::string>>& into) {
      if (all.contains(kind)) into = foldedAll(all.at(kind).get<std::vector<std::string>>());
    };
    read("site", coverage.sites_);
    read("pool", coverage.pools_);
  } catch (const json::exception&) {
    throw Error("the column \"Items\" of \"Collections\" holds an invalid text");
  }
  return coverage;
}

}  // namespace inventory
