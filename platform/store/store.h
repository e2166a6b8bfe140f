// The store's objects behind the seam.
#pragma once

#include <chrono>

namespace platform::store {

// Enters ADODB.Connection and ADODB.Recordset in the process's runtime table.
void registerStore();

// How long an operation on a database file waits for a lock that somebody else holds before it fails, for
// connections opened from now on. Five seconds unless set.
void setLockWait(std::chrono::milliseconds wait);

}  // namespace platform::store
