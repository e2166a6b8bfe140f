// Stand-ins for ADO's objects, on SQLite.
#pragma once

#include <chrono>

namespace platform::store {

// Registers ADODB.Connection and ADODB.Recordset with the process's runtime.
void registerStore();

// Sets how long an operation waits for a lock on a database file, for connections opened from now on. The
// default is 5 seconds.
void setLockWait(std::chrono::milliseconds wait);

}  // namespace platform::store
