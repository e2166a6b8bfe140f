// The four guards. Each routine of the component has one of them:
//
//   leave-on-failure     LeaveOnFailure(steps, handler)
//   continue-on-failure  ContinueOnFailure guard(handler); guard.step(...); guard.test(...); ...
//   silent               Silently(step)
//   none                 nothing: the failure passes to the caller
//
// A failure inside a handler leaves the routine and goes to its caller.
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "frame/component.h"
#include "frame/current_error.h"

namespace TORVINFTPAppDataCom {

using Handler = std::function<void(const ErrorState& objErr)>;

// Runs the steps. The first that fails ends them and hands its failure to the handler.
template <typename Steps>
void LeaveOnFailure(Steps&& steps, const Handler& handler) {
  try {
    steps();
  } catch (const std::exception& failure) {
    const PendingError error(failure);
    handler(error.state());
  }
}

// Drops a failed step.
template <typename Step>
void Silently(Step&& step) {
  try {
    step();
  } catch (const std::exception&) {
  }
}

// Runs each step on its own: a failed one goes to the handler, and the routine goes on behind it.
class ContinueOnFailure {
 public:
  explicit ContinueOnFailure(Handler handler) : handler_(std::move(handler)) {}

  // Runs one step; an assignment that fails in it leaves its variable as it was. Gives whether the step
  // succeeded.
  template <typename Step>
  bool step(Step&& step) const {
    try {
      step();
      return true;
    } catch (const std::exception& failure) {
      const PendingError error(failure);
      handler_(error.state());
      return false;
    }
  }

  // Runs a test. One that fails counts as passed.
  template <typename Test>
  bool test(Test&& test) const {
    bool bPassed = true;
    step([&] { bPassed = test(); });
    return bPassed;
  }

  // Walks the children of an object, each handed to `body`, which guards its own steps. A failure to begin or
  // to go on is logged and ends the walk: there is no next child to take.
  template <typename Body>
  void forEach(const ObjectRef& objContainer, Body&& body) const {
    forEachUntil(objContainer, [&](const ObjectRef& objChild) {
      body(objChild);
      return false;
    });
  }

  // The same, left as soon as `body` gives true.
  template <typename Body>
  void forEachUntil(const ObjectRef& objContainer, Body&& body) const {
    std::unique_ptr<automation::Walk> walk;
    if (!step([&] { walk = automation::children(objContainer); })) return;
    for (;;) {
      ObjectRef objChild;
      if (!step([&] { objChild = walk->next(); }) || objChild == nullptr) return;
      if (body(objChild)) return;
    }
  }

  // Counts from the lower to the upper bound of an array, both 16 bits wide, each index handed to `body`. A
  // bound that can't be had is logged, and there is nothing to count.
  template <typename Body>
  void forEachIndex(const Variant& aList, Body&& body) const {
    std::int16_t intLower = 0;
    std::int16_t intUpper = 0;
    if (!step([&] { intLower = narrowToInt16(lowerBound(aList)); })) return;
    if (!step([&] { intUpper = narrowToInt16(upperBound(aList)); })) return;
    for (std::int32_t intIndex = intLower; intIndex <= intUpper; ++intIndex) body(intIndex);
  }

 private:
  Handler handler_;
};

}  // namespace TORVINFTPAppDataCom
