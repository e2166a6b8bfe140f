#include "host/query/relation.h"

#include <fmt/core.h>

#include <algorithm>

#include "host/console/suggestion.h"
#include "host/sections.h"
#include "host/usage_error.h"
#include "inventory/names.h"

namespace host {
namespace {

using Strings = std::vector<std::string>;

[[noreturn]] void failUnknown(const std::string& name, const std::vector<Relation>& all) {
  Strings known;
  std::string list;
  for (const Relation& relation : all) {
    known.push_back(relation.name);
    list += (list.empty() ? "" : ", ") + relation.name;
  }
  for (const Section& section : sections()) known.emplace_back(section.name);
  const std::string suggestion = didYouMean(name, known);
  throw UsageError(
      fmt::format("no table '{}'{}", name, suggestion.empty() ? "; tables: " + list : suggestion));
}

}  // namespace

std::vector<Relation> relations() {
  std::vector<Relation> all;
  for (const inventory::Table& table : inventory::tables()) all.push_back({std::string(table.name), &table});
  for (const inventory::Table* const own : {&inventory::collectionsTable(), &inventory::problemsTable()})
    all.push_back({std::string(own->name), own});
  for (const inventory::DictionaryEntry& entry : inventory::dictionary()) {
    if (entry.isView && all.back().name != entry.relation) all.push_back({entry.relation});
  }
  return all;
}

std::vector<Relation> findRelations(const Strings& names) {
  const std::vector<Relation> all = relations();
  std::vector<Relation> found;
  const auto add = [&](std::string_view name) {
    const auto relation =
        std::ranges::find_if(all, [&](const Relation& each) { return inventory::sameName(each.name, name); });
    if (relation == all.end()) return false;
    if (std::ranges::find(found, relation->name, &Relation::name) == found.end()) found.push_back(*relation);
    return true;
  };
  for (const std::string& name : names) {
    if (add(name)) continue;
    bool isTab = false;
    for (const Section& section : sections()) {
      if (!inventory::sameName(section.name, name)) continue;
      isTab = true;
      for (const std::string_view table : section.tables) add(table);
    }
    if (!isTab) failUnknown(name, all);
  }
  return found;
}

}  // namespace host
