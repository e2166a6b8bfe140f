#include "automation/com/exposed_object.h"

#include <algorithm>
#include <vector>

#include "automation/com/dispatch_object.h"
#include "automation/com/failures.h"
#include "automation/com/implementation.h"
#include "automation/com/values.h"

namespace automation::com {
namespace {

// A private interface id, distinct in each library built from these sources.
const IID& ownInterfaceId() {
  static const IID id = [] {
    IID made{};
    if (CoCreateGuid(&made) < 0) throw std::bad_alloc();
    return made;
  }();
  return id;
}

class Children final : public Implementation<IEnumVARIANT> {
 public:
  explicit Children(ObjectRef object) : object_(std::move(object)), walk_(object_->children()) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(const IID& id, void** found) override {
    if (found == nullptr) return E_POINTER;
    *found = nullptr;
    IEnumVARIANT* const self = this;
    return offer(id, IID_IUnknown, self, found) || offer(id, IID_IEnumVARIANT, self, found) ? S_OK
                                                                                            : E_NOINTERFACE;
  }

  HRESULT STDMETHODCALLTYPE Next(ULONG count, VARIANT* values, ULONG* fetched) override {
    if (fetched != nullptr) *fetched = 0;
    if (values == nullptr || (count > 1 && fetched == nullptr)) return E_POINTER;
    ULONG given = 0;
    try {
      for (; given < count; ++given) {
        const ObjectRef child = walk_ != nullptr ? walk_->next() : nullptr;
        if (child == nullptr) {
          walk_.reset();
          break;
        }
        values[given] = toSystem(Variant(child)).release();
      }
    } catch (...) {
      const Outgoing failure = outgoing({});
      while (given > 0) VariantClear(&values[--given]);
      return returnErrorObject(failure, IID_IEnumVARIANT);
    }
    if (fetched != nullptr) *fetched = given;
    return given == count ? S_OK : S_FALSE;
  }

  HRESULT STDMETHODCALLTYPE Skip(ULONG count) override {
    try {
      for (; count > 0; --count) {
        if (walk_ == nullptr || walk_->next() == nullptr) return S_FALSE;
      }
      return S_OK;
    } catch (...) {
      return returnErrorObject(outgoing({}), IID_IEnumVARIANT);
    }
  }

  HRESULT STDMETHODCALLTYPE Reset() override {
    try {
      walk_ = object_->children();
      return S_OK;
    } catch (...) {
      return returnErrorObject(outgoing({}), IID_IEnumVARIANT);
    }
  }

  HRESULT STDMETHODCALLTYPE Clone(IEnumVARIANT** clone) override {
    if (clone == nullptr) return E_POINTER;
    *clone = nullptr;
    return E_NOTIMPL;
  }

 private:
  ObjectRef object_;
  std::unique_ptr<Walk> walk_;
};

class ExposedObject final : public Implementation<IDispatch> {
 public:
  explicit ExposedObject(ObjectRef object) : object_(std::move(object)) {}

  const ObjectRef& object() const { return object_; }

  HRESULT STDMETHODCALLTYPE QueryInterface(const IID& id, void** found) override {
    if (found == nullptr) return E_POINTER;
    *found = nullptr;
    IDispatch* const self = this;
    if (offer(id, IID_IUnknown, self, found) || offer(id, IID_IDispatch, self, found)) return S_OK;
    return offer(id, ownInterfaceId(), this, found) ? S_OK : E_NOINTERFACE;
  }

  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
    if (count == nullptr) return E_POINTER;
    *count = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo** info) override {
    if (info == nullptr) return E_POINTER;
    *info = nullptr;
    return DISP_E_BADINDEX;
  }

  HRESULT STDMETHODCALLTYPE GetIDsOfNames(const IID&, LPOLESTR* names, UINT count, LCID,
                                          DISPID* numbers) override {
    if (names == nullptr || numbers == nullptr || count == 0) return E_INVALIDARG;
    try {
      std::fill(numbers, numbers + count, DISPID_UNKNOWN);
      const Text name(reinterpret_cast<const char16_t*>(names[0]));
      auto found = std::find(names_.begin(), names_.end(), name);
      if (found == names_.end()) found = names_.insert(names_.end(), name);
      numbers[0] = static_cast<DISPID>(found - names_.begin()) + 1;
      return count == 1 ? S_OK : DISP_E_UNKNOWNNAME;
    } catch (...) {
      return E_OUTOFMEMORY;
    }
  }

  HRESULT STDMETHODCALLTYPE Invoke(DISPID member, const IID& interfaceId, LCID, WORD kind,
                                   DISPPARAMS* parameters, VARIANT* result, EXCEPINFO* exception,
                                   UINT*) override {
    if (interfaceId != IID_NULL) return DISP_E_UNKNOWNINTERFACE;
    if (parameters == nullptr) return E_INVALIDARG;
    const Pointer<IDispatch> keepsItself(this);
    try {
      return invoke(member, kind, *parameters, result);
    } catch (...) {
      return returnException(outgoing({}), exception);
    }
  }

 private:
  HRESULT invoke(DISPID member, WORD kind, const DISPPARAMS& parameters, VARIANT* result) {
    if (member == DISPID_NEWENUM) {
      if (result == nullptr) return E_POINTER;
      V_UNKNOWN(result) = new Children(object_);
      V_VT(result) = VT_UNKNOWN;
      return S_OK;
    }
    if (member < 1 || static_cast<std::size_t>(member) > names_.size()) return DISP_E_MEMBERNOTFOUND;
    const Text name = names_[static_cast<std::size_t>(member) - 1];
    const bool writes = (kind & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) != 0;
    const UINT named = writes ? 1 : 0;
    if (parameters.cNamedArgs != named || parameters.cArgs < named) return DISP_E_NONAMEDARGS;

    std::vector<Variant> arguments;
    arguments.reserve(parameters.cArgs);
    for (UINT at = parameters.cArgs; at > named; --at)
      arguments.push_back(fromSystem(parameters.rgvarg[at - 1]));
    if (writes) {
      object_->write(name, arguments, fromSystem(parameters.rgvarg[0]));
      return S_OK;
    }
    const std::vector<Variant> before = arguments;
    const Variant answer = ask(name, arguments, kind);
    for (std::size_t at = 0; at < arguments.size(); ++at) {
      const VARIANT& passed = parameters.rgvarg[parameters.cArgs - 1 - at];
      if ((V_VT(&passed) & VT_BYREF) != 0 && !isSame(before[at], arguments[at])) {
        assignThrough(passed, arguments[at]);
      }
    }
    if (result != nullptr) *result = toSystem(answer).release();
    return S_OK;
  }

  Variant ask(const Text& name, std::vector<Variant>& arguments, WORD kind) {
    if ((kind & DISPATCH_PROPERTYGET) == 0) return object_->call(name, arguments);
    if ((kind & DISPATCH_METHOD) == 0) return object_->read(name, arguments);
    try {
      return object_->read(name, arguments);
    } catch (const Failure& failure) {
      if (failure.number() != number::kMemberNotSupported) throw;
    }
    return object_->call(name, arguments);
  }

  ObjectRef object_;
  std::vector<Text> names_;
};

}  // namespace

Pointer<IDispatch> dispatchOf(const ObjectRef& object) {
  if (object == nullptr) return {};
  if (const auto* foreign = dynamic_cast<const DispatchObject*>(object.get())) {
    return Pointer<IDispatch>(foreign->dispatch());
  }
  return Pointer<IDispatch>::adopt(new ExposedObject(object));
}

ObjectRef exposedBy(IDispatch* dispatch) {
  void* found = nullptr;
  if (dispatch->QueryInterface(ownInterfaceId(), &found) < 0 || found == nullptr) return nullptr;
  auto* const exposed = static_cast<ExposedObject*>(found);
  ObjectRef object = exposed->object();
  exposed->Release();
  return object;
}

}  // namespace automation::com
