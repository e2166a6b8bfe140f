// The current error: the pending failure of this thread, as a routine's handler sees it.
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

// The current error of this thread: number 0 and empty texts while no handler is at work.
const ErrorState& CurrentError();

void ClearError();

// Makes a failure the current error for as long as a handler works on it. The current error is clear
// afterwards, also when the handler itself fails.
class PendingError {
 public:
  explicit PendingError(const std::exception& failure);
  ~PendingError();
  PendingError(const PendingError&) = delete;
  PendingError& operator=(const PendingError&) = delete;

  // The failure's number, description and source. A failure that names no source came from a step of the
  // component itself, and bears the component's name.
  const ErrorState& state() const { return state_; }

 private:
  ErrorState state_;
};

}  // namespace TORVINFTPAppDataCom
