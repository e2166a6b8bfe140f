// Compares the collections of two servers.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/console/listing.h"
#include "host/query/compared_tables.h"
#include "inventory/server_data.h"
#include "os/spool.h"

namespace host {

enum class Outcome { kDifferent, kOnlyOld, kOnlyNew, kNotKnown };

// "different", "only in old", "only in new" or "not known".
std::string_view wordFor(Outcome outcome);

// The value of a table that only the other collection covers.
inline constexpr const char* kNotCollectedText = "not collected";

struct Difference {
  std::string server;
  std::string_view kind;   // of the entity
  std::string name;        // of the entity; empty for all entities of the kind
  std::string_view table;  // empty for the whole entity
  std::string column;      // empty for the whole row; "A, B" for columns that are compared together
  Value oldValue;
  Value newValue;
  Outcome outcome = Outcome::kDifferent;
};

// The columns of the stored rows.
enum DifferenceField : std::size_t {
  kServer,
  kKind,
  kName,
  kTable,
  kColumn,
  kOld,
  kNew,
  kOutcome,
  kFieldCount
};

// The result of a comparison.
struct Differences {
  os::Spool rows;  // of DifferenceField
  bool hasDifference = false;
  std::int64_t skippedServers = 0;  // that have no collection to compare with

  void add(const Difference& difference);
};

// Adds the differences between two collections. Values that differ only in the name of their server are
// equal.
void compareServers(const inventory::ServerData& oldData, const inventory::ServerData& newData,
                    const std::vector<EntityType>& types, Differences& differences);

}  // namespace host
