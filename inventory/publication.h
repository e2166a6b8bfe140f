// The changes of an inventory, each inside of one transaction.
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

// A server that an inventory knows.
struct KnownServer {
  std::int64_t id = 0;
  std::string name;
  std::int64_t current = 0;  // its current collection, 0 for none
};

using KnownServers = std::map<std::string, KnownServer>;  // by their folded names

// Adds unknown servers.
void addServers(Session& session, std::span<const std::string> names);

// The servers of these folded names.
KnownServers findServers(Session& session, std::span<const std::string> keys);

// A condition that holds for the ids of what some collections hold, or their objects.
std::string idsCondition(std::string_view column, std::vector<std::int64_t> collections);

// Returns `count` ids for new collections. Ids are never reused.
std::vector<std::int64_t> newCollectionIds(Session& session, std::size_t count);

int readKeep(Session& session);

// Deletes all that some collections hold, and the collections themselves.
void deleteCollections(Session& session, const std::vector<std::int64_t>& collections);

// Parses "Rows by table" of "Collections"; invalid counts are 0.
RowCounts rowCountsOf(std::string_view rowsByTable);

// Add a row to "objects", to "Problems" and to "Collections". `server` is the name that the collection's rows
// have.
void writeObject(const ObjectInfo& object, std::int64_t collection, Inserter& inserter);
void writeProblem(const Problem& problem, const std::string& server, std::int64_t id, std::int64_t collection,
                  std::int64_t object, Inserter& inserter);
void writeCollection(const CollectionInfo& info, std::int64_t id, std::int64_t serverId, Inserter& inserter);

// The statement that makes a collection its server's current one.
std::string currentSql(std::int64_t serverId, const std::string& name, std::int64_t collection);

// Publishes collections of different servers.
std::vector<Published> publishAll(Session& session, std::span<const Collected> collected,
                                  const PublishOptions& options);

// The columns with which rows of a table are written: those of bookkeeping first.
std::vector<InsertColumn> insertColumnsOf(const Table& table);

}  // namespace inventory
