// The four guards. Each routine of the component uses one of them:
//
//   leave-on-failure     LeaveOnFailure(steps, handler)
//   continue-on-failure  ContinueOnFailure guard(handler); guard.step(...); guard.test(...); ...
//   silent               Silently(step)
//   none                 nothing: the failure propagates to the caller
//
// A handler receives the failure as a const ErrorState&. A failure inside a handler leaves the routine and
// propagates to its caller.
//
// References are released at the end of their scope. A routine sets one to null itself only where the order
// is visible outside: the mouse pointer is reset after all references have been released.
#pragma once

#include <memory>
#include <utility>

#include "frame/component.h"
#include "frame/current_error.h"

namespace TORVINFTPAppDataCom {

// Runs the steps up to the first failure, which is passed to the handler.
template <typename Steps, typename Handler>
void LeaveOnFailure(Steps&& steps, Handler&& handler) {
  try {
    steps();
  } catch (const std::exception& failure) {
    const PendingError error(failure);
    handler(error.state());
  }
}

// Ignores a failure of the step.
template <typename Step>
void Silently(Step&& step) {
  try {
    step();
  } catch (const std::exception&) {
  }
}

// Runs each step of a continue-on-failure routine separately: a failure goes to the handler, and the routine
// continues after it.
class Guard {
 public:
  // Runs one step. An assignment that fails leaves its variable unchanged. Returns whether the step
  // succeeded.
  template <typename Step>
  bool step(Step&& step) const {
    try {
      step();
      return true;
    } catch (const std::exception& failure) {
      handle(failure);
      return false;
    }
  }

  // Evaluates a condition. A failure counts as true.
  template <typename Test>
  bool test(Test&& test) const {
    bool bPassed = true;
    step([&] { bPassed = test(); });
    return bPassed;
  }

  // Runs a routine that opens something and returns whether it is open. The routine's result is compared with
  // False, so a failure counts as not open.
  template <typename Open>
  bool opened(Open&& open) const {
    return !test([&] { return open() == False; });
  }

  // Calls `body` with each child of an object; `body` guards its own steps. A failure to start or continue
  // the enumeration is logged and ends it.
  template <typename Body>
  void forEach(const ObjectRef& objContainer, Body&& body) const {
    forEachUntil(objContainer, [&](const ObjectRef& objChild) {
      body(objChild);
      return false;
    });
  }

  // The same, but ends when `body` returns true.
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

  // Calls `body` with each index from the lower to the upper bound of an array, both 16 bits wide. A bound
  // that cannot be read is logged, and no index is visited.
  template <typename Body>
  void forEachIndex(const Variant& aList, Body&& body) const {
    std::int16_t intLower = 0;
    std::int16_t intUpper = 0;
    if (!step([&] { intLower = narrowToInt16(lowerBound(aList)); })) return;
    if (!step([&] { intUpper = narrowToInt16(upperBound(aList)); })) return;
    for (std::int32_t intIndex = intLower; intIndex <= intUpper; ++intIndex) body(intIndex);
  }

 protected:
  ~Guard() = default;

 private:
  virtual void handle(const std::exception& failure) const = 0;
};

template <typename Handler>
class ContinueOnFailure final : public Guard {
 public:
  explicit ContinueOnFailure(Handler handler) : handler_(std::move(handler)) {}

 private:
  void handle(const std::exception& failure) const override {
    const PendingError error(failure);
    handler_(error.state());
  }

  Handler handler_;
};

}  // namespace TORVINFTPAppDataCom
