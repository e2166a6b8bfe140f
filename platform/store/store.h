// The store's objects behind the seam.
#pragma once

namespace platform::store {

// Enters ADODB.Connection and ADODB.Recordset in the process's runtime table.
void registerStore();

// Lets go of the database files that the calling thread keeps at hand for its next connection. Connections
// that are open keep theirs. When this was the process's last use of a file, all its rows are in the one
// plain file afterwards, unless another process has it open. A thread that ends does the same.
void releaseIdle() noexcept;

}  // namespace platform::store
