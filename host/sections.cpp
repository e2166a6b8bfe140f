#include "host/sections.h"

#include <algorithm>
#include <set>

#include "automation/text.h"
#include "host/usage_error.h"
#include "inventory/names.h"

namespace host {
namespace {

bool onBothSides(const Section& section) {
  return std::count_if(sections().begin(), sections().end(),
                       [&](const Section& other) { return other.name == section.name; }) > 1;
}

template <typename Wanted>
std::string join(const Wanted& isWanted) {
  std::string names;
  std::set<std::string_view> seen;
  for (const Section& section : sections()) {
    if (!isWanted(section) || !seen.insert(section.name).second) continue;
    if (!names.empty()) names += ", ";
    names += section.name;
  }
  return names;
}

}  // namespace

std::span<const Section> sections() {
  static const std::vector<Section> kSections = {
      {"General", Side::kFtp, Kind::kTab, {"tblGeneral"}},
      {"Log File Settings", Side::kFtp, Kind::kTab, {"tblLogFileSetting"}},
      {"Extended Log Properties", Side::kFtp, Kind::kTab, {"tblExtendedLogSetting"}},
      {"Security Accounts", Side::kFtp, Kind::kTab, {"tblSecurityAccounts"}},
      {"Message", Side::kFtp, Kind::kTab, {"tblMessageSetting"}},
      {"Home Directory", Side::kFtp, Kind::kTab, {"tblHomeDirectorySetting"}},
      {"Directory Security", Side::kFtp, Kind::kTab, {"tblDirectorySecuritySetting"}},
      {"Virtual Directories",
       Side::kFtp,
       Kind::kVirtualDirectories,
       {"tblvirtualDirectory", "tblvirtualDirSecurity"}},
      {"General", Side::kPools, Kind::kTab, {"tblGeneral"}},
      {"Worker Process Recycling", Side::kPools, Kind::kTab, {"tblWProcessRecycling"}},
      {"Memory Recycling", Side::kPools, Kind::kTab, {"tblMemoryRecycling"}},
      {"Performance", Side::kPools, Kind::kTab, {"tblPerformance"}},
      {"Health", Side::kPools, Kind::kTab, {"tblHealth"}},
      {"Identity", Side::kPools, Kind::kTab, {"tblIdentity"}},
      {"Web Service Extensions", Side::kPools, Kind::kExtensions, {"tblWSExtension"}},
      {"Applied Objects", Side::kPools, Kind::kAppliedObjects, {"tblAppliedObject"}},
  };
  return kSections;
}

std::string sectionNames() {
  return join([](const Section&) { return true; });
}

std::string sectionNames(Side side) {
  return join([&](const Section& section) { return section.side == side && !onBothSides(section); });
}

bool Selection::has(Side side, Kind kind) const {
  return std::any_of(sections.begin(), sections.end(),
                     [&](const Section* section) { return section->side == side && section->kind == kind; });
}

bool Selection::needsList(Side side) const {
  return std::any_of(sections.begin(), sections.end(), [&](const Section* section) {
    return section->side == side && section->kind != Kind::kExtensions;
  });
}

Selection select(const std::vector<std::string>& names, const std::vector<std::string>& sites,
                 const std::vector<std::string>& pools) {
  const auto isKnown = [](const std::string& name) {
    return std::any_of(sections().begin(), sections().end(),
                       [&](const Section& section) { return inventory::sameName(section.name, name); });
  };
  for (const std::string& name : names) {
    if (!isKnown(name)) {
      throw UsageError("--only: no tab '" + name + "'; tabs: " + sectionNames());
    }
  }

  Selection selection;
  selection.sites = sites;
  selection.pools = pools;
  selection.isWhole = names.empty() && sites.empty() && pools.empty();
  const auto addOption = [&](const char* option, const std::vector<std::string>& values) {
    for (const std::string& value : values) {
      selection.text += (selection.text.empty() ? "" : " ") + std::string(option) + " '" + value + "'";
    }
  };
  addOption("--only", names);
  addOption("--site", sites);
  addOption("--pool", pools);
  const bool filtered = !sites.empty() || !pools.empty();
  for (const Section& section : sections()) {
    const bool named = std::any_of(names.begin(), names.end(), [&](const std::string& name) {
      return inventory::sameName(section.name, name);
    });
    if (!named && !names.empty()) continue;
    // A name that only one side has selects that side.
    const bool sideSaid = named && !onBothSides(section);
    const bool sideFiltered = section.side == Side::kFtp ? !sites.empty() : !pools.empty();
    if (filtered && !sideSaid && (!sideFiltered || section.kind == Kind::kExtensions)) continue;
    selection.sections.push_back(&section);
  }
  if (!sites.empty() && !selection.needsList(Side::kFtp)) {
    throw UsageError("--site: nothing that --only names is about FTP sites");
  }
  if (!pools.empty() && !selection.needsList(Side::kPools)) {
    throw UsageError("--pool: nothing that --only names is about single application pools");
  }
  return selection;
}

}  // namespace host
