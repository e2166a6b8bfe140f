// The current error: this thread's pending failure, as seen by the handler of a routine.
#pragma once

#include <cstdint>
#include <exception>

#include "frame/component.h"

namespace TORVINFTPAppDataCom {

struct ErrorState {
  std::int32_t number = 0;
  Text description;
  Text source;
};

// The current error of this thread; number 0 and empty texts while no handler runs.
const ErrorState& CurrentError();

void ClearError();

// Makes a failure the current error while a handler processes it. Clears the current error afterwards, also
// if the handler itself fails.
class PendingError {
 public:
  explicit PendingError(const std::exception& failure);
  ~PendingError();
  PendingError(const PendingError&) = delete;
  PendingError& operator=(const PendingError&) = delete;

  // The failure's number, description and source. A failure without a source was raised by the component
  // itself and gets the component's name.
  const ErrorState& state() const { return state_; }

 private:
  ErrorState state_;
};

}  // namespace TORVINFTPAppDataCom
