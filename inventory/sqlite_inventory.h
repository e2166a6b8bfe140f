// An inventory in an SQLite file.
#pragma once

#include <memory>
#include <string>

#include "inventory/inventory.h"

namespace inventory {

// The file is in SQLite's rollback mode, synchronous at full. A file of version 1.0.0 becomes such a file
// when it is opened for publishing. See openForReading and openForPublishing.
std::unique_ptr<Inventory> openSqliteForReading(const std::string& file, const Access& access);
std::unique_ptr<Inventory> openSqliteForPublishing(const std::string& file, const Access& access);

}  // namespace inventory
