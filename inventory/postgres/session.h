// Transactions on a PostgreSQL server.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "inventory/driver.h"
#include "inventory/postgres/connection.h"

namespace inventory::postgres {

// A number for a text (FNV-1a), as advisory locks have it.
std::int64_t lockNumber(std::string_view text);

// Rolled back unless commit() is reached.
class Transaction : public Session {
 public:
  virtual void commit() = 0;
};

// Runs `sql`, which begins it. The dialect must outlive it.
std::unique_ptr<Transaction> beginTransaction(const Dialect& dialect, const std::string& schema,
                                              std::shared_ptr<Connection> connection, const std::string& sql);

}  // namespace inventory::postgres
