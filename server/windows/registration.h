// The library's entries in the system's class table.
#pragma once

#include "automation/com/system.h"

namespace TORVINFTPAppDataCom {

// Enters both classes (with their programmatic ids, the library's path, the threading model Apartment) and
// the type library of this width. Where one of them can't be written it takes out what it has written and
// gives SELFREG_E_CLASS or SELFREG_E_TYPELIB.
HRESULT registerServer() noexcept;

// Takes out what registerServer enters and leaves no key. Nothing to take out is no failure.
HRESULT unregisterServer() noexcept;

}  // namespace TORVINFTPAppDataCom
