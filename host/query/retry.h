// Reading again after a lost connection.
#pragma once

#include "inventory/model.h"

namespace host {

// Runs a task that only reads, and once more from its beginning if the connection to the database is lost.
template <typename Task>
decltype(auto) retryOnDisconnect(const Task& task) {
  try {
    return task();
  } catch (const inventory::Unreachable&) {
    return task();
  }
}

}  // namespace host
