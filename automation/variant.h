// The values of automation.
#pragma once

#include <charconv>
#include <concepts>
#include <cstdint>
#include <memory>
#include <utility>
#include <variant>
#include <vector>

#include "automation/text.h"

namespace automation {

class Object;
class Variant;
struct Array;

// A counted reference to an object, or null. An object is used only by the thread that created it.
using ObjectRef = std::shared_ptr<Object>;

// The 16-bit Boolean of automation: True is -1.
using VariantBool = std::int16_t;
constexpr VariantBool True = -1;
constexpr VariantBool False = 0;

// A value of an automation type. A default-constructed Variant is Empty, the value of an unassigned variable,
// which differs from Null, the result "no value".
class Variant {
 public:
  struct Null {};

  Variant() = default;
  Variant(Null) : value_(Null{}) {}
  Variant(bool value) : value_(value) {}
  Variant(std::int16_t value) : value_(value) {}
  Variant(std::int32_t value) : value_(value) {}
  Variant(double value) : value_(value) {}
  Variant(Text value) : value_(std::move(value)) {}
  Variant(TextView value) : value_(Text(value)) {}
  Variant(const char16_t* value) : value_(Text(value)) {}
  Variant(ObjectRef value) : value_(std::move(value)) {}
  Variant(Array value);
  Variant(std::shared_ptr<const Array> value) : value_(std::move(value)) {}

  // Copies a text before assigning it: std::variant becomes valueless if std::bad_alloc is thrown while it
  // copies a text.
  Variant(const Variant& other) {
    if (const Text* text = other.as<Text>()) {
      value_ = Text(*text);
    } else {
      value_ = other.value_;
    }
  }
  Variant(Variant&&) = default;
  Variant& operator=(const Variant& other) { return *this = Variant(other); }
  Variant& operator=(Variant&&) = default;
  ~Variant() = default;

  bool isEmpty() const { return std::holds_alternative<std::monostate>(value_); }
  bool isNull() const { return std::holds_alternative<Null>(value_); }

  // A pointer to the value if it has that type, else null. The types are those of the constructors.
  template <typename T>
  const T* as() const {
    return std::get_if<T>(&value_);
  }
  template <typename T>
  T* as() {
    return std::get_if<T>(&value_);
  }
  const Array* asArray() const {
    const auto* array = std::get_if<std::shared_ptr<const Array>>(&value_);
    return array != nullptr ? array->get() : nullptr;
  }

 private:
  std::variant<std::monostate, Null, bool, std::int16_t, std::int32_t, double, Text, ObjectRef,
               std::shared_ptr<const Array>>
      value_;
};

inline const Variant::Null Null{};

// A one-dimensional array. If it is empty, its upper bound is one less than its lower bound.
struct Array {
  std::vector<Variant> elements;
  std::int32_t lowerBound = 0;

  std::int32_t upperBound() const {
    return static_cast<std::int32_t>(lowerBound + static_cast<std::int64_t>(elements.size()) - 1);
  }
};

inline Variant::Variant(Array value) : value_(std::make_shared<const Array>(std::move(value))) {}

// The conversions of automation. Throw Failure 94 for Null, 13 for an unsuitable value, 6 for a number out of
// range. Empty converts to an empty text, 0 and False.
//
// A number becomes its decimal text, a Boolean "True" or "False".
Text toText(const Variant& value);
Text toText(Variant&& value);
// Converts numbers, Booleans (True is -1) and texts with a number. Fractions are rounded to the nearest
// integer, halves to the even one.
std::int16_t toInt16(const Variant& value);
std::int32_t toInt32(const Variant& value);
// Any number except 0 is True, also as a text. Accepts the words true and false in any case.
bool toBool(const Variant& value);
// Null and Empty become a null reference.
ObjectRef toObject(const Variant& value);

// The bounds and elements of an array. Throw Failure 13 if the value is not an array, 9 if the index is out
// of bounds.
std::int32_t lowerBound(const Variant& value);
std::int32_t upperBound(const Variant& value);
const Variant& element(const Variant& value, std::int32_t index);

// Rounds to the nearest integer, halves to the even one. Throws Failure 6 if the result does not fit.
std::int32_t roundToInt32(double value);

// Throws Failure 6 if the value does not fit.
std::int16_t narrowToInt16(std::int32_t value);

// The decimal text of an integer.
template <std::integral Number>
Text decimalText(Number value) {
  char digits[24];
  const auto written = std::to_chars(digits, digits + sizeof digits, value);
  return Text(digits, written.ptr);
}

}  // namespace automation
