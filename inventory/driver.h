// The interface of a database to an inventory. Drivers handle SQL, locks and connections, but know no tables.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "inventory/model.h"

namespace inventory {

// A value bound to a parameter of a statement.
using Parameter = std::variant<std::monostate, std::int64_t, std::string>;
using Parameters = std::vector<Parameter>;

// The differences between databases in generated SQL.
class Dialect {
 public:
  enum class Kind { kSqlite, kPostgres };

  explicit Dialect(Kind kind) : kind_(kind) {}

  bool isPostgres() const { return kind_ == Kind::kPostgres; }
  std::string_view typeName(Type type) const;

 private:
  Kind kind_;
};

// An identifier and a text literal in SQL.
std::string quotedName(std::string_view name);
std::string quotedText(std::string_view text);

// Joins the texts of items.
template <typename Items, typename TextOf>
std::string joined(const Items& items, const TextOf& textOf, std::string_view separator = ", ") {
  std::string text;
  bool isFirst = true;
  for (const auto& item : items) {
    if (!std::exchange(isFirst, false)) text += separator;
    text += textOf(item);
  }
  return text;
}

// The rows of a query. At most one is open on a session at a time; it must not outlive the session.
class Cursor {
 public:
  virtual ~Cursor() = default;

  // Moves to the next row, initially the first. Returns false after the last.
  virtual bool next() = 0;

  // A value of the row as text, valid until the next row. Booleans read as "1" and "0", reals as SQLite
  // writes them ("1.0"), and times as tables have them, whatever the database.
  virtual Cell cell(std::size_t column) = 0;
  virtual std::size_t columnCount() const = 0;

  std::string text(std::size_t column) { return std::string(cell(column).value_or("")); }
  // 0 for null.
  std::int64_t number(std::size_t column);
};

// Inserts rows into a table. A row has a value for each column of the insertion, of the column's type. Texts
// must stay valid until the row ends.
class Inserter {
 public:
  virtual ~Inserter() = default;

  virtual void text(Cell value) = 0;
  virtual void integer(std::int64_t value) = 0;
  virtual void real(double value) = 0;
  virtual void boolean(bool value) = 0;
  virtual void null() = 0;
  virtual void endRow() = 0;

  // Writes buffered rows; without it rows may be missing. The session must not be used otherwise before this
  // call.
  virtual void finish() = 0;
};

struct InsertColumn {
  std::string_view name;
  Type type = Type::kText;
};

// The names of columns as SQL lists them.
std::string namesOf(std::span<const InsertColumn> columns);

// A transaction of a database. Members throw Error or one of its kinds.
class Session {
 public:
  virtual ~Session() = default;

  virtual const Dialect& dialect() const = 0;

  // Runs one statement with the parameters $1, $2 and so on, or several without any.
  virtual void execute(const std::string& sql, const Parameters& parameters = {}) = 0;

  virtual std::unique_ptr<Cursor> query(const std::string& sql, const Parameters& parameters = {}) = 0;

  // Limits the time of later queries, which then throw Error; 0 for no limit.
  virtual void limitQueries(std::chrono::milliseconds limit) = 0;

  // Starts inserting rows into a table. At most one inserter is open on a session at a time.
  virtual std::unique_ptr<Inserter> insertInto(std::string_view table,
                                               std::span<const InsertColumn> columns) = 0;

  // The first value of the first row; empty if there is none.
  std::string value(const std::string& sql, const Parameters& parameters = {});
};

// A change of an inventory, made in one transaction.
struct Change {
  // Folded names of the servers that it changes, which are locked for other processes.
  std::vector<std::string> serverKeys;
  // Names the servers in messages.
  std::string subject;
  // Completes the message for an unknown outcome: "SUBJECT may or may not EFFECT".
  std::string effect = "have the new collection";
  // Updates the schema. First called with `mayChange` false: returns true if nothing needs to be done.
  std::function<bool(Session&, bool mayChange)> prepare;
  // May be called again if the connection was lost before the commit.
  std::function<void(Session&)> work;
};

// Options of a database.
struct Access {
  std::chrono::milliseconds wait{5000};            // the longest wait for a lock
  std::chrono::milliseconds serverTimeout{60000};  // the longest silence of a server
  bool force = false;                              // allow a database with other tables and no inventory
  std::string schema = "iis_inventory";            // of the tables, on a server
};

// A database. Used by one thread at a time, except change(), see concurrentChanges(), and the members marked
// as thread-safe. Members throw Error or one of its kinds.
class Driver {
 public:
  virtual ~Driver() = default;

  // The database's name for messages, without a password.
  virtual std::string shownName() const = 0;
  virtual const Dialect& dialect() const = 0;

  // Makes a change. Throws OutcomeUnknown if it may or may not have been committed.
  virtual void change(const Change& change) = 0;
  virtual int concurrentChanges() const { return 1; }

  // Begins a read transaction, which sees one snapshot.
  virtual std::unique_ptr<Session> read() = 0;
  // Whether long read transactions do not block publishers.
  virtual bool readsConcurrently() const = 0;

  // Throws Error if the tables cannot be created or written, before there is anything to publish. If there is
  // a schema, `checkSchema` is called with a read transaction.
  virtual void checkWritable(std::span<const std::string> tables,
                             const std::function<void(Session&)>& checkSchema) = 0;

  // Updates the statistics of tables after many rows were added to them.
  virtual void analyze(std::span<const std::string> tables) = 0;

  // Checks the database's internal structures. Returns a line per error.
  virtual std::vector<std::string> checkIntegrity() = 0;

  // Returns a notice for the user once; empty if there is none. Thread-safe.
  virtual std::string takeNotice() { return {}; }

  // Ends all waits and running statements, now and later. Thread-safe.
  virtual void stopWaiting() = 0;
};

// Opens a database for reading. The only change is to roll back an interrupted write.
std::unique_ptr<Driver> openSqlite(const std::string& file, const Access& access, bool forChange);
std::unique_ptr<Driver> openPostgres(const std::string& address, const Access& access);

}  // namespace inventory
