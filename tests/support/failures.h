// Failures of actions.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "automation/failure.h"
#include "automation/text.h"

namespace test {

// The number and description of an action's failure; 0 if it succeeds.
template <typename Action>
std::pair<std::int32_t, std::string> failureOf(const Action& action) {
  try {
    action();
  } catch (const automation::Failure& failure) {
    return {failure.number(), automation::toUtf8(failure.description())};
  }
  return {0, ""};
}
template <typename Action>
std::int32_t failureNumber(const Action& action) {
  return failureOf(action).first;
}

}  // namespace test
