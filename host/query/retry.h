// Retries reading after a lost connection.
#pragma once

#include "inventory/model.h"

namespace host {

// Runs a task that only reads, and repeats it once from its start if the connection to the database is lost.
// Returns the task's result. Throws what the task throws, inventory::Unreachable if it is lost again.
template <typename Task>
decltype(auto) retryOnDisconnect(const Task& task) {
  try {
    return task();
  } catch (const inventory::Unreachable&) {
    return task();
  }
}

}  // namespace host
