// An inventory on a PostgreSQL server.
#pragma once

#include <memory>
#include <string>

#include "inventory/inventory.h"

namespace inventory {

// The tables stand in a schema of their own, each with two columns of ours: row_order, by which the rows are
// ordered, and server_id. See openForReading and openForPublishing.
std::unique_ptr<Inventory> openPostgresForReading(const std::string& address, const Access& access);
std::unique_ptr<Inventory> openPostgresForPublishing(const std::string& address, const Access& access);

}  // namespace inventory
