#include "platform/metabase/names.h"

#include <algorithm>
#include <random>
#include <utility>

namespace platform::metabase {
namespace {

using automation::TextView;

constexpr std::uint64_t kMultiplier = 0x9E3779B97F4A7C15;

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

// Iterates over the UTF-16 units of a valid UTF-8 text.
class Utf8Units {
 public:
  explicit Utf8Units(std::string_view text) : text_(text) {}

  bool done() const { return at_ == text_.size() && pendingLow_ == 0; }

  char16_t next() {
    if (pendingLow_ != 0) return std::exchange(pendingLow_, u'\0');
    const auto byte = static_cast<unsigned char>(text_[at_]);
    if (byte < 0x80) {
      ++at_;
      return byte;
    }
    const char32_t point = automation::nextPoint(text_, at_);
    if (point < 0x10000) return static_cast<char16_t>(point);
    pendingLow_ = static_cast<char16_t>(0xDC00 | ((point - 0x10000) & 0x3FF));
    return static_cast<char16_t>(0xD800 | ((point - 0x10000) >> 10));
  }

 private:
  std::string_view text_;
  std::size_t at_ = 0;
  char16_t pendingLow_ = 0;
};

// Every step depends on the seed, so collisions cannot be precomputed.
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
  // Fast path for ASCII.
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

NameTable::Id NameTable::enter(std::string_view utf8) {
  const auto [entry, isNew] = ids_.try_emplace(utf8, static_cast<Id>(names_.size()));
  if (isNew) names_.push_back(utf8);
  return entry->second;
}

}  // namespace platform::metabase
