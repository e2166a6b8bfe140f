#include "host/gatherings.h"

#include <algorithm>
#include <set>

#include "automation/text.h"
#include "host/options.h"
#include "inventory/names.h"

namespace host {
namespace {

const std::vector<Gathering> kGatherings = {
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

bool onBothSides(const Gathering& gathering) {
  return std::count_if(kGatherings.begin(), kGatherings.end(),
                       [&](const Gathering& other) { return other.name == gathering.name; }) > 1;
}

}  // namespace

std::span<const Gathering> gatherings() {
  return kGatherings;
}

std::string gatheringNames() {
  std::string names;
  std::set<std::string_view> seen;
  for (const Gathering& gathering : kGatherings) {
    if (!seen.insert(gathering.name).second) continue;
    if (!names.empty()) names += ", ";
    names += gathering.name;
  }
  return names;
}

bool Selection::has(Side side, Kind kind) const {
  return std::any_of(gatherings.begin(), gatherings.end(), [&](const Gathering* gathering) {
    return gathering->side == side && gathering->kind == kind;
  });
}

bool Selection::needsList(Side side) const {
  return std::any_of(gatherings.begin(), gatherings.end(), [&](const Gathering* gathering) {
    return gathering->side == side && gathering->kind != Kind::kExtensions;
  });
}

Selection select(const std::vector<std::string>& names, const std::vector<std::string>& sites,
                 const std::vector<std::string>& pools) {
  const auto isKnown = [](const std::string& name) {
    return std::any_of(kGatherings.begin(), kGatherings.end(),
                       [&](const Gathering& gathering) { return inventory::sameName(gathering.name, name); });
  };
  for (const std::string& name : names) {
    if (!isKnown(name)) {
      throw UsageError("--only: there is no tab '" + name + "'; there are: " + gatheringNames());
    }
  }

  Selection selection;
  selection.sites = sites;
  selection.pools = pools;
  selection.isWhole = names.empty() && sites.empty() && pools.empty();
  const auto tell = [&](const char* option, const std::vector<std::string>& values) {
    for (const std::string& value : values) {
      selection.text += (selection.text.empty() ? "" : " ") + std::string(option) + " '" + value + "'";
    }
  };
  tell("--only", names);
  tell("--site", sites);
  tell("--pool", pools);
  const bool filtered = !sites.empty() || !pools.empty();
  for (const Gathering& gathering : kGatherings) {
    const bool named = std::any_of(names.begin(), names.end(), [&](const std::string& name) {
      return inventory::sameName(gathering.name, name);
    });
    if (!named && !names.empty()) continue;
    // A name that says its side by itself holds whatever else is named.
    const bool sideSaid = named && !onBothSides(gathering);
    const bool sideFiltered = gathering.side == Side::kFtp ? !sites.empty() : !pools.empty();
    if (filtered && !sideSaid && (!sideFiltered || gathering.kind == Kind::kExtensions)) continue;
    selection.gatherings.push_back(&gathering);
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
