// The sections of a collection: the tabs of both classes, and the walks besides.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace host {

// The class of the component that collects a section.
enum class Side { kFtp, kPools };

enum class Kind { kTab, kVirtualDirectories, kExtensions, kAppliedObjects };

struct Section {
  std::string_view name;  // of a tab: as the component spells it
  Side side;
  Kind kind;
  std::vector<std::string_view> tables;
};

// All sections in the order of a collection. "General" occurs once for each side.
std::span<const Section> sections();

// The distinct names as a list for messages: all, or those of one side only.
std::string sectionNames();
std::string sectionNames(Side side);

// What a run collects of each server.
struct Selection {
  std::vector<const Section*> sections;
  // The selected sites and pools, as the user spells them; all if empty.
  std::vector<std::string> sites;
  std::vector<std::string> pools;
  // Whether everything is selected; if not, the options that select.
  bool isWhole = true;
  std::string text;

  bool has(Side side, Kind kind) const;
  // Whether the list of sites or of pools is needed.
  bool needsList(Side side) const;
};

// The selection of sections by name (ignoring case; all if empty), sites and pools. If only sites are named,
// the default sections and "General" mean those of FTP sites; if only pools are named, those of pools. Throws
// UsageError.
Selection select(const std::vector<std::string>& names, const std::vector<std::string>& sites,
                 const std::vector<std::string>& pools);

}  // namespace host
