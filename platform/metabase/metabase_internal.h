// What the snapshot and its builder share: how a value's key and a node's hash are made.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/metabase/names.h"
#include "platform/metabase/schema.h"

namespace platform::metabase {

inline constexpr std::uint32_t kNoNode = 0xFFFFFFFF;

// A value's key: on top, so that keys sort by it, the name's number; below it the type that the file names
// plus 1 in four bits, 0 where it names none, all ones where the value is flags that stand as bits; whether
// the file says that the value is secured; and lowest whether it says that it is inherited.
inline constexpr unsigned kKeyNameShift = 6;
inline constexpr std::uint32_t kMostNames = std::uint32_t{1} << (32 - kKeyNameShift);
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

// The hash under which a node is found: its parent's number and its name's hash, mixed.
constexpr std::uint32_t nodeHash(std::uint32_t parent, std::uint32_t nameHash) {
  const std::uint64_t mixed = ((std::uint64_t{parent} << 32) | nameHash) * std::uint64_t{0x9E3779B97F4A7C15};
  return static_cast<std::uint32_t>((mixed ^ (mixed >> 32)) >> 5);
}

}  // namespace platform::metabase
