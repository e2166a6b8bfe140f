// RAII types for COM resources.
#pragma once

#include <new>
#include <utility>

#include "automation/com/system.h"
#include "automation/text.h"

namespace automation::com {

// A counted reference to an interface, or null.
template <typename Interface>
class Pointer {
 public:
  Pointer() = default;
  // Adds a reference.
  explicit Pointer(Interface* object) : object_(object) {
    if (object_ != nullptr) object_->AddRef();
  }
  Pointer(const Pointer& other) : Pointer(other.object_) {}
  Pointer(Pointer&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  ~Pointer() { reset(); }
  Pointer& operator=(Pointer other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }

  // Takes ownership of an existing reference.
  static Pointer adopt(Interface* object) {
    Pointer pointer;
    pointer.object_ = object;
    return pointer;
  }

  void reset() {
    if (Interface* const former = std::exchange(object_, nullptr)) former->Release();
  }

  // The address for an out parameter of a call.
  Interface** put() {
    reset();
    return &object_;
  }
  void** putVoid() { return reinterpret_cast<void**>(put()); }

  Interface* get() const { return object_; }
  Interface* operator->() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }
  Interface* release() { return std::exchange(object_, nullptr); }

  // Another interface of the same object, or null.
  template <typename Other>
  Pointer<Other> as() const {
    Pointer<Other> other;
    if (object_ == nullptr || object_->QueryInterface(__uuidof(Other), other.putVoid()) < 0) return {};
    return other;
  }

 private:
  Interface* object_ = nullptr;
};

inline TextView viewOf(BSTR text) {
  return text == nullptr ? TextView() : TextView(reinterpret_cast<const char16_t*>(text), SysStringLen(text));
}

// Allocates a BSTR, owned by the caller.
inline BSTR makeText(TextView text) {
  BSTR made =
      SysAllocStringLen(reinterpret_cast<const wchar_t*>(text.data()), static_cast<UINT>(text.size()));
  if (made == nullptr) throw std::bad_alloc();
  return made;
}

// A BSTR. Null is the empty text.
class OwnedText {
 public:
  OwnedText() = default;
  explicit OwnedText(TextView text) : text_(makeText(text)) {}
  OwnedText(const OwnedText&) = delete;
  OwnedText& operator=(const OwnedText&) = delete;
  ~OwnedText() { SysFreeString(text_); }

  BSTR get() const { return text_; }
  BSTR* address() { return &text_; }
  BSTR release() { return std::exchange(text_, nullptr); }
  TextView view() const { return viewOf(text_); }

 private:
  BSTR text_ = nullptr;
};

// A VARIANT, initially empty.
class OwnedValue {
 public:
  OwnedValue() { VariantInit(&value_); }
  OwnedValue(OwnedValue&& other) noexcept : value_(other.value_) { VariantInit(&other.value_); }
  OwnedValue(const OwnedValue&) = delete;
  OwnedValue& operator=(const OwnedValue&) = delete;
  ~OwnedValue() { VariantClear(&value_); }

  VARIANT& get() { return value_; }
  const VARIANT& get() const { return value_; }
  VARIANT release() {
    const VARIANT released = value_;
    VariantInit(&value_);
    return released;
  }

 private:
  VARIANT value_;
};

class OwnedArray {
 public:
  explicit OwnedArray(SAFEARRAY* array) : array_(array) {
    if (array_ == nullptr) throw std::bad_alloc();
  }
  OwnedArray(const OwnedArray&) = delete;
  OwnedArray& operator=(const OwnedArray&) = delete;
  ~OwnedArray() {
    if (array_ != nullptr) SafeArrayDestroy(array_);
  }
  SAFEARRAY* get() const { return array_; }
  SAFEARRAY* release() { return std::exchange(array_, nullptr); }

 private:
  SAFEARRAY* array_;
};

// An EXCEPINFO; its texts are freed by the caller.
class OwnedException {
 public:
  OwnedException() = default;
  OwnedException(const OwnedException&) = delete;
  OwnedException& operator=(const OwnedException&) = delete;
  ~OwnedException() {
    SysFreeString(info_.bstrSource);
    SysFreeString(info_.bstrDescription);
    SysFreeString(info_.bstrHelpFile);
  }
  EXCEPINFO& get() { return info_; }

 private:
  EXCEPINFO info_{};
};

// Locks the elements of a SAFEARRAY for access by pointer.
class ArrayAccess {
 public:
  explicit ArrayAccess(SAFEARRAY* array) : array_(array) {
    if (SafeArrayAccessData(array_, &data_) < 0) throw std::bad_alloc();
  }
  ArrayAccess(const ArrayAccess&) = delete;
  ArrayAccess& operator=(const ArrayAccess&) = delete;
  ~ArrayAccess() { SafeArrayUnaccessData(array_); }
  void* data() const { return data_; }

 private:
  SAFEARRAY* array_;
  void* data_ = nullptr;
};

}  // namespace automation::com
