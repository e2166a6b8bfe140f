// Transactions on a PostgreSQL server.
#pragma once

#include <memory>
#include <string>

#include "inventory/driver.h"
#include "inventory/postgres/connection.h"

namespace inventory::postgres {

// Rolled back unless commit() is reached.
class Transaction : public Session {
 public:
  virtual void commit() = 0;
};

// Runs `sql`, which begins it. The dialect must outlive it.
std::unique_ptr<Transaction> beginTransaction(const Dialect& dialect, std::shared_ptr<Connection> connection,
                                              const std::string& sql);

}  // namespace inventory::postgres
