// The inventory that a user keeps: the collections of servers, written once and published whole.
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
  std::vector<std::string> servers;  // by their names, without regard to case; none for all
  std::string at;  // the latest one published not later than this time; empty for the current one
};

// A row of a table, valid until the next one.
class TableRow {
 public:
  TableRow(const Table& table, Cursor& cursor);
  // To be called for each row of the cursor.
  void moveTo(const CollectionInfo& collection);

  const CollectionInfo& collection() const { return *collection_; }
  // By the place in the table's columns.
  Cell cell(std::size_t column) const;
  bool isUnknown(std::size_t column) const;

 private:
  const Table& table_;
  Cursor& cursor_;
  const std::size_t first_;  // columns of bookkeeping ahead of the table's own
  const CollectionInfo* collection_ = nullptr;
  Cell notKnown_;
};

// Reads an inventory. On a server it sees one state for as long as it lives. In a file it reads each
// collection in a transaction of its own, so that other processes can publish; a collection that was
// deleted meanwhile is replaced by its server's current one, and `onSuccessor` is called. Members throw
// Error.
class Reader {
 public:
  using OnSuccessor = std::function<void(const CollectionInfo& deleted)>;

  // What is read at once where a reading may last.
  static constexpr std::int64_t kMaxRows = 20000;

  // Throws Error for a database without an inventory.
  explicit Reader(Driver& driver, OnSuccessor onSuccessor = {});

  // One collection for each server, in the order of the servers' folded names. A server of the selection that
  // isn't there is left out.
  std::vector<CollectionInfo> collections(const Selection& selection = {});
  // Every kept collection, by server and then from the oldest to the latest.
  std::vector<CollectionInfo> history(const std::vector<std::string>& servers = {});
  // The names of all servers, in the order of their folded names.
  std::vector<std::string> serverNames();

  // Every row of a table (of tables(), "Collections" or "Problems") in some collections, in the order in
  // which they were published and then collected.
  void forEachRow(const Table& table, std::span<const CollectionInfo> collections,
                  const std::function<void(const TableRow&)>& each);

  // Everything of some collections, one after the other, in their order. `each` may keep it.
  void forEach(std::span<const CollectionInfo> collections,
               const std::function<void(std::unique_ptr<ServerData>)>& each);

  // Runs `work` for some collections in pieces, each in one transaction. `selected` of withViews() is for
  // queries over the views, which show these collections and no others.
  using Piece = std::function<void(Session&, std::span<const CollectionInfo>, const std::string& selected)>;
  void inViews(std::span<const CollectionInfo> collections, const Piece& work);

  // Whether the role that reads may do more on its server than read tables: run programs, read files.
  bool isPrivileged();

  // Some collections in pieces, at most so many at once, each in one transaction. Some of them may have been
  // deleted meanwhile.
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

// How a publication treats what is there.
struct PublishOptions {
  bool replace = false;  // also a collection that looked at more
};

// An inventory in a database. Used by one thread at a time, but for publish() where concurrentPublishers()
// allows more, and for stopWaiting(). Members throw Error.
class Inventory {
 public:
  // `force`: also in a database that has other tables and no inventory.
  Inventory(std::unique_ptr<Driver> driver, bool force) : driver_(std::move(driver)), force_(force) {}

  std::string shownName() const { return driver_->shownName(); }

  // Refuses a database that an inventory cannot be published into.
  void checkWritable();

  // Makes each collection its server's current one, and deletes collections beyond those to be kept: all of
  // them or none. A server has one collection among them at most. Throws ServerRefused for a collection that
  // would replace one that looked at more.
  std::vector<Published> publish(std::span<const Collected> collected, const PublishOptions& options = {});
  int concurrentPublishers() const { return driver_->concurrentChanges(); }

  // Puts all collections of another inventory's servers in the place of what is kept of them, all or none.
  // Gives the rows by table.
  Published copyFrom(Inventory& source, const std::vector<std::string>& servers);

  // Removes servers with all their collections; with a time the collections published before it, but for the
  // current ones. Gives the number of rows. Throws Error for a server that isn't there.
  std::int64_t remove(const std::vector<std::string>& servers, const std::string& before = {});

  // Gives a server another name: in "Server name", in addresses and in the texts of problems. Throws Error
  // where the server isn't there, and where another one has the name.
  void rename(const std::string& server, const std::string& name);

  // How many collections of each server are kept, at least one. What is kept beyond goes at the next
  // publication.
  int keep();
  void setKeep(int count);

  // What is wrong with the inventory, a line each; none where all is well.
  std::vector<std::string> verify();

  // To be called after the last publication of a run; updates statistics where that pays.
  void finishPublishing();

  Reader read(Reader::OnSuccessor onSuccessor = {}) { return Reader(*driver_, std::move(onSuccessor)); }
  Driver& driver() { return *driver_; }

  // Ends every wait for another process, now and later. From any thread.
  void stopWaiting() { driver_->stopWaiting(); }

 private:
  using Work = std::function<void(Session&, const std::map<std::string, KnownServer>&)>;

  // Changes servers, `subject` in messages. `effect` is what may have happened where the outcome is unknown.
  void change(const std::vector<std::string>& servers, const std::string& subject, const std::string& effect,
              const Work& work);
  // Throws Error for a server that isn't among the known ones.
  void require(const std::string& server, const std::map<std::string, KnownServer>& known) const;

  std::unique_ptr<Driver> driver_;
  const bool force_;
  std::atomic<std::int64_t> addedRows_ = 0;
};

// Whether a database is one on a PostgreSQL server ("postgresql://...", "postgres://..." or "service=NAME")
// and not a file.
bool isOnServer(std::string_view database);

// A database's name as messages have it: an address without the password that it may hold. Throws Error for
// an address that cannot be one.
std::string shownName(const std::string& database);

// Opens an inventory for reading. Changes nothing, but for rolling back what a killed process left half
// written.
std::unique_ptr<Inventory> openForReading(const std::string& database, const Access& access);

// Opens an inventory for publishing; the database need not be there yet, and isn't made before something is
// published. Fails for one that cannot take an inventory.
std::unique_ptr<Inventory> openForPublishing(const std::string& database, const Access& access);

// Takes a text such as 2026-01-31, 2026-01-31T12:00 or 2026-01-31T12:00:00Z, in UTC, for a moment; what is
// missing is zero. Throws Error for another text.
std::string momentOf(const std::string& text);

}  // namespace inventory
