// The inventory that a user keeps: what collections have brought, a server's former rows replaced at once.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "inventory/tables.h"

namespace inventory {

// What can't be done with an inventory, for the person who keeps it. what() is one line of UTF-8.
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Somebody else holds the inventory, and the wait for it has run out.
class Locked : public Error {
 public:
  using Error::Error;
};

// Somebody else publishes one of several servers; the others may be published without it.
class ServerLocked : public Locked {
 public:
  using Locked::Locked;
};

// The server on which the inventory is can't be reached, or is lost for the second time.
class Unreachable : public Error {
 public:
  using Error::Error;
};

// Values of a row in the order of its table's columns; nothing where none was written. Good until the next
// row.
using Cell = std::optional<std::string_view>;
using TakeRow = std::function<void(std::span<const Cell>)>;

// The rows of one table, one after the other.
class Rows {
 public:
  virtual ~Rows() = default;

  // Goes to the next row, the first one at first. False when there is none left.
  virtual bool next() = 0;

  // The value in one of the table's columns. Good until the next row.
  virtual Cell cell(std::size_t column) = 0;
};

// Rows with whose they are.
class OwnedRows : public Rows {
 public:
  // The folded name of the row's server. Good until the next row.
  virtual const std::string& server() = 0;
};

// Where the rows of a publication come from.
class RowSource {
 public:
  virtual ~RowSource() = default;

  // The rows of a table in their order. They must not outlive the source.
  virtual std::unique_ptr<Rows> rows(const Table& table) const = 0;
};

// Whose rows stand in a table: those of FTP sites, those of application pools, or others. Tells which column
// names the item that a row is about.
enum class ItemKind { kNone, kSite, kPool };

// What was collected, from where and when. Times are UTC, as in 2026-01-31T12:00:00.000Z.
struct Origin {
  std::string server;
  std::string file;
  std::int64_t fileSize = 0;
  std::string fileTime;
  std::string sha256;
  std::string started;
  std::string version;    // of the program
  std::string selection;  // empty for a whole collection
  double seconds = 0;
};

// Something that went wrong, with its place; empty texts where that isn't known.
struct Problem {
  bool isNote = false;
  std::string table;
  ItemKind itemKind = ItemKind::kNone;
  std::string item;
  std::string node;
  std::string property;
  std::string routine;
  std::optional<std::int32_t> number;
  std::string message;
  std::string time;  // UTC
};

// The rows of a table that a publication replaces: those of the selected items, and those of items that the
// server has no longer.
struct TableScope {
  std::string_view table;
  ItemKind kind = ItemKind::kNone;
  bool everyItem = true;
  std::vector<std::string> items;  // the selected ones, unless it is every item
  std::vector<std::string> there;  // those of the kind that the server has now
};

struct Scope {
  bool whole = true;  // everything of the server; `tables` is of no account then
  std::vector<TableScope> tables;
};

// What a collection has brought. The rows must stay as they are until they are published.
struct Result {
  Origin origin;
  Scope scope;
  const RowSource* rows = nullptr;
  std::vector<Problem> problems;
};

// A number of rows for each of tables(), in their order.
using RowCounts = std::vector<std::int64_t>;

struct Published {
  RowCounts replaced;
  RowCounts added;
  std::vector<Problem> problems;  // values that no inventory can hold as they were, told in it too
};

// A state of an inventory, unchanging as long as it is looked at. Members throw Error.
class Snapshot {
 public:
  virtual ~Snapshot() = default;

  // The names of the inventory's tables that are there: those of tables(), "Collections" and "Problems".
  virtual std::vector<std::string> tableNames() = 0;
  virtual std::vector<std::string> columnNames(const std::string& table) = 0;
  virtual std::int64_t rowCount(const std::string& table) = 0;
  // In the order of publication, within it in the order in which they were collected.
  virtual void forEach(const std::string& table, const TakeRow& take) = 0;

  // The servers that there is anything of, in the order of their names, as the last collection spells them.
  virtual std::vector<std::string> servers() = 0;

  // All rows of some servers in one of the tables, in the same order; none where the table isn't there.
  // Behind the columns of "Collections" stands what of the publication hasn't been replaced since, as a text.
  // The rows must not outlive the snapshot, and no others may be read at the same time.
  virtual std::unique_ptr<OwnedRows> rowsOf(const std::string& table,
                                            const std::vector<std::string>& servers) = 0;
};

// Used by one thread at a time, but for stopWaiting and for publishing where that goes side by side. Members
// throw Error.
class Inventory {
 public:
  virtual ~Inventory() = default;

  // Puts the results in the place of what stood for their servers, all of them or none. What is missing of
  // the tables is made with it. A server stands in one of the results at most.
  virtual std::vector<Published> publish(std::span<const Result> results) = 0;

  // Puts all that another inventory has of some servers in the place of what stands for them, all of them or
  // none.
  virtual Published take(Snapshot& from, const std::vector<std::string>& servers) = 0;

  // Removes all that stands for some servers, all of them or none. Gives the number of rows. Fails where
  // there is nothing of one of them.
  virtual std::int64_t remove(const std::vector<std::string>& servers) = 0;

  // Gives a server another name, everywhere where the program has written it: beside its rows, at the start
  // of paths, and in what is told of problems. Fails where there is nothing of the server, and where there is
  // a server of the new name; a name may change in its case alone.
  virtual void rename(const std::string& server, const std::string& name) = 0;

  // How many threads may publish at once.
  virtual int publishersAtOnce() const { return 1; }

  // How many rows stand for a server, in all tables.
  virtual std::int64_t rowsOf(const std::string& server) = 0;

  // Everything that is there at this moment. It keeps others from publishing as long as it lives.
  virtual std::unique_ptr<Snapshot> snapshot() = 0;

  // Lets go of every wait for somebody else, now and later. From any thread.
  virtual void stopWaiting() = 0;
};

struct Access {
  std::chrono::milliseconds wait{5000};  // how long to wait for somebody else
  bool force = false;  // also into a database that has somebody else's tables and none of ours
  std::string schema = "iis_inventory";  // that of the inventory's tables, on a server
};

// Whether a database is one on a PostgreSQL server ("postgresql://...", "postgres://..." or "service=NAME")
// and not a file.
bool isOnServer(std::string_view database);

// A database's name for everybody to see: the address of one on a server without the password that it may
// hold. Throws Error for an address that can't be one.
std::string shownName(const std::string& database);

// Opens an inventory for reading. Changes nothing, but for undoing the half change of a writer that was
// killed.
std::unique_ptr<Inventory> openForReading(const std::string& database, const Access& access);

// Opens an inventory for publishing; the database need not be there yet, and isn't made before something is
// published. Fails for one that can't take an inventory.
std::unique_ptr<Inventory> openForPublishing(const std::string& database, const Access& access);

}  // namespace inventory
