// What an inventory needs of a kind of database. A driver knows SQL, locks and connections, and no table.
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

// What differs between the kinds of database in the SQL that the inventory generates.
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

// What `textOf` makes of some items, one after the other.
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

  // Goes to the next row, the first one at first. False when there is none left.
  virtual bool next() = 0;

  // A value of the row as text, valid until the next row. Booleans read as "1" and "0", reals as SQLite
  // writes them ("1.0"), and times as tables have them, whatever the database.
  virtual Cell cell(std::size_t column) = 0;
  virtual std::size_t columnCount() const = 0;

  std::string text(std::size_t column) { return std::string(cell(column).value_or("")); }
  // 0 for null.
  std::int64_t number(std::size_t column);
};

// Adds rows to a table. A row has as many values as the table was said to have columns, each of its column's
// type. Texts must live until the row ends.
class Inserter {
 public:
  virtual ~Inserter() = default;

  virtual void text(Cell value) = 0;
  virtual void integer(std::int64_t value) = 0;
  virtual void real(double value) = 0;
  virtual void boolean(bool value) = 0;
  virtual void null() = 0;
  virtual void endRow() = 0;

  // Writes what is buffered. Without it the rows may be missing. Nothing else may use the session before.
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

  // Ends each later query that takes longer, with Error; 0 for no limit.
  virtual void limitQueries(std::chrono::milliseconds limit) = 0;

  // Prepares the adding of rows to a table; only one inserter is open on a session at a time.
  virtual std::unique_ptr<Inserter> insertInto(std::string_view table,
                                               std::span<const InsertColumn> columns) = 0;

  // The first row's first value; empty where there is none.
  std::string value(const std::string& sql, const Parameters& parameters = {});
};

// A change of an inventory, made in one transaction or not at all.
struct Change {
  // Folded names of the servers that it changes; no other process changes one of them meanwhile.
  std::vector<std::string> serverKeys;
  // Names the servers in messages.
  std::string subject;
  // What may have happened where the outcome is unknown: "SUBJECT may or may not" comes before it.
  std::string effect = "have the new collection";
  // Brings the schema up to date. Called with `mayChange` false first: gives true where nothing is to be
  // done.
  std::function<bool(Session&, bool mayChange)> prepare;
  // May be called again where the connection was lost before anything was committed.
  std::function<void(Session&)> work;
};

// Options of a database.
struct Access {
  std::chrono::milliseconds wait{5000};            // the longest wait for a lock
  std::chrono::milliseconds serverTimeout{60000};  // the longest silence of a server
  bool force = false;                              // also into a database with other tables and no inventory
  std::string schema = "iis_inventory";            // of the tables, on a server
};

// A database, of whatever kind. Used by one thread at a time, but for change() where concurrentChanges()
// allows more, and for stopWaiting(). Members throw Error or one of its kinds.
class Driver {
 public:
  virtual ~Driver() = default;

  // The database's name as messages have it, without a password.
  virtual std::string shownName() const = 0;
  virtual const Dialect& dialect() const = 0;

  // Makes a change. Throws OutcomeUnknown if it cannot be known whether it was committed.
  virtual void change(const Change& change) = 0;
  virtual int concurrentChanges() const { return 1; }

  // A transaction for reading that sees one state.
  virtual std::unique_ptr<Session> read() = 0;
  // Whether such a transaction may last long without keeping others from publishing.
  virtual bool readsConcurrently() const = 0;

  // Refuses a database that cannot take these tables, before there is anything to publish. `checkSchema` is
  // called with a transaction for reading where there is a schema already.
  virtual void checkWritable(std::span<const std::string> tables,
                             const std::function<void(Session&)>& checkSchema) = 0;

  // Updates the statistics of tables after many rows were added to them.
  virtual void analyze(std::span<const std::string> tables) = 0;

  // Checks the database's own structures. Gives what is wrong, a line each.
  virtual std::vector<std::string> checkIntegrity() = 0;

  // A line about something that the user should know, given once; empty for none. From any thread.
  virtual std::string takeNotice() { return {}; }

  // Ends every wait and every running statement, now and later. From any thread.
  virtual void stopWaiting() = 0;
};

// Opens a database for reading; changes nothing, but for rolling back what a killed process left half
// written.
std::unique_ptr<Driver> openSqlite(const std::string& file, const Access& access, bool forChange);
std::unique_ptr<Driver> openPostgres(const std::string& address, const Access& access);

}  // namespace inventory
