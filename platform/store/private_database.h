// A database that belongs to one collection alone.
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

// A database that nobody else sees, in memory and in a nameless temporary file. Used by one thread at a time.
// Its members throw sqlite::Error.
class PrivateDatabase {
 public:
  // `name` is what the database is called in messages and records: that of the file whose place it takes.
  explicit PrivateDatabase(const std::string& name);
  ~PrivateDatabase();
  PrivateDatabase(const PrivateDatabase&) = delete;
  PrivateDatabase& operator=(const PrivateDatabase&) = delete;

  const std::string& name() const;

  // The handle that the connections use too. Everything that they have added stands in the tables.
  sqlite::Database& database();

  // Lets the rows that connections add to a table stay in memory, as they are, until somebody asks for them
  // or they grow too many. The table must take any row.
  void bufferRows(const std::string& table);

  // All rows of a table that may wait, where none of them has had to go into the table; else null, and they
  // stand there. Good until a connection adds to the table.
  const sqlite::RowLog* bufferedRows(std::string_view table);

  // Takes these rows out of the database; nothing where bufferedRows() gives null.
  std::optional<sqlite::RowLog> takeBufferedRows(std::string_view table);

  // The bytes that it keeps when it is empty. What isBuffered is let go of.
  std::int64_t memoryInUse() const;

  // Removes all rows; the tables stay.
  void empty();

  // What the first operation said that has failed for want of space, of memory or of a place for a temporary
  // file; empty where none has. The rows are not to be relied on then.
  const std::string& fatalError() const;

 private:
  friend class ConnectionRedirect;
  std::shared_ptr<Session> session_;
};

// While it lives, connections that the calling thread opens under the private database's name are connections
// to it; they share its one handle. Connections of other threads, and those under another name, get the file
// that their name means. One at a time on a thread, and ended on that thread.
class ConnectionRedirect {
 public:
  explicit ConnectionRedirect(PrivateDatabase& database);
  ~ConnectionRedirect();
  ConnectionRedirect(const ConnectionRedirect&) = delete;
  ConnectionRedirect& operator=(const ConnectionRedirect&) = delete;
};

// The session that the calling thread has on redirect under this name, or null.
std::shared_ptr<Session> redirectedSession(automation::TextView name);

}  // namespace platform::store
