#include "automation/variant.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

#include "automation/failure.h"

namespace automation {
namespace {

// Parses a number; surrounding spaces are allowed.
std::optional<double> parseNumber(TextView text) {
  text = trimBlanks(text);
  if (!text.empty() && text.front() == u'+') {
    text.remove_prefix(1);
    if (!text.empty() && text.front() == u'-') return std::nullopt;
  }
  std::string digits;
  digits.reserve(text.size());
  for (const char16_t unit : text) {
    const bool allowed = (unit >= u'0' && unit <= u'9') || unit == u'.' || unit == u'-' || unit == u'+' ||
                         unit == u'e' || unit == u'E';
    if (!allowed) return std::nullopt;
    digits += static_cast<char>(unit);
  }
  double value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (error == std::errc::result_out_of_range) failOverflow();
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return value;
}

double toNumber(const Variant& value) {
  if (const auto* whole = value.as<std::int32_t>()) return *whole;
  if (const auto* whole = value.as<std::int16_t>()) return *whole;
  if (const auto* flag = value.as<bool>()) return *flag ? True : False;
  if (const auto* number = value.as<double>()) return *number;
  if (const auto* text = value.as<Text>()) {
    if (const auto number = parseNumber(*text)) return *number;
    failTypeMismatch();
  }
  if (value.isEmpty()) return 0;
  if (value.isNull()) failNull();
  failTypeMismatch();
}

template <typename Integer>
Integer roundTo(double value) {
  const double whole = std::nearbyint(value);
  if (!(whole >= std::numeric_limits<Integer>::min() && whole <= std::numeric_limits<Integer>::max())) {
    failOverflow();
  }
  return static_cast<Integer>(whole);
}

}  // namespace

Text toText(const Variant& value) {
  if (const auto* text = value.as<Text>()) return *text;
  if (const auto* whole = value.as<std::int32_t>()) return decimalText(*whole);
  if (const auto* whole = value.as<std::int16_t>()) return decimalText(*whole);
  if (const auto* flag = value.as<bool>()) return *flag ? u"True" : u"False";
  if (const auto* number = value.as<double>()) {
    // A double has 15 exact decimal digits; its longest text without an exponent has about 330 characters.
    char digits[400];
    char* const end = digits + sizeof digits;
    char* last = std::to_chars(digits, end, *number, std::chars_format::general, 15).ptr;
    if (std::find(digits, last, 'e') != last)
      last = std::to_chars(digits, end, *number, std::chars_format::fixed).ptr;
    return Text(digits, last);
  }
  if (value.isEmpty()) return {};
  if (value.isNull()) failNull();
  failTypeMismatch();
}

Text toText(Variant&& value) {
  if (auto* text = value.as<Text>()) return std::move(*text);
  return toText(std::as_const(value));
}

std::int16_t toInt16(const Variant& value) {
  return roundTo<std::int16_t>(toNumber(value));
}

std::int32_t toInt32(const Variant& value) {
  return roundTo<std::int32_t>(toNumber(value));
}

bool toBool(const Variant& value) {
  if (const auto* text = value.as<Text>()) {
    if (equalsIgnoringCase(*text, u"true")) return true;
    if (equalsIgnoringCase(*text, u"false")) return false;
  }
  return toNumber(value) != 0;
}

ObjectRef toObject(const Variant& value) {
  if (const auto* object = value.as<ObjectRef>()) return *object;
  if (value.isNull() || value.isEmpty()) return nullptr;
  failTypeMismatch();
}

std::int32_t lowerBound(const Variant& value) {
  const Array* array = value.asArray();
  if (array == nullptr) failTypeMismatch();
  return array->lowerBound;
}

std::int32_t upperBound(const Variant& value) {
  const Array* array = value.asArray();
  if (array == nullptr) failTypeMismatch();
  return array->upperBound();
}

const Variant& element(const Variant& value, std::int32_t index) {
  const Array* array = value.asArray();
  if (array == nullptr) failTypeMismatch();
  if (index < array->lowerBound || index > array->upperBound()) failSubscript();
  return array->elements[static_cast<std::size_t>(index - array->lowerBound)];
}

std::int32_t roundToInt32(double value) {
  return roundTo<std::int32_t>(value);
}

std::int16_t narrowToInt16(std::int32_t value) {
  if (value < std::numeric_limits<std::int16_t>::min() || value > std::numeric_limits<std::int16_t>::max()) {
    failOverflow();
  }
  return static_cast<std::int16_t>(value);
}

}  // namespace automation
