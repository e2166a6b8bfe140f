// Variant to VARIANT and back.
#pragma once

#include "automation/com/owned.h"
#include "automation/variant.h"

namespace automation::com {

// The value of a VARIANT of any type, by reference or not. A number that 32 bits can't hold, and one with a
// fraction, becomes a double, or its decimal text where a double would lose a digit; a date the text that the
// system makes of it; an argument that was left out, Empty. An array of several dimensions, a record, an
// error value and an object without IDispatch fail with 13.
Variant fromSystem(const VARIANT& value);

// Whether a VARIANT stands for an argument that was left out, by reference or not.
bool isLeftOut(const VARIANT& value);

// The same value as the system holds it: an array as one of VARIANTs, an object as its IDispatch.
OwnedValue toSystem(const Variant& value);

// Puts a value where an argument by reference points, as the type that it has there. Fails with 13 or 6 where
// it can't be one. `target` is a VARIANT of a type with VT_BYREF.
void assignThrough(const VARIANT& target, const Variant& value);

// Whether both are the same value of the same type; of arrays and objects, the same one.
bool isSame(const Variant& left, const Variant& right);

}  // namespace automation::com
