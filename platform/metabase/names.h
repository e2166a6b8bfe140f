// Case-insensitive names of nodes and properties, UTF-8 in files and UTF-16 from callers. Lookups do not
// allocate.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "automation/text.h"

namespace platform::metabase {

// A hash of the case-folded name, the same in both encodings. Seeded once per process, so that a file cannot
// force collisions. `utf8` must be valid.
std::uint32_t foldedHash(std::string_view utf8);
std::uint32_t foldedHash(automation::TextView text);

// Whether two names are equal, ignoring case. UTF-8 must be valid.
bool equalFolded(std::string_view left, std::string_view right);
bool equalFolded(std::string_view left, automation::TextView right);

// Assigns ids to names, from 0 in the order of entry. Stores views: the names' memory must outlive the table.
class NameTable {
 public:
  using Id = std::uint32_t;

  // The id of a name, which is added if it is new.
  Id enter(std::string_view utf8);

  // The id of a name, or nullopt.
  template <typename View>
  std::optional<Id> find(View name) const {
    const auto found = ids_.find(name);
    return found == ids_.end() ? std::nullopt : std::optional(found->second);
  }

  std::string_view text(Id id) const { return names_[id]; }
  std::size_t size() const { return names_.size(); }

 private:
  struct Hash {
    using is_transparent = void;
    template <typename View>
    std::size_t operator()(View name) const {
      return foldedHash(name);
    }
  };
  struct Equal {
    using is_transparent = void;
    template <typename View>
    bool operator()(std::string_view left, View right) const {
      return equalFolded(left, right);
    }
    bool operator()(automation::TextView left, std::string_view right) const {
      return equalFolded(right, left);
    }
  };

  std::vector<std::string_view> names_;
  std::unordered_map<std::string_view, Id, Hash, Equal> ids_;
};

}  // namespace platform::metabase
