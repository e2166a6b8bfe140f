// What can be gathered of a server: the tabs of both classes, and what stands beside them.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace host {

// Which of the component's classes gathers it.
enum class Side { kFtp, kPools };

enum class Kind { kTab, kVirtualDirectories, kExtensions, kAppliedObjects };

struct Section {
  std::string_view name;  // a tab's name is spelled as the component wants it
  Side side;
  Kind kind;
  std::vector<std::string_view> tables;
};

// All of them, in the order in which a collection makes them. "General" stands in it once for each side.
std::span<const Section> sections();

// The distinct names, for a message: all of them, or those that one side alone has.
std::string sectionNames();
std::string sectionNames(Side side);

// What one run gathers of each server.
struct Selection {
  std::vector<const Section*> sections;
  // The sites and pools that it is restricted to; empty stands for all. Spelled as the user has spelled them.
  std::vector<std::string> sites;
  std::vector<std::string> pools;
  // Whether it is all that there is, and if not, the options that say so.
  bool isWhole = true;
  std::string text;

  bool has(Side side, Kind kind) const;
  // Whether it needs the list of the sites or of the pools.
  bool needsList(Side side) const;
};

// Makes a selection of the names (compared without regard to case; none stands for all of them), sites and
// pools. Where only sites are named, what isn't named and "General" are meant for FTP sites alone, and where
// only pools are, for pools alone. Throws UsageError.
Selection select(const std::vector<std::string>& names, const std::vector<std::string>& sites,
                 const std::vector<std::string>& pools);

}  // namespace host
