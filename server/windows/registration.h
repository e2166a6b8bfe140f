// The library's entries in the registry's class table.
#pragma once

#include "automation/com/system.h"

namespace TORVINFTPAppDataCom {

// Registers both classes (with their programmatic ids, the library's path, the threading model Apartment) and
// the type library of this width. If one of them cannot be written, removes all of them and returns
// SELFREG_E_CLASS or SELFREG_E_TYPELIB.
HRESULT registerServer() noexcept;

// Removes everything that registerServer writes, with its keys. Succeeds if there is nothing to remove.
HRESULT unregisterServer() noexcept;

}  // namespace TORVINFTPAppDataCom
