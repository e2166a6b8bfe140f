// The four functions that the library exports, as named in the .def file.

#include "automation/com/implementation.h"
#include "automation/com/runtime.h"
#include "server/dispatch.h"
#include "server/windows/factory.h"
#include "server/windows/registration.h"

STDAPI DllCanUnloadNow() {
  return automation::com::livingParts == 0 && TORVINFTPAppDataCom::LivingObjects() == 0 ? S_OK : S_FALSE;
}

STDAPI DllGetClassObject(const CLSID& classId, const IID& interfaceId, void** factory) {
  if (factory == nullptr) return E_POINTER;
  *factory = nullptr;
  try {
    // Not at load time, when most system calls are forbidden.
    static const bool bound = (automation::com::stayLoaded(), automation::com::bindRuntime(), true);
    static_cast<void>(bound);
  } catch (...) {
    return E_OUTOFMEMORY;
  }
  return TORVINFTPAppDataCom::getFactory(classId, interfaceId, factory);
}

STDAPI DllRegisterServer() {
  return TORVINFTPAppDataCom::registerServer();
}

STDAPI DllUnregisterServer() {
  return TORVINFTPAppDataCom::unregisterServer();
}
