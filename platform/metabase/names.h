// Names without regard to case: of nodes and of properties, UTF-8 in the file and UTF-16 from a caller.
// Nothing here allocates for a look-up.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "automation/text.h"

namespace platform::metabase {

// A hash of the name with its case folded, the same for both encodings of one name. It is seeded once per
// process, so that no file can be made to collide. `utf8` must be valid.
std::uint32_t foldedHash(std::string_view utf8);
std::uint32_t foldedHash(automation::TextView text);

// Whether two names are equal without regard to case. UTF-8 must be valid.
bool equalFolded(std::string_view left, std::string_view right);
bool equalFolded(std::string_view left, automation::TextView right);

// The texts of names with a number each, counted from 0 in the order of entry. The table keeps views only:
// what they look at must outlive it.
class NameTable {
 public:
  using Id = std::uint32_t;

  // The number of a name, entered if it is new.
  Id enter(std::string_view utf8);

  // The number of a name, or nothing where it was never entered.
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
