#include "inventory/inventory.h"

#include "inventory/postgres_connection.h"
#include "inventory/postgres_inventory.h"
#include "inventory/sqlite_inventory.h"

namespace inventory {

bool isOnServer(std::string_view database) {
  return postgres::isAddress(database);
}

std::string shownName(const std::string& database) {
  return isOnServer(database) ? postgres::shownAddress(database) : database;
}

std::unique_ptr<Inventory> openForReading(const std::string& database, const Access& access) {
  return isOnServer(database) ? openPostgresForReading(database, access)
                              : openSqliteForReading(database, access);
}

std::unique_ptr<Inventory> openForPublishing(const std::string& database, const Access& access) {
  return isOnServer(database) ? openPostgresForPublishing(database, access)
                              : openSqliteForPublishing(database, access);
}

}  // namespace inventory
