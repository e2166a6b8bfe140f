// What every COM object of ours has in common.
#pragma once

#include <atomic>

#include "automation/com/system.h"

namespace automation::com {

// What keeps this library from being unloaded: its objects and locks.
inline std::atomic<long> livingParts = 0;

// COM's interfaces have no virtual destructor; nobody deletes through them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

// The reference count of an object with these interfaces, the first of which is its identity. It begins with
// one reference, which whoever makes it owns.
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

  // Answers QueryInterface where the object has the interface.
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
