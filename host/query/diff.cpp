#include "host/query/diff.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "host/console/suggestion.h"
#include "host/query/comparison.h"
#include "host/query/diff_output.h"
#include "host/query/retry.h"
#include "host/query/servers.h"
#include "host/usage_error.h"
#include "inventory/names.h"

namespace host {
namespace {

using inventory::CollectionInfo;
using inventory::ServerData;
using Strings = std::vector<std::string>;

// Returns the folded names of the columns to leave out. Throws UsageError for an unknown column.
Strings foldIgnoredColumns(const Strings& names) {
  Strings all;
  for (const inventory::Table& table : inventory::tables()) {
    for (const inventory::Column& column : table.columns) all.emplace_back(column.name);
  }
  Strings ignored;
  for (const std::string& name : names) {
    ignored.push_back(inventory::folded(name));
    if (std::ranges::none_of(all, [&](const std::string& each) { return inventory::sameName(each, name); }))
      throw UsageError(fmt::format("--ignore: no table has a column '{}'{}", name, didYouMean(name, all)));
  }
  return ignored;
}

// Chooses the pairs of collections that the options ask for, and compares them.
class CollectionComparer {
 public:
  CollectionComparer(const DiffOptions& options, inventory::Reader& oldReader, inventory::Reader& newReader)
      : options_(options),
        types_(entityTypes(foldIgnoredColumns(options.ignored))),
        oldReader_(oldReader),
        newReader_(newReader) {
    if (options.servers.empty()) return;
    Strings known = oldReader.serverNames();
    if (&oldReader != &newReader) {
      const Strings more = newReader.serverNames();
      known.insert(known.end(), more.begin(), more.end());
    }
    servers_ = selectServers(known, options.servers);
  }

  Differences run() {
    if (!options_.against.empty()) {
      addPair(findOnly(options_.servers.front()), findOnly(options_.against));
    } else if (options_.other.empty() && options_.since.empty()) {
      compareWithPrevious();
    } else {
      compareStates();
    }
    comparePairs();
    return std::move(differences_);
  }

 private:
  using AllData = std::vector<std::unique_ptr<ServerData>>;

  // Rows to read at a time: a query per pair would mostly wait for the answers of a database server.
  static constexpr std::int64_t kBatchRows = 5000;

  CollectionInfo findOnly(const std::string& name) const {
    const auto found = chosenServers(oldReader_, {name});
    if (!inventory::sameName(found.front().server, name))
      throw UsageError(fmt::format("--against: '{}' is not a server's full name", name));
    return found.front();
  }

  void addPair(const CollectionInfo& oldCollection, const CollectionInfo& newCollection) {
    oldPending_.push_back(oldCollection);
    newPending_.push_back(newCollection);
    pendingRows_ += oldCollection.rows + newCollection.rows;
    if (pendingRows_ >= kBatchRows) comparePairs();
  }

  void comparePairs() {
    const AllData oldData = readAll(oldReader_, oldPending_), newData = readAll(newReader_, newPending_);
    for (std::size_t at = 0; at < oldData.size(); ++at) {
      if (oldData[at] != nullptr && newData[at] != nullptr)
        compareServers(*oldData[at], *newData[at], types_, differences_);
    }
    oldPending_.clear();
    newPending_.clear();
    pendingRows_ = 0;
  }

  // Returns the data of each collection; null for a server that was removed meanwhile.
  static AllData readAll(inventory::Reader& reader, const std::vector<CollectionInfo>& collections) {
    AllData all(collections.size());
    std::size_t at = 0;
    reader.forEach(collections, [&](std::unique_ptr<ServerData> data) {
      while (collections[at].serverId != data->info().serverId) ++at;
      all[at++] = std::move(data);
    });
    return all;
  }

  void compareWithPrevious() {
    const std::vector<CollectionInfo> all = oldReader_.history(servers_);
    if (all.empty()) static_cast<void>(chosenServers(oldReader_, {}));  // throws
    for (std::size_t at = 0; at < all.size(); ++at) {
      if (!all[at].isCurrent) continue;
      if (at > 0 && all[at - 1].serverKey == all[at].serverKey) {
        addPair(all[at - 1], all[at]);
      } else {
        ++differences_.skippedServers;
      }
    }
  }

  // Compares two databases, or one at two times.
  void compareStates() {
    const auto oldState = oldReader_.collections({servers_, options_.since}),
               newState = newReader_.collections({servers_, {}});
    // Both are sorted by server.
    auto one = oldState.begin(), other = newState.begin();
    while (one != oldState.end() || other != newState.end()) {
      if (other == newState.end() || (one != oldState.end() && one->serverKey < other->serverKey)) {
        addOneSided(*one++, Outcome::kOnlyOld);
      } else if (one == oldState.end() || other->serverKey < one->serverKey) {
        addOneSided(*other++, Outcome::kOnlyNew);
      } else {
        if (options_.since.empty() || one->id != other->id) addPair(*one, *other);
        ++one;
        ++other;
      }
    }
  }

  void addOneSided(const CollectionInfo& server, Outcome outcome) {
    // A server may lack a collection of that time because the collection was deleted.
    if (outcome == Outcome::kOnlyNew && !options_.since.empty()) {
      ++differences_.skippedServers;
      return;
    }
    comparePairs();  // keeps the order of the servers
    differences_.add({server.server, "server", server.server, {}, {}, {}, {}, outcome});
  }

  const DiffOptions& options_;
  const std::vector<EntityType> types_;
  inventory::Reader& oldReader_;
  inventory::Reader& newReader_;
  Strings servers_;                                      // all if empty
  std::vector<CollectionInfo> oldPending_, newPending_;  // pairs still to compare
  std::int64_t pendingRows_ = 0;
  Differences differences_;
};

Differences findDifferences(const DiffOptions& options) {
  const auto oldInventory = inventory::openForReading(options.old, options.access);
  inventory::Reader oldReader = oldInventory->read(reportSuccessor);
  if (options.other.empty()) return CollectionComparer(options, oldReader, oldReader).run();
  const auto newInventory = inventory::openForReading(options.other, options.access);
  inventory::Reader newReader = newInventory->read(reportSuccessor);
  return CollectionComparer(options, oldReader, newReader).run();
}

}  // namespace

int diff(const DiffOptions& options, Output& output) {
  Differences differences = retryOnDisconnect([&] { return findDifferences(options); });
  return printed(output, differences.hasDifference ? 1 : 0,
                 [&] { printDifferences(options, differences, output); });
}

}  // namespace host
