#include "frame/current_error.h"

#include <new>

namespace TORVINFTPAppDataCom {
namespace {

thread_local ErrorState currentError;

ErrorState stateOf(const std::exception& failure) {
  if (const auto* known = dynamic_cast<const Failure*>(&failure)) {
    return {known->number(), known->description(), known->source()};
  }
  // An unexpected exception of a library costs the host no more than the step that failed.
  const bool memory = dynamic_cast<const std::bad_alloc*>(&failure) != nullptr;
  return {memory ? automation::number::kOutOfMemory : automation::number::kInternal,
          automation::fromUtf8(failure.what()),
          {}};
}

}  // namespace

const ErrorState& CurrentError() {
  return currentError;
}

void ClearError() {
  currentError = {};
}

PendingError::PendingError(const std::exception& failure) : state_(stateOf(failure)) {
  if (state_.source.empty()) state_.source = u"TORVINFTPAppDataCom";
  currentError = state_;
}

PendingError::~PendingError() {
  ClearError();
}

}  // namespace TORVINFTPAppDataCom
