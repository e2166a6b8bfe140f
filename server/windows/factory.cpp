#include "server/windows/factory.h"

#include <new>

#include "automation/com/implementation.h"
#include "server/windows/classes.h"
#include "server/windows/module.h"

namespace TORVINFTPAppDataCom {
namespace {

using Create = HRESULT (*)(const IID& interfaceId, void** object) noexcept;

class Factory final : public automation::com::Implementation<IClassFactory> {
 public:
  explicit Factory(Create create) : create_(create) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(const IID& id, void** found) override {
    if (found == nullptr) return E_POINTER;
    *found = nullptr;
    IClassFactory* const self = this;
    return offer(id, IID_IUnknown, self, found) || offer(id, IID_IClassFactory, self, found) ? S_OK
                                                                                             : E_NOINTERFACE;
  }

  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, const IID& interfaceId, void** object) override {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (outer != nullptr) return CLASS_E_NOAGGREGATION;
    return create_(interfaceId, object);
  }

  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
    automation::com::livingParts += lock != 0 ? 1 : -1;
    return S_OK;
  }

 private:
  Create create_;
};

}  // namespace

HRESULT getFactory(const CLSID& classId, const IID& interfaceId, void** factory) noexcept {
  if (factory == nullptr) return E_POINTER;
  *factory = nullptr;
  Create create = nullptr;
  if (classId == systemGuid(kFTPCollectionClassId)) create = createFTPCollection;
  if (classId == systemGuid(kAppPoolCollectionClassId)) create = createAppPoolCollection;
  if (create == nullptr) return CLASS_E_CLASSNOTAVAILABLE;
  auto* const made = new (std::nothrow) Factory(create);
  if (made == nullptr) return E_OUTOFMEMORY;
  const auto owned = automation::com::Pointer<Factory>::adopt(made);
  return owned->QueryInterface(interfaceId, factory);
}

}  // namespace TORVINFTPAppDataCom
