// Shared by the snapshot and its builder: value keys, node hashes and path lookup.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/metabase/names.h"
#include "platform/metabase/schema.h"

namespace platform::metabase {

// The class of a node that has none.
inline constexpr std::string_view kNoClass = "IIsConfigObject";

inline constexpr std::uint32_t kNoNode = 0xFFFFFFFF;

// A value's key, from the highest bit: the property's id, so that keys sort by it; four bits with the type
// that the file declares plus 1, 0 if it declares none, all ones for parsed flags; one bit for SECURE; one
// bit for INHERIT.
inline constexpr unsigned kKeyNameShift = 6;
inline constexpr std::uint32_t kMaxNames = std::uint32_t{1} << (32 - kKeyNameShift);
inline constexpr std::uint32_t kKeyInherits = 1;
inline constexpr std::uint32_t kKeySecured = 2;
inline constexpr unsigned kKeyTypeShift = 2;
inline constexpr std::uint32_t kKeyTypeMask = 0xF << kKeyTypeShift;
inline constexpr std::uint32_t kKeyParsedFlags = kKeyTypeMask;

constexpr std::uint32_t makeKey(NameTable::Id name) {
  return name << kKeyNameShift;
}
constexpr NameTable::Id keyProperty(std::uint32_t key) {
  return key >> kKeyNameShift;
}
constexpr bool keyInherits(std::uint32_t key) {
  return (key & kKeyInherits) != 0;
}
constexpr bool keySecured(std::uint32_t key) {
  return (key & kKeySecured) != 0;
}
constexpr bool keyIsParsedFlags(std::uint32_t key) {
  return (key & kKeyTypeMask) == kKeyParsedFlags;
}
constexpr std::uint32_t typeBits(Type type) {
  return (static_cast<std::uint32_t>(type) + 1) << kKeyTypeShift;
}
constexpr std::optional<Type> keyType(std::uint32_t key) {
  const std::uint32_t bits = (key & kKeyTypeMask) >> kKeyTypeShift;
  return bits == 0 ? std::nullopt : std::optional(static_cast<Type>(bits - 1));
}

// The hash of a node for lookup by parent and name.
constexpr std::uint32_t nodeHash(std::uint32_t parent, std::uint32_t nameHash) {
  const std::uint64_t mixed = ((std::uint64_t{parent} << 32) | nameHash) * std::uint64_t{0x9E3779B97F4A7C15};
  return static_cast<std::uint32_t>((mixed ^ (mixed >> 32)) >> 5);
}

// The nodes along the last path looked up. Consecutive paths mostly share a prefix, which is then not looked
// up again, however long it is.
template <typename Unit>
class PathCache {
 public:
  using View = std::basic_string_view<Unit>;

  // The node at a path relative to `from`, which must be the same in all calls. `step(parent, component,
  // end)` returns the node of a path component that ends at `end`, or nullopt to stop. Returns nullopt if a
  // component is empty.
  template <typename Step>
  std::optional<std::uint32_t> follow(std::uint32_t from, View path, Step&& step) {
    const std::size_t shared = sharedFront(path);
    const auto isBelow = [&](const Entry& entry) {
      return entry.end <= shared && (entry.end == path.size() || path[entry.end] == '/');
    };
    while (!entries_.empty() && !isBelow(entries_.back())) entries_.pop_back();
    path_.replace(shared, std::basic_string<Unit>::npos, path, shared, View::npos);
    std::uint32_t at = entries_.empty() ? from : entries_.back().node;
    for (std::size_t end = entries_.empty() ? 0 : entries_.back().end;
         entries_.empty() || end < path.size();) {
      const std::size_t start = entries_.empty() ? 0 : end + 1;
      end = std::min(path.find('/', start), path.size());
      const std::optional<std::uint32_t> node =
          end == start ? std::nullopt : step(at, path.substr(start, end - start), end);
      if (!node) return std::nullopt;
      at = *node;
      entries_.push_back({end, at});
    }
    return at;
  }

 private:
  struct Entry {
    std::size_t end;
    std::uint32_t node;
  };

  // The length of the common prefix, compared in blocks because paths may be long.
  std::size_t sharedFront(View path) const {
    constexpr std::size_t kBlock = 64;
    const std::size_t most = std::min(path.size(), path_.size());
    std::size_t at = 0;
    while (at + kBlock <= most && std::memcmp(&path[at], &path_[at], kBlock * sizeof(Unit)) == 0)
      at += kBlock;
    while (at < most && path[at] == path_[at]) ++at;
    return at;
  }

  std::basic_string<Unit> path_;
  std::vector<Entry> entries_;
};

}  // namespace platform::metabase
