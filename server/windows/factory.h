// The class factories.
#pragma once

#include "automation/com/system.h"

namespace TORVINFTPAppDataCom {

// The factory of a class with the interface asked for, CLASS_E_CLASSNOTAVAILABLE for another class. A factory
// doesn't aggregate, and its LockServer counts.
HRESULT getFactory(const CLSID& classId, const IID& interfaceId, void** factory) noexcept;

}  // namespace TORVINFTPAppDataCom
