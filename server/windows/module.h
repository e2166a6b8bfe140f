// The library as COM sees it: where it lies, and the type library inside it.
#pragma once

#include "automation/com/owned.h"
#include "automation/text.h"
#include "server/identifiers.h"

namespace TORVINFTPAppDataCom {

inline const GUID& systemGuid(const Guid& id) {
  static_assert(sizeof(Guid) == sizeof(GUID));
  return reinterpret_cast<const GUID&>(id);
}

// The library's whole path. Fails where it can't be told.
automation::Text modulePath();

// The type library in the library's resources, whether it is registered or not.
automation::com::Pointer<ITypeLib> typeLibrary();

}  // namespace TORVINFTPAppDataCom
