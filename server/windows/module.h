// The library as a COM module: its path and its embedded type library.
#pragma once

#include "automation/com/owned.h"
#include "automation/text.h"
#include "server/identifiers.h"

namespace TORVINFTPAppDataCom {

inline const GUID& systemGuid(const Guid& id) {
  static_assert(sizeof(Guid) == sizeof(GUID));
  return reinterpret_cast<const GUID&>(id);
}

// The library's full path. Fails if the system doesn't report it.
automation::Text modulePath();

// The type library in the library's resources, whether or not it is registered.
automation::com::Pointer<ITypeLib> typeLibrary();

}  // namespace TORVINFTPAppDataCom
