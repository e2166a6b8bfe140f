// Shared by the tests that run under Wine.
#pragma once

#include <gtest/gtest.h>

#include "automation/com/dispatch_object.h"
#include "automation/com/failures.h"
#include "automation/com/owned.h"
#include "automation/com/values.h"
#include "automation/object.h"
#include "server/identifiers.h"
#include "tests/support/failures.h"

namespace test {

using namespace automation;
using com::OwnedException;
using com::OwnedText;
using com::OwnedValue;
using com::Pointer;

inline const GUID& guid(const TORVINFTPAppDataCom::Guid& id) {
  return reinterpret_cast<const GUID&>(id);
}

// A value of a type, which owns nothing.
template <typename Value>
VARIANT valueOf(VARTYPE type, Value value) {
  VARIANT made;
  VariantInit(&made);
  V_VT(&made) = type;
  static_assert(sizeof(Value) <= 8);
  memcpy(&V_I8(&made), &value, sizeof value);
  return made;
}

}  // namespace test
