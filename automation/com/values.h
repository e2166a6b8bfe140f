// Converts between Variant and VARIANT.
#pragma once

#include "automation/com/owned.h"
#include "automation/variant.h"

namespace automation::com {

// Converts a VARIANT of any type, by reference or not. A number that does not fit into 32 bits, or has a
// fraction, becomes a double, or its decimal text if a double would lose digits; a date becomes the system's
// text; an omitted argument Empty. Throws Failure 13 for multi-dimensional arrays, records, error values and
// objects without IDispatch.
Variant fromSystem(const VARIANT& value);

// Whether a VARIANT is an omitted argument, by reference or not.
bool isLeftOut(const VARIANT& value);

// Converts to a VARIANT: an array to one of VARIANTs, an object to its IDispatch.
OwnedValue toSystem(const Variant& value);

// Assigns a value through an argument by reference, converted to its type. Throws Failure 13 or 6 if that is
// not possible. The type of `target` must have VT_BYREF.
void assignThrough(const VARIANT& target, const Variant& value);

// Whether both have the same type and value; arrays and objects are compared by identity.
bool isSame(const Variant& left, const Variant& right);

}  // namespace automation::com
