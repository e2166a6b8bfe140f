// A transaction on a PostgreSQL server.
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
class PostgresSession : public Session {
 public:
  // For a transaction that has begun on the connection.
  PostgresSession(const Dialect& dialect, std::string schema, std::shared_ptr<Connection> connection)
      : dialect_(dialect), schema_(std::move(schema)), connection_(std::move(connection)) {}
  ~PostgresSession() override;
  PostgresSession(const PostgresSession&) = delete;
  PostgresSession& operator=(const PostgresSession&) = delete;

  const Dialect& dialect() const override { return dialect_; }
  std::int64_t execute(const std::string& sql, const Parameters& parameters) override;
  void executeAll(const std::string& sql) override { connection_->execute(sql); }
  std::unique_ptr<Cursor> query(const std::string& sql, const Parameters& parameters) override;
  std::unique_ptr<Inserter> insertInto(std::string_view table,
                                       std::span<const InsertColumn> columns) override;
  std::vector<Relation> relations() override;
  void createView(const std::string& name, const std::string& select) override;
  std::string viewDefinition(const std::string& name, const std::string& select) const override;

  void commit();

 private:
  const Dialect& dialect_;
  const std::string schema_;
  const std::shared_ptr<Connection> connection_;
  bool isOpen_ = true;
};

}  // namespace inventory::postgres
