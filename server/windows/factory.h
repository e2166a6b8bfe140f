// The class factories.
#pragma once

#include "automation/com/system.h"

namespace TORVINFTPAppDataCom {

// Returns the factory of a class with the requested interface, or CLASS_E_CLASSNOTAVAILABLE for another
// class. The factory does not support aggregation, and its LockServer counts.
HRESULT getFactory(const CLSID& classId, const IID& interfaceId, void** factory) noexcept;

}  // namespace TORVINFTPAppDataCom
