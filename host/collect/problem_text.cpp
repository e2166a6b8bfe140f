#include "host/collect/problem_text.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

#include <fmt/core.h>

#include "automation/failure.h"

namespace host {
namespace {

namespace number = automation::number;

constexpr std::string_view kOverflow = "Overflow";
constexpr std::string_view kNotCounted = "the rest is not counted";
constexpr std::string_view kNotCollected = "none of them is collected";

// Each of these routines overflows only where it counts.
constexpr CountedItems kCounted[] = {{"GetFTPSitesCount", "sites", kNotCounted, ""},
                                     {"GenerateFTPSiteInfo", "sites", kNotCounted, ""},
                                     {"GetFTPPropertyInfo", "sites", kNotCounted, ""},
                                     {"GenerateFTPVirDirInfo", "directories", kNotCounted, ""},
                                     {"GetAppPoolsCount", "application pools", kNotCounted, ""},
                                     {"GetAppPoolPropertyInfo", "application pools", kNotCounted, ""},
                                     {"EnumAppsInPool", "applications", kNotCollected, "tblAppliedObject"}};

// Failures of the component itself, whose descriptions name neither a node nor a property.
struct Meaning {
  std::int32_t number;
  std::string_view description;
  std::string_view withProperty;  // after the property
  std::string_view other;
};
constexpr Meaning kMeanings[] = {
    {number::kOverflow, kOverflow, "does not fit in 16 bits", "a number does not fit in 16 bits"},
    {number::kSubscriptOutOfRange, "Subscript out of range", "has too few parts",
     "a value has too few parts"},
    {number::kTypeMismatch, "Type mismatch", "has the wrong type", "a value has the wrong type"},
    {number::kObjectNotSet, "Object variable not set", "cannot be read, so what depends on it is unknown",
     "an object is missing that an earlier step should have opened"},
    {number::kInvalidUseOfNull, "Invalid use of Null", "is not set", "a value is not set"}};

}  // namespace

const CountedItems* findCountOverflow(const Record& record) {
  if (record.number != number::kOverflow || record.message != kOverflow) return nullptr;
  const auto* const found = std::ranges::find(kCounted, record.routine, &CountedItems::routine);
  return found == std::end(kCounted) ? nullptr : found;
}

std::string messageOf(const CountedItems& counted) {
  return fmt::format("more than 32,767 {}: {} ({})", counted.items, counted.consequence, kOverflow);
}

bool isAboutNull(const Record& record) {
  return record.number == number::kInvalidUseOfNull && record.message == "Invalid use of Null";
}

std::string messageOf(const Record& record, const std::string& property) {
  for (const Meaning& meaning : kMeanings) {
    if (record.number != meaning.number || record.message != meaning.description) continue;
    const std::string text =
        property.empty() ? std::string(meaning.other) : fmt::format("{} {}", property, meaning.withProperty);
    return fmt::format("{} ({})", text, record.message);
  }
  return record.message;
}

}  // namespace host
