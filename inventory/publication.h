// Changes of an inventory, each within one transaction.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "inventory/driver.h"
#include "inventory/inventory.h"
#include "inventory/model.h"

namespace inventory {

// A server in an inventory.
struct KnownServer {
  std::int64_t id = 0;
  std::string name;
  std::int64_t current = 0;  // its current collection, 0 for none
};

using KnownServers = std::map<std::string, KnownServer>;  // by their folded names

// Adds unknown servers.
void addServers(Session& session, std::span<const std::string> names);

// The servers with these folded names.
KnownServers findServers(Session& session, std::span<const std::string> keys);

// An SQL condition for the ids of the rows or objects of some collections.
std::string idsCondition(std::string_view column, std::vector<std::int64_t> collections);

// Returns `count` ids for new collections. Ids are never reused.
std::vector<std::int64_t> newCollectionIds(Session& session, std::size_t count);

int readKeep(Session& session);

// Deletes collections and their rows.
void deleteCollections(Session& session, const std::vector<std::int64_t>& collections);

// Parses "Rows by table" of "Collections"; invalid counts are 0.
RowCounts rowCountsOf(std::string_view rowsByTable);

// Add a row to "objects", to "Problems" and to "Collections". `server` is the name that the collection's rows
// have.
void writeObject(const ObjectInfo& object, std::int64_t collection, Inserter& inserter);
void writeProblem(const Problem& problem, const std::string& server, std::int64_t id, std::int64_t collection,
                  std::int64_t object, Inserter& inserter);
void writeCollection(const CollectionInfo& info, std::int64_t id, std::int64_t serverId, Inserter& inserter);

// The SQL statement that makes a collection its server's current one.
std::string currentSql(std::int64_t serverId, const std::string& name, std::int64_t collection);

// Publishes collections of different servers.
std::vector<Published> publishAll(Session& session, std::span<const Collected> collected,
                                  const PublishOptions& options);

// The columns of a table's rows, bookkeeping columns first.
std::vector<InsertColumn> insertColumnsOf(const Table& table);

}  // namespace inventory
