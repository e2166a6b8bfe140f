// The component's two classes as COM objects.
#pragma once

#include "automation/com/system.h"

namespace TORVINFTPAppDataCom {

// A new object of a class with the interface asked for. Its classes have IUnknown, IDispatch, their dual
// interface and ISupportErrorInfo. A slot of the dual interface and the same member by name are one
// operation, which fails through the thread's error object in the one case and through EXCEPINFO in the
// other.
//
// By name, arguments are values of any type, by value, by reference or by reference to a VARIANT, in their
// places or named; optional ones may be left out; a method may be asked for as a property.
HRESULT createFTPCollection(const IID& interfaceId, void** object) noexcept;
HRESULT createAppPoolCollection(const IID& interfaceId, void** object) noexcept;

}  // namespace TORVINFTPAppDataCom
