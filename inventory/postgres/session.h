// Transactions on a PostgreSQL server.
#pragma once

#include <memory>
#include <string>

#include "inventory/driver.h"
#include "inventory/postgres/connection.h"

namespace inventory::postgres {

// Rolls back unless commit() was called.
class Transaction : public Session {
 public:
  virtual void commit() = 0;
};

// Begins with `sql`. The dialect must outlive the transaction.
std::unique_ptr<Transaction> beginTransaction(const Dialect& dialect, std::shared_ptr<Connection> connection,
                                              const std::string& sql);

}  // namespace inventory::postgres
