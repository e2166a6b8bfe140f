// The collection of one server: the calls of a host to the component's two classes, in their order, into a
// database and logs that nobody else sees.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/collect/private_log.h"
#include "host/console/progress.h"
#include "host/sections.h"
#include "host/sources/sources.h"
#include "inventory/inventory.h"
#include "platform/store/private_database.h"

namespace host {

// The SQL text that makes one of the component's tables. Its texts compare without regard to case.
std::string stagingTableSql(const inventory::Table& table);

// A private database with the tables that the component writes to. Used for one collection after the other.
// Members throw sqlite::Error.
class StagingDatabase : public inventory::RowSource {
 public:
  // `name` is the inventory's, which the component's records name.
  explicit StagingDatabase(const std::string& name);

  platform::store::PrivateDatabase& database() { return database_; }

  std::unique_ptr<inventory::Rows> rows(const inventory::Table& table) const override;

  // How many rows its tables have.
  inventory::RowCounts rowCounts();

  // Takes the rows of a collection out of its database, or takes the whole database where they are too many.
  static std::unique_ptr<inventory::RowSource> takeRows(std::unique_ptr<StagingDatabase>& staging);

  // Makes a database ready for the next collection, or destroys it where a new one is better. Null is
  // allowed.
  static void recycle(std::unique_ptr<StagingDatabase>& staging) noexcept;

 private:
  // A database that has been larger keeps its memory and its temporary file.
  static constexpr std::int64_t kMostKeptBytes = 1024 * 1024;

  // Reading a table may mean to put rows into it first.
  mutable platform::store::PrivateDatabase database_;
  // By the table's place.
  mutable std::vector<sqlite::Statement> readings_;
  std::vector<sqlite::Statement> counts_;
};

// The logs of one collection after the other, in a folder.
struct PrivateLogs {
  explicit PrivateLogs(const std::filesystem::path& folder)
      : directory(folder), application(folder / "TORVINLog.Log"), server(folder / "server.log") {}

  std::filesystem::path directory;
  PrivateLog application;
  PrivateLog server;
};

// Why a collection can't be kept: something was lost that nobody can tell.
class Incomplete : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What has come of a server's collection.
struct Outcome {
  inventory::Collected collected;  // without the rows
  // What the server has, in words behind "has" or "have": why it gives nothing of one side.
  std::vector<std::string> remarks;
  // Those of the selection's sites and pools that the server has, as the user spells them.
  std::vector<std::string> foundSites;
  std::vector<std::string> foundPools;
};

// Collects a server into the staging, which must be empty. To be called on the thread that owns everything
// that it makes. Throws automation::Failure for a file that can't be used and a server that has nothing of
// either side, Incomplete for a collection that couldn't be kept whole.
Outcome collectServer(const Server& server, std::uint64_t maxSize, const Selection& selection,
                      StagingDatabase& staging, PrivateLogs& logs, const ProgressLine::Updaters& updaters);

}  // namespace host
