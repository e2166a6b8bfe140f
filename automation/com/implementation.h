// Common parts of this library's COM objects.
#pragma once

#include <atomic>

#include "automation/com/system.h"

namespace automation::com {

// The number of objects and locks that prevent unloading of this library.
inline std::atomic<long> livingParts = 0;

// COM's interfaces have no virtual destructor and are not deleted through.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

// Implements reference counting for the interfaces, the first of which is the identity. The creator owns the
// initial reference.
template <typename... Interfaces>
class Implementation : public Interfaces... {
 public:
  Implementation() { ++livingParts; }
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }

 protected:
  virtual ~Implementation() { --livingParts; }

  // Implements QueryInterface.
  template <typename Interface>
  bool offer(const IID& wanted, const IID& id, Interface* object, void** found) {
    if (wanted != id) return false;
    *found = object;
    AddRef();
    return true;
  }

 private:
  std::atomic<ULONG> references_{1};
};

#pragma GCC diagnostic pop

}  // namespace automation::com
