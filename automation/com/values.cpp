#include "automation/com/values.h"

#include <charconv>
#include <limits>

#include "automation/com/dispatch_object.h"
#include "automation/com/exposed_object.h"
#include "automation/com/failures.h"

namespace automation::com {
namespace {

// Maximum nesting of references and arrays; a reference may be cyclic.
constexpr int kDeepest = 32;

Variant convert(const VARIANT& value, int depth);

// A number, or its decimal text, which also converts to a number, if a double would lose digits.
Variant exactly(double number, TextView digits) {
  if (digits.find(u'.') != digits.npos) {
    while (digits.back() == u'0') digits.remove_suffix(1);
    if (digits.back() == u'.') digits.remove_suffix(1);
  }
  Variant made(number);
  if (toText(made) != digits) made = digits;
  return made;
}

template <typename Number>
Variant wholeNumber(Number value) {
  if (std::in_range<std::int16_t>(value) && sizeof(Number) <= 2) return static_cast<std::int16_t>(value);
  if (std::in_range<std::int32_t>(value)) return static_cast<std::int32_t>(value);
  return exactly(static_cast<double>(value), decimalText(value));
}

// Via the shortest decimal text, so that 0.1 stays 0.1.
Variant singlePrecision(float value) {
  char digits[32];
  const auto written = std::to_chars(digits, digits + sizeof digits, value);
  double wide = value;
  std::from_chars(digits, written.ptr, wide);
  return wide;
}

Variant decimal(DECIMAL value) {
  double wide = 0;
  OwnedText digits;
  if (VarR8FromDec(&value, &wide) < 0 || VarBstrFromDec(&value, LOCALE_INVARIANT, 0, digits.address()) < 0)
    failOverflow();
  return exactly(wide, digits.view());
}

Variant currency(CY value) {
  OwnedText digits;
  if (VarBstrFromCy(value, LOCALE_INVARIANT, 0, digits.address()) < 0) failOverflow();
  return exactly(static_cast<double>(value.int64) / 10000, digits.view());
}

Variant date(DATE value) {
  OwnedText text;
  if (VarBstrFromDate(value, LOCALE_USER_DEFAULT, 0, text.address()) < 0) failTypeMismatch();
  return text.view();
}

Variant object(IUnknown* unknown) {
  if (unknown == nullptr) return ObjectRef();
  const auto dispatch = Pointer<IUnknown>(unknown).as<IDispatch>();
  if (!dispatch) failTypeMismatch();
  return objectOf(dispatch.get());
}

// Converts the value at an address; `type` is one that a VARIANT may contain or refer to.
Variant valueAt(VARTYPE type, const void* at, int depth) {
  switch (type) {
    case VT_I1:
      return std::int16_t{*static_cast<const signed char*>(at)};
    case VT_UI1:
      return wholeNumber(std::uint16_t{*static_cast<const unsigned char*>(at)});
    case VT_I2:
      return *static_cast<const std::int16_t*>(at);
    case VT_UI2:
      return std::int32_t{*static_cast<const std::uint16_t*>(at)};
    case VT_I4:
    case VT_INT:
      return *static_cast<const std::int32_t*>(at);
    case VT_UI4:
    case VT_UINT:
      return wholeNumber(*static_cast<const std::uint32_t*>(at));
    case VT_I8:
      return wholeNumber(*static_cast<const std::int64_t*>(at));
    case VT_UI8:
      return wholeNumber(*static_cast<const std::uint64_t*>(at));
    case VT_R4:
      return singlePrecision(*static_cast<const float*>(at));
    case VT_R8:
      return *static_cast<const double*>(at);
    case VT_CY:
      return currency(*static_cast<const CY*>(at));
    case VT_DECIMAL:
      return decimal(*static_cast<const DECIMAL*>(at));
    case VT_DATE:
      return date(*static_cast<const DATE*>(at));
    case VT_BOOL:
      return *static_cast<const VARIANT_BOOL*>(at) != VARIANT_FALSE;
    case VT_BSTR:
      return viewOf(*static_cast<const BSTR*>(at));
    case VT_DISPATCH:
    case VT_UNKNOWN:
      return object(*static_cast<IUnknown* const*>(at));
    case VT_ERROR:
      // Omitted arguments are passed on as such.
      if (*static_cast<const SCODE*>(at) != DISP_E_PARAMNOTFOUND) failTypeMismatch();
      return {};
    case VT_VARIANT:
      return convert(*static_cast<const VARIANT*>(at), depth + 1);
    default:
      failTypeMismatch();
  }
}

Variant array(SAFEARRAY* source, VARTYPE type, int depth) {
  Array made;
  if (source == nullptr) return made;
  LONG lower = 0;
  LONG upper = -1;
  if (SafeArrayGetDim(source) != 1 || SafeArrayGetLBound(source, 1, &lower) < 0 ||
      SafeArrayGetUBound(source, 1, &upper) < 0) {
    failTypeMismatch();
  }
  made.lowerBound = lower;
  const ArrayAccess access(source);
  const std::size_t size = SafeArrayGetElemsize(source);
  const std::int64_t count = std::int64_t{upper} - lower + 1;
  made.elements.reserve(static_cast<std::size_t>(count));
  for (std::int64_t at = 0; at < count; ++at) {
    const auto* const element = static_cast<const char*>(access.data()) + static_cast<std::size_t>(at) * size;
    made.elements.push_back(valueAt(type, element, depth + 1));
  }
  return made;
}

Variant convert(const VARIANT& value, int depth) {
  if (depth > kDeepest) failTypeMismatch();
  const VARTYPE type = V_VT(&value);
  const VARTYPE base = type & VT_TYPEMASK;
  const bool byReference = (type & VT_BYREF) != 0;
  if (byReference && V_BYREF(&value) == nullptr) failTypeMismatch();
  if ((type & VT_ARRAY) != 0) {
    return array(byReference ? *V_ARRAYREF(&value) : V_ARRAY(&value), base, depth);
  }
  if (byReference) return valueAt(base, V_BYREF(&value), depth);
  switch (type) {
    case VT_EMPTY:
      return {};
    case VT_NULL:
      return Null;
    case VT_DECIMAL:
      return valueAt(type, &V_DECIMAL(&value), depth);
    default:
      return valueAt(type, &V_I8(&value), depth);
  }
}

}  // namespace

Variant fromSystem(const VARIANT& value) {
  return convert(value, 0);
}

bool isLeftOut(const VARIANT& value) {
  const VARIANT* at = &value;
  for (int depth = 0; V_VT(at) == (VT_BYREF | VT_VARIANT) && V_VARIANTREF(at) != nullptr; ++depth) {
    if (depth > kDeepest) return false;
    at = V_VARIANTREF(at);
  }
  if (V_VT(at) == VT_ERROR) return V_ERROR(at) == DISP_E_PARAMNOTFOUND;
  return V_VT(at) == (VT_BYREF | VT_ERROR) && V_ERRORREF(at) != nullptr &&
         *V_ERRORREF(at) == DISP_E_PARAMNOTFOUND;
}

OwnedValue toSystem(const Variant& value) {
  OwnedValue made;
  VARIANT& out = made.get();
  if (value.isNull()) {
    V_VT(&out) = VT_NULL;
  } else if (const auto* text = value.as<Text>()) {
    V_BSTR(&out) = makeText(*text);
    V_VT(&out) = VT_BSTR;
  } else if (const auto* flag = value.as<bool>()) {
    V_VT(&out) = VT_BOOL;
    V_BOOL(&out) = *flag ? VARIANT_TRUE : VARIANT_FALSE;
  } else if (const auto* small = value.as<std::int16_t>()) {
    V_VT(&out) = VT_I2;
    V_I2(&out) = *small;
  } else if (const auto* whole = value.as<std::int32_t>()) {
    V_VT(&out) = VT_I4;
    V_I4(&out) = *whole;
  } else if (const auto* number = value.as<double>()) {
    V_VT(&out) = VT_R8;
    V_R8(&out) = *number;
  } else if (const auto* object = value.as<ObjectRef>()) {
    V_DISPATCH(&out) = dispatchOf(*object).release();
    V_VT(&out) = VT_DISPATCH;
  } else if (const Array* array = value.asArray()) {
    OwnedArray copy(
        SafeArrayCreateVector(VT_VARIANT, array->lowerBound, static_cast<ULONG>(array->elements.size())));
    {
      const ArrayAccess access(copy.get());
      auto* element = static_cast<VARIANT*>(access.data());
      for (const Variant& each : array->elements) *element++ = toSystem(each).release();
    }
    V_ARRAY(&out) = copy.release();
    V_VT(&out) = VT_ARRAY | VT_VARIANT;
  }
  return made;
}

void assignThrough(const VARIANT& target, const Variant& value) {
  OwnedValue made = toSystem(value);
  const VARTYPE type = V_VT(&target) & static_cast<VARTYPE>(~VT_BYREF);
  if (type == VT_VARIANT) {
    VARIANT& there = *V_VARIANTREF(&target);
    // A reference to a VARIANT that is itself a reference: assign through that one.
    if ((V_VT(&there) & VT_BYREF) != 0) return assignThrough(there, value);
    VariantClear(&there);
    there = made.release();
    return;
  }
  OwnedValue converted;
  if (const HRESULT code = VariantChangeType(&converted.get(), &made.get(), 0, type); code < 0) {
    throw Failure(numberOf(code), systemText(code));
  }
  VARIANT& out = converted.get();
  switch (type) {
    case VT_BSTR:
      SysFreeString(*V_BSTRREF(&target));
      *V_BSTRREF(&target) = V_BSTR(&out);
      V_VT(&out) = VT_EMPTY;
      break;
    case VT_DISPATCH:
    case VT_UNKNOWN:
      Pointer<IUnknown>::adopt(*V_UNKNOWNREF(&target)).reset();
      *V_UNKNOWNREF(&target) = V_UNKNOWN(&out);
      V_VT(&out) = VT_EMPTY;
      break;
    case VT_I1:
    case VT_UI1:
      *V_UI1REF(&target) = V_UI1(&out);
      break;
    case VT_I2:
    case VT_UI2:
    case VT_BOOL:
      *V_I2REF(&target) = V_I2(&out);
      break;
    case VT_I4:
    case VT_UI4:
    case VT_INT:
    case VT_UINT:
    case VT_R4:
      *V_I4REF(&target) = V_I4(&out);
      break;
    case VT_I8:
    case VT_UI8:
    case VT_R8:
    case VT_CY:
    case VT_DATE:
      *V_I8REF(&target) = V_I8(&out);
      break;
    default:
      failTypeMismatch();
  }
}

bool isSame(const Variant& left, const Variant& right) {
  const auto equal = [&]<typename T>(const T* value) {
    const T* const other = right.as<T>();
    return value != nullptr && other != nullptr && *value == *other;
  };
  if (left.isEmpty() || right.isEmpty()) return left.isEmpty() && right.isEmpty();
  if (left.isNull() || right.isNull()) return left.isNull() && right.isNull();
  if (left.asArray() != nullptr) return left.asArray() == right.asArray();
  return equal(left.as<bool>()) || equal(left.as<std::int16_t>()) || equal(left.as<std::int32_t>()) ||
         equal(left.as<double>()) || equal(left.as<Text>()) || equal(left.as<ObjectRef>());
}

}  // namespace automation::com
