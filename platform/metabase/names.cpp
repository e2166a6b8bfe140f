#include "platform/metabase/names.h"

#include <algorithm>
#include <random>

namespace platform::metabase {
namespace {

using automation::TextView;

constexpr std::uint32_t kNone = 0xFFFFFFFF;
constexpr std::uint64_t kMultiplier = 0x9E3779B97F4A7C15;
constexpr std::size_t kFirstCapacity = 16;

std::uint64_t seed() {
  static const std::uint64_t value = [] {
    std::random_device device;
    return (std::uint64_t{device()} << 32) | device();
  }();
  return value;
}

char16_t fold(char16_t unit) {
  if (unit < 0x80) return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + 0x20) : unit;
  return automation::toLower(unit);
}

// The UTF-16 units of a valid UTF-8 text, one after the other.
class Utf8Units {
 public:
  explicit Utf8Units(std::string_view text) : at_(text.data()), end_(text.data() + text.size()) {}

  bool done() const { return at_ == end_ && pendingLow_ == 0; }

  char16_t next() {
    if (pendingLow_ != 0) {
      const char16_t low = pendingLow_;
      pendingLow_ = 0;
      return low;
    }
    const std::uint32_t lead = byte();
    if (lead < 0x80) return static_cast<char16_t>(lead);
    if (lead < 0xE0) return static_cast<char16_t>(((lead & 0x1F) << 6) | continuation());
    if (lead < 0xF0) {
      const std::uint32_t high = ((lead & 0x0F) << 12) | (continuation() << 6);
      return static_cast<char16_t>(high | continuation());
    }
    std::uint32_t point = (lead & 0x07) << 18;
    point |= continuation() << 12;
    point |= continuation() << 6;
    point |= continuation();
    point -= 0x10000;
    pendingLow_ = static_cast<char16_t>(0xDC00 | (point & 0x3FF));
    return static_cast<char16_t>(0xD800 | (point >> 10));
  }

 private:
  std::uint32_t byte() { return static_cast<unsigned char>(*at_++); }
  std::uint32_t continuation() { return at_ == end_ ? 0 : byte() & 0x3F; }

  const char* at_;
  const char* end_;
  char16_t pendingLow_ = 0;
};

// Mixes one unit in. Every step depends on the seed, so collisions cannot be worked out beforehand.
std::uint64_t mix(std::uint64_t hash, char16_t unit) {
  hash = (hash ^ unit) * kMultiplier;
  return hash ^ (hash >> 29);
}

std::uint32_t finish(std::uint64_t hash) {
  hash *= kMultiplier;
  return static_cast<std::uint32_t>(hash >> 32);
}

}  // namespace

std::uint32_t foldedHash(std::string_view utf8) {
  std::uint64_t hash = seed();
  for (Utf8Units units(utf8); !units.done();) hash = mix(hash, fold(units.next()));
  return finish(hash);
}

std::uint32_t foldedHash(TextView text) {
  std::uint64_t hash = seed();
  for (const char16_t unit : text) hash = mix(hash, fold(unit));
  return finish(hash);
}

bool equalFolded(std::string_view left, std::string_view right) {
  if (left == right) return true;
  Utf8Units leftUnits(left);
  Utf8Units rightUnits(right);
  while (!leftUnits.done() && !rightUnits.done()) {
    const char16_t a = leftUnits.next();
    const char16_t b = rightUnits.next();
    if (a != b && fold(a) != fold(b)) return false;
  }
  return leftUnits.done() && rightUnits.done();
}

bool equalFolded(std::string_view left, TextView right) {
  // ASCII first, for nearly every name is nothing else.
  const std::size_t most = std::min(left.size(), right.size());
  std::size_t at = 0;
  for (; at < most; ++at) {
    const auto byte = static_cast<unsigned char>(left[at]);
    if (byte >= 0x80 || right[at] >= 0x80) break;
    if (byte != right[at] && fold(byte) != fold(right[at])) return false;
  }
  Utf8Units leftUnits(left.substr(at));
  for (const char16_t b : right.substr(at)) {
    if (leftUnits.done()) return false;
    const char16_t a = leftUnits.next();
    if (a != b && fold(a) != fold(b)) return false;
  }
  return leftUnits.done();
}

template <typename View>
std::size_t NameTable::slotOf(View name, std::uint32_t hash) const {
  const std::size_t mask = slots_.size() - 1;
  std::size_t slot = hash & mask;
  while (slots_[slot].id != kNone &&
         (slots_[slot].hash != hash || !equalFolded(names_[slots_[slot].id], name))) {
    slot = (slot + 1) & mask;
  }
  return slot;
}

void NameTable::grow() {
  std::vector<Slot> larger(slots_.empty() ? kFirstCapacity : slots_.size() * 2, Slot{0, kNone});
  const std::size_t mask = larger.size() - 1;
  for (const Slot& old : slots_) {
    if (old.id == kNone) continue;
    std::size_t slot = old.hash & mask;
    while (larger[slot].id != kNone) slot = (slot + 1) & mask;
    larger[slot] = old;
  }
  slots_ = std::move(larger);
}

NameTable::Id NameTable::enter(std::string_view utf8) {
  if ((names_.size() + 1) * 2 > slots_.size()) grow();
  const std::uint32_t hash = foldedHash(utf8);
  Slot& slot = slots_[slotOf(utf8, hash)];
  if (slot.id == kNone) {
    slot = Slot{hash, static_cast<Id>(names_.size())};
    names_.push_back(utf8);
  }
  return slot.id;
}

std::optional<NameTable::Id> NameTable::find(std::string_view utf8) const {
  if (slots_.empty()) return std::nullopt;
  const Slot& slot = slots_[slotOf(utf8, foldedHash(utf8))];
  return slot.id == kNone ? std::nullopt : std::optional(slot.id);
}

std::optional<NameTable::Id> NameTable::find(TextView text) const {
  if (slots_.empty()) return std::nullopt;
  const Slot& slot = slots_[slotOf(text, foldedHash(text))];
  return slot.id == kNone ? std::nullopt : std::optional(slot.id);
}

}  // namespace platform::metabase
