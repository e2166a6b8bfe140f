// Adapts an automation::Object to COM.
#pragma once

#include "automation/com/owned.h"
#include "automation/object.h"

namespace automation::com {

// The IDispatch of an object: the original one of a DispatchObject, else a new adapter. Null for null.
//
// The adapter calls the object by name. It assigns a DISPID to any requested name; a missing member is
// reported by the call. A combined property-get and method call reads, and calls if that fails with 438.
// DISPID -4 returns an enumerator over the children.
Pointer<IDispatch> dispatchOf(const ObjectRef& object);

// The object behind an IDispatch that this library has created; null for any other.
ObjectRef exposedBy(IDispatch* dispatch);

}  // namespace automation::com
