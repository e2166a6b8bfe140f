// The component's two classes as COM objects.
#pragma once

#include "automation/com/system.h"

namespace TORVINFTPAppDataCom {

// Creates an object of a class with the requested interface. Its classes have IUnknown, IDispatch, their dual
// interface and ISupportErrorInfo. A slot of the dual interface and the member of the same name are one
// operation; it reports a failure through the thread's error object in the first case and through EXCEPINFO
// in the second.
//
// By name, arguments are values of any type, by value, by reference or by reference to a VARIANT, positional
// or named; optional ones may be omitted; a method may be read like a property.
HRESULT createFTPCollection(const IID& interfaceId, void** object) noexcept;
HRESULT createAppPoolCollection(const IID& interfaceId, void** object) noexcept;

}  // namespace TORVINFTPAppDataCom
