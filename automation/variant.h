// The value that passes through the seam.
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

// A counted reference to an object; null where there is none. An object stays with the thread that created
// it.
using ObjectRef = std::shared_ptr<Object>;

// The 16-bit Boolean of automation: True is -1.
using VariantBool = std::int16_t;
constexpr VariantBool True = -1;
constexpr VariantBool False = 0;

// A value of one of the automation types. A Variant made without a value is Empty, which is not Null: Empty
// is what a variable holds before its first assignment, Null is the answer "no value".
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

  // A text is copied ahead of the variant that takes it: the standard library's doesn't survive a copy that
  // fails for lack of memory where it holds that a copy of these types never fails.
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

  // A pointer to the value where it is of that type, else null. The types are those of the constructors.
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

// An array of one dimension. Without elements its upper bound is one below its lower bound.
struct Array {
  std::vector<Variant> elements;
  std::int32_t lowerBound = 0;

  std::int32_t upperBound() const {
    return static_cast<std::int32_t>(lowerBound + static_cast<std::int64_t>(elements.size()) - 1);
  }
};

inline Variant::Variant(Array value) : value_(std::make_shared<const Array>(std::move(value))) {}

// The conversions of automation. Each fails with 94 for Null, 13 for a value that cannot be read so, 6 for a
// number out of range. Empty reads as an empty text, as 0 and as False.
//
// As text: a text stays as it is, a number gives its decimal text, a Boolean "True" or "False".
Text toText(const Variant& value);
Text toText(Variant&& value);
// As a number: a number, a Boolean (True is -1), or a text that holds a number. A fraction goes to the
// nearest whole number, one exactly halfway to the even neighbour.
std::int16_t toInt16(const Variant& value);
std::int32_t toInt32(const Variant& value);
// As a Boolean: any number but 0 is True, also in text form; the words true and false in any case.
bool toBool(const Variant& value);
// As an object: null for Null and Empty.
ObjectRef toObject(const Variant& value);

// The bounds and elements of an array. What is no array fails with 13, an index outside the bounds with 9.
std::int32_t lowerBound(const Variant& value);
std::int32_t upperBound(const Variant& value);
const Variant& element(const Variant& value, std::int32_t index);

// The number rounded to the nearest whole number, exactly halfway to the even neighbour, as a 32-bit integer.
// Fails with 6 where it does not fit.
std::int32_t roundToInt32(double value);

// A 32-bit value as a 16-bit one. Fails with 6 where it does not fit.
std::int16_t narrowToInt16(std::int32_t value);

// The decimal text of a whole number.
template <std::integral Number>
Text decimalText(Number value) {
  char digits[24];
  const auto written = std::to_chars(digits, digits + sizeof digits, value);
  return Text(digits, written.ptr);
}

}  // namespace automation
