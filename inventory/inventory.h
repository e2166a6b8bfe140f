// The inventory: collections of servers, each published in one transaction and immutable.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "inventory/driver.h"
#include "inventory/model.h"
#include "inventory/server_data.h"

namespace inventory {

struct KnownServer;

// Selects a collection of each server.
struct Selection {
  std::vector<std::string> servers;  // by name, ignoring case; empty for all
  std::string at;  // the latest one published not later than this time; empty for the current one
};

// A row of a table, valid until the next one.
class TableRow {
 public:
  TableRow(const Table& table, Cursor& cursor);
  // Must be called for each row of the cursor.
  void moveTo(const CollectionInfo& collection);

  const CollectionInfo& collection() const { return *collection_; }
  // By the index of the table's column.
  Cell cell(std::size_t column) const;
  bool isUnknown(std::size_t column) const;

 private:
  const Table& table_;
  Cursor& cursor_;
  const std::size_t first_;  // bookkeeping columns before the table's own
  const CollectionInfo* collection_ = nullptr;
  Cell notKnown_;
};

// Reads an inventory. On a server it sees one snapshot for its lifetime. In a file it reads each collection
// in a transaction of its own, so that other processes can publish; a collection that was deleted meanwhile
// is replaced by its server's current one, and `onSuccessor` is called. Members throw Error.
class Reader {
 public:
  using OnSuccessor = std::function<void(const CollectionInfo& deleted)>;

  // Maximum rows of a read that may take long.
  static constexpr std::int64_t kMaxRows = 20000;

  // Throws Error for a database without an inventory.
  explicit Reader(Driver& driver, OnSuccessor onSuccessor = {});

  // One collection for each server, in the order of the servers' folded names. Unknown servers of the
  // selection are skipped.
  std::vector<CollectionInfo> collections(const Selection& selection = {});
  // All collections, ordered by server and age, the oldest first.
  std::vector<CollectionInfo> history(const std::vector<std::string>& servers = {});
  // The names of all servers, in the order of their folded names.
  std::vector<std::string> serverNames();

  // Every row of a table (of tables(), "Collections" or "Problems") in some collections, in the order in
  // which they were published and then collected.
  void forEachRow(const Table& table, std::span<const CollectionInfo> collections,
                  const std::function<void(const TableRow&)>& each);

  // The data of some collections, in order. `each` takes ownership.
  void forEach(std::span<const CollectionInfo> collections,
               const std::function<void(std::unique_ptr<ServerData>)>& each);

  // Runs `work` for pieces of some collections, each in one transaction. `selected` is the argument for
  // withViews() that restricts the views to the piece.
  using Piece = std::function<void(Session&, std::span<const CollectionInfo>, const std::string& selected)>;
  void inViews(std::span<const CollectionInfo> collections, const Piece& work);

  // Whether the role may run programs or access files on its server.
  bool isPrivileged();

  // Splits some collections into pieces of at most `most` collections, each in one transaction. Collections
  // may have been deleted meanwhile.
  using OnPiece = std::function<void(Session&, std::span<const CollectionInfo> piece)>;
  void forEachPiece(std::span<const CollectionInfo> collections, std::size_t most, const OnPiece& each,
                    std::int64_t mostRows = kMaxRows);
  // The rows of some collections in a table, with all columns, in their order.
  static std::unique_ptr<Cursor> rowsOf(Session& session, const Table& table,
                                        const std::vector<std::int64_t>& collections);

 private:
  template <typename Work>
  void inTransaction(const Work& work);
  void endTransaction();
  std::size_t mostAtOnce() const;
  void forEachPresent(std::span<const CollectionInfo> collections, std::size_t most, const OnPiece& each,
                      std::int64_t mostRows = kMaxRows);
  std::optional<CollectionInfo> presentOf(Session& session, const CollectionInfo& wanted);
  std::vector<CollectionInfo> infos(const std::string& conditions);

  Driver& driver_;
  const OnSuccessor onSuccessor_;
  std::unique_ptr<Session> session_;
};

// Options of a publication.
struct PublishOptions {
  bool replace = false;  // also replace a collection with a larger coverage
};

// An inventory in a database. Used by one thread at a time, except publish(), see concurrentPublishers(), and
// stopWaiting(). Members throw Error.
class Inventory {
 public:
  // `force`: allow a database with other tables and no inventory.
  Inventory(std::unique_ptr<Driver> driver, bool force) : driver_(std::move(driver)), force_(force) {}

  std::string shownName() const { return driver_->shownName(); }

  // Throws Error if the database cannot be published into.
  void checkWritable();

  // Makes each collection its server's current one and deletes collections beyond the number to keep, in one
  // transaction. At most one collection per server. Throws ServerRefused for a collection that would replace
  // one with a larger coverage.
  std::vector<Published> publish(std::span<const Collected> collected, const PublishOptions& options = {});
  int concurrentPublishers() const { return driver_->concurrentChanges(); }

  // Replaces servers by all of their collections in another inventory, in one transaction. Returns the rows
  // by table.
  Published copyFrom(Inventory& source, const std::vector<std::string>& servers);

  // Removes servers with all their collections, or with a time only non-current collections published before
  // it. Returns the number of rows. Throws Error for an unknown server.
  std::int64_t remove(const std::vector<std::string>& servers, const std::string& before = {});

  // Renames a server: in "Server name", in addresses and in the messages of problems. Throws Error if the
  // server is unknown or another one has the name.
  void rename(const std::string& server, const std::string& name);

  // The number of collections kept of each server, at least 1. Older ones are deleted at the next
  // publication.
  int keep();
  void setKeep(int count);

  // Checks the inventory. Returns a line per error.
  std::vector<std::string> verify();

  // Updates statistics after many rows were added. Must be called after the last publication of a run.
  void finishPublishing();

  Reader read(Reader::OnSuccessor onSuccessor = {}) { return Reader(*driver_, std::move(onSuccessor)); }
  Driver& driver() { return *driver_; }

  // Ends all waits for other processes, now and later. Thread-safe.
  void stopWaiting() { driver_->stopWaiting(); }

 private:
  using Work = std::function<void(Session&, const std::map<std::string, KnownServer>&)>;

  // Changes servers in one transaction; see Change for `subject` and `effect`.
  void change(const std::vector<std::string>& servers, const std::string& subject, const std::string& effect,
              const Work& work);
  // Throws Error for an unknown server.
  void require(const std::string& server, const std::map<std::string, KnownServer>& known) const;

  std::unique_ptr<Driver> driver_;
  const bool force_;
  std::atomic<std::int64_t> addedRows_ = 0;
};

// Whether a database is one on a PostgreSQL server ("postgresql://...", "service=NAME", or libpq's
// "KEYWORD=VALUE ...") and not a file.
bool isOnServer(const std::string& database);

// A database's name for messages, without a password. Throws Error for an invalid address.
std::string shownName(const std::string& database);

// Opens an inventory for reading. The only change is to roll back an interrupted write.
std::unique_ptr<Inventory> openForReading(const std::string& database, const Access& access);

// Opens an inventory for publishing. A missing database is created by the first publication. Throws Error if
// the database cannot be published into.
std::unique_ptr<Inventory> openForPublishing(const std::string& database, const Access& access);

// Parses a UTC time such as 2026-01-31, 2026-01-31T12:00 or 2026-01-31T12:00:00Z; missing parts are zero.
// Throws Error for other texts.
std::string momentOf(const std::string& text);

}  // namespace inventory
