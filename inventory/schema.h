// The tables and views of an inventory in a database.
#pragma once

#include <string>

#include "inventory/driver.h"

namespace inventory {

// The version of the data model. Other versions are rejected; additions are applied to existing databases.
inline constexpr int kSchemaVersion = 2;

// Updates the schema if `mayChange`; returns true if there is nothing to do. `name` is the database's. Throws
// Error for a database with other tables and no inventory, unless `force`, and for an inventory of another
// version.
bool prepareSchema(Session& session, const std::string& name, bool force, bool mayChange);

// Throws NoInventory for a database without an inventory, Error for one of another version.
void requireInventory(Session& session, const std::string& name);

}  // namespace inventory
