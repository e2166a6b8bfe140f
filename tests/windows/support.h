// What the tests that run under Wine share.
#pragma once

#include <gtest/gtest.h>

#include "automation/com/dispatch_object.h"
#include "automation/com/failures.h"
#include "automation/com/owned.h"
#include "automation/com/values.h"
#include "automation/object.h"
#include "server/identifiers.h"

namespace test {

using namespace automation;
using com::OwnedException;
using com::OwnedText;
using com::OwnedValue;
using com::Pointer;

inline const GUID& guid(const TORVINFTPAppDataCom::Guid& id) {
  return reinterpret_cast<const GUID&>(id);
}

// The number and description of what an action fails with; 0 where it doesn't.
template <typename Action>
std::pair<std::int32_t, std::string> failureOf(const Action& action) {
  try {
    action();
  } catch (const Failure& failure) {
    return {failure.number(), toUtf8(failure.description())};
  }
  return {0, ""};
}
template <typename Action>
std::int32_t numberFrom(const Action& action) {
  return failureOf(action).first;
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
