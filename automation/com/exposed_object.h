// An automation object of ours as a COM object, for whoever it is handed out to.
#pragma once

#include "automation/com/owned.h"
#include "automation/object.h"

namespace automation::com {

// The IDispatch of an object: the one behind a DispatchObject, else a new one over the object. Null for null.
//
// The new one calls the object by name. A name gets its number when it is asked for, whether the object has
// such a member or not; the call then tells. Asked to read and to call at once it reads, and calls where that
// fails with 438. The number -4 gives an enumerator over the object's children.
Pointer<IDispatch> dispatchOf(const ObjectRef& object);

// The object behind an IDispatch that this library, and no other, has made; null for any other.
ObjectRef exposedBy(IDispatch* dispatch);

}  // namespace automation::com
