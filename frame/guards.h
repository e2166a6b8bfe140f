// The four guards. Each routine of the component has one of them:
//
//   leave-on-failure     LeaveOnFailure(steps, handler)
//   continue-on-failure  ContinueOnFailure guard(handler); guard.step(...); guard.test(...); ...
//   silent               Silently(step)
//   none                 nothing: the failure passes to the caller
//
// A handler is called with the failure, a const ErrorState&. A failure inside a handler leaves the routine
// and goes to its caller.
//
// References are released at the end of their scope. A routine sets one to null itself only where the order
// shows outside: the mouse pointer is set back after everything has been released.
#pragma once

#include <memory>
#include <utility>

#include "frame/component.h"
#include "frame/current_error.h"

namespace TORVINFTPAppDataCom {

// Runs the steps. The first that fails ends them and hands its failure to the handler.
template <typename Steps, typename Handler>
void LeaveOnFailure(Steps&& steps, Handler&& handler) {
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

// What a continue-on-failure routine runs its steps with, each on its own: a failed one goes to the handler,
// and the routine continues after it.
class Guard {
 public:
  // Runs one step; an assignment that fails in it leaves its variable as it was. Returns whether the step
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

  // Runs a test. One that fails counts as passed.
  template <typename Test>
  bool test(Test&& test) const {
    bool bPassed = true;
    step([&] { bPassed = test(); });
    return bPassed;
  }

  // Runs a routine that opens something, and returns whether it is open. The test is for False, so one that
  // fails counts as not open.
  template <typename Open>
  bool opened(Open&& open) const {
    return !test([&] { return open() == False; });
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

  // The same, left as soon as `body` returns true.
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
  // bound that can't be read is logged, and there is nothing to count.
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
