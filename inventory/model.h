// Data that is written to and read from an inventory, independent of the database.
#pragma once

#include <bitset>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "inventory/catalog/catalog.h"

namespace inventory {

// An operation on an inventory that failed. what() is one line of UTF-8.
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A kind of error: a distinct class for each tag.
template <typename Tag, typename Base = Error>
class ErrorOfKind : public Base {
 public:
  using Base::Base;
};

// The database has no inventory.
using NoInventory = ErrorOfKind<struct NoInventoryTag>;
// The database is locked by another process and the wait has timed out.
using Locked = ErrorOfKind<struct LockedTag>;
// The database server is unreachable, or the connection to it was lost.
using Unreachable = ErrorOfKind<struct UnreachableTag>;
// The role or user lacks a privilege.
using Forbidden = ErrorOfKind<struct ForbiddenTag>;
// One of the servers of a change is refused; the others may be changed without it.
using ServerRefused = ErrorOfKind<struct ServerRefusedTag>;
// Another process is publishing one of the servers and the wait has timed out.
using ServerLocked = ErrorOfKind<struct ServerLockedTag, ServerRefused>;
// The change was interrupted by stopWaiting(). Nothing was committed.
using Interrupted = ErrorOfKind<struct InterruptedTag>;
// The change may or may not have been committed.
using OutcomeUnknown = ErrorOfKind<struct OutcomeUnknownTag>;

// A value of a column; nullopt for null.
using Cell = std::optional<std::string_view>;

// Iterates over the rows of a table.
class Rows {
 public:
  virtual ~Rows() = default;

  // Moves to the next row, initially the first. Returns false after the last.
  virtual bool next() = 0;

  // The value in one of the table's columns. Valid until the next row.
  virtual Cell cell(std::size_t column) = 0;
};

// The source of a collection's rows.
class RowSource {
 public:
  virtual ~RowSource() = default;

  // The rows of a table in their order. They must not outlive the source.
  virtual std::unique_ptr<Rows> rows(const Table& table) const = 0;
};

// The tables that a collection covers, and the sites and pools that it is restricted to.
class Coverage {
 public:
  // Every table, without restrictions.
  static Coverage everything();

  void add(const Table& table, ObjectKind kind);
  // Restricts the collection to some items of kSite or kPool, except for the table that lists them.
  void restrict(ObjectKind itemKind, const std::vector<std::string>& items);

  // Whether rows of a kind in a table were collected: of an item, or of any if `item` is empty.
  bool includes(std::string_view table, ObjectKind kind, std::string_view item = {}) const;
  // Whether this coverage includes the other one.
  bool covers(const Coverage& other) const;

  // The columns of "Collections": "|table|table:kind|...|", with the kind if a table has two, or "|*N|" for
  // the first N tables of the catalogue; and the items as JSON.
  std::string tablesText() const;
  std::string itemsText() const;
  // Throws Error for invalid texts.
  static Coverage fromTexts(std::string_view tables, std::string_view items);

 private:
  // Two bits per table, one for each kind.
  std::bitset<2 * tables().size()> looked_;
  // Folded names by kSite or kPool; no entry for no restriction.
  std::map<ObjectKind, std::vector<std::string>> items_;
};

// The circumstances of a collection: source, time, program and user. Times are UTC, as in
// 2026-01-31T12:00:00.000Z.
struct Origin {
  std::string server;
  std::string file;
  std::int64_t fileSize = 0;
  std::string fileTime;
  std::string sha256;
  std::string started;
  std::string version;    // of the program
  std::string selection;  // empty for everything
  double seconds = 0;
  std::string collectedBy;
  std::string machine;
};

// A failure and its location; unknown parts are empty.
struct Problem {
  bool isNote = false;
  std::string table;
  ObjectKind itemKind = ObjectKind::kNone;  // kSite or kPool
  std::string item;
  std::string node;
  std::string property;
  std::string routine;
  std::optional<std::int32_t> number;
  std::string message;
  std::string time;  // UTC
};

// The result of a collection. The rows must not change until they are published.
struct Collected {
  Origin origin;
  Coverage coverage = Coverage::everything();
  const RowSource* rows = nullptr;
  std::vector<Problem> problems;
  // The line of a node such as "/LM/MSFTPSVC/1" in the file, 0 if it is unknown. May be null.
  std::function<std::int64_t(const std::string& node)> lineOf;
};

// A number of rows for each of tables(), in their order.
using RowCounts = std::vector<std::int64_t>;
inline std::int64_t sumOf(const RowCounts& counts) {
  return std::accumulate(counts.begin(), counts.end(), std::int64_t{0});
}

struct Published {
  RowCounts replaced;  // of collections that were deleted
  RowCounts added;
  std::vector<Problem> problems;  // values that were replaced; also stored as problems
};

// A stored collection. The server's name is spelled as in its latest collection.
struct CollectionInfo : Origin {
  std::int64_t id = 0;
  std::int64_t serverId = 0;
  std::string serverKey;     // folded
  std::string recordedName;  // as the rows of this collection spell it; only for writing
  bool isCurrent = false;
  std::string published;
  std::int64_t rows = 0;
  RowCounts rowsByTable;
  std::int64_t problems = 0;
  std::int64_t notes = 0;
  Coverage coverage;
};

}  // namespace inventory
