// A database for a single collection.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "automation/text.h"
#include "sqlite/database.h"
#include "sqlite/row_log.h"

namespace platform::store {

class Session;

// A private database in memory, and in an unnamed temporary file if it grows. Used by one thread at a time.
// Members throw sqlite::Error.
class PrivateDatabase {
 public:
  // `name` is the database's name in messages and records: that of the file it replaces.
  explicit PrivateDatabase(const std::string& name);
  ~PrivateDatabase();
  PrivateDatabase(const PrivateDatabase&) = delete;
  PrivateDatabase& operator=(const PrivateDatabase&) = delete;

  const std::string& name() const;

  // The handle, shared with the connections, after all buffered rows were inserted.
  sqlite::Database& database();

  // Buffers the rows that connections add to a table in memory until they are queried or too large. The table
  // must not have constraints.
  void bufferRows(const std::string& table);

  // All rows of a buffered table, or null if some were inserted; then all are in the table. Valid until a
  // connection adds to the table.
  const sqlite::RowLog* bufferedRows(std::string_view table);

  // Removes these rows from the database and returns them; nullopt if bufferedRows() returns null.
  std::optional<sqlite::RowLog> takeBufferedRows(std::string_view table);

  // The bytes of its page cache, which empty() does not release.
  std::int64_t memoryInUse() const;

  // Removes all rows; the tables stay.
  void empty();

  // The message of the first operation that failed because the database is unusable or space, memory or the
  // temporary directory is exhausted; empty if none did. After such a failure the rows are unreliable.
  const std::string& fatalError() const;

 private:
  friend class ConnectionRedirect;
  std::shared_ptr<Session> session_;
};

// While it exists, connections that the calling thread opens to the private database's name use that database
// and share its handle. Connections of other threads and to other names open files. At most one per thread;
// destroyed on the thread that created it.
class ConnectionRedirect {
 public:
  explicit ConnectionRedirect(PrivateDatabase& database);
  ~ConnectionRedirect();
  ConnectionRedirect(const ConnectionRedirect&) = delete;
  ConnectionRedirect& operator=(const ConnectionRedirect&) = delete;
};

// The session to which the calling thread's connections to `name` are redirected, or null.
std::shared_ptr<Session> redirectedSession(automation::TextView name);

}  // namespace platform::store
