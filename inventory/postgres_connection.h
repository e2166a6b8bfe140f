// PostgreSQL for an inventory: a connection, a result, rows on their way in and out.
#pragma once

#include <libpq-fe.h>

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace inventory::postgres {

// Whether a database's name is the address of one on a server: "postgresql://...", "postgres://..." or
// "service=NAME".
bool isAddress(std::string_view name);

// The address without a password, for everybody to see. Throws Error for an address that can't be one; its
// words hold nothing of what may be a password.
std::string shownAddress(const std::string& address);

// An operation that has failed. what() is one line, mostly in the server's or libpq's words.
class Failure : public std::runtime_error {
 public:
  Failure(const std::string& message, std::string state, bool lost)
      : std::runtime_error(message), state_(std::move(state)), lost_(lost) {}

  // The SQLSTATE, empty where there is none.
  const std::string& state() const noexcept { return state_; }
  // Whether the connection is gone, or never came to be.
  bool isLost() const noexcept { return lost_; }

 private:
  std::string state_;
  bool lost_;
};

// The rows that a statement has given.
class ResultSet {
 public:
  explicit ResultSet(PGresult* result) : result_(result) {}

  int rows() const { return PQntuples(result_.get()); }
  // Nothing where it is null. Good as long as the result.
  std::optional<std::string_view> text(int row, int column) const;
  std::int64_t number(int row, int column) const;
  bool isTrue(int row, int column) const { return text(row, column) == "t"; }
  // How many rows the statement has changed.
  std::int64_t changes() const;

  PGresult* raw() const { return result_.get(); }

 private:
  struct Clearer {
    void operator()(PGresult* result) const noexcept { PQclear(result); }
  };
  std::unique_ptr<PGresult, Clearer> result_;
};

// Values of a statement's parameters; nothing for null.
using Parameters = std::initializer_list<std::optional<std::string>>;

// A connection, used by one thread at a time. Members that fail throw Failure.
class Connection {
 public:
  explicit Connection(const std::string& address);

  // Runs one statement whose parameters are $1 and so on.
  ResultSet run(const std::string& sql, Parameters parameters = {});
  // Runs statements without parameters.
  void execute(const std::string& sql);

  // What the server says of itself, as in "server_encoding".
  std::string setting(const char* name) const;
  int serverVersion() const { return PQserverVersion(connection_.get()); }
  std::string databaseName() const;

  PGconn* raw() const { return connection_.get(); }

  // Fails with what the connection has to say, or what the result has.
  [[noreturn]] void fail() const;
  [[noreturn]] void fail(const PGresult* result) const;

 private:
  struct Closer {
    void operator()(PGconn* connection) const noexcept { PQfinish(connection); }
  };
  std::unique_ptr<PGconn, Closer> connection_;
};

// Several changes that are made together or not at all; given up unless commit() has been reached.
class Transaction {
 public:
  // `begin` is the statement that begins it.
  Transaction(Connection& connection, const std::string& begin);
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  ~Transaction();

  void commit();

 private:
  Connection& connection_;
  bool open_ = true;
};

// Rows on their way into a table, in the binary form of COPY, which needs no escapes ("COPY, Binary Format"
// in PostgreSQL's documentation). What isn't finished is given up, and the transaction with it.
class CopyIn {
 public:
  // `sql` ends behind "from stdin".
  CopyIn(Connection& connection, const std::string& sql);
  CopyIn(const CopyIn&) = delete;
  CopyIn& operator=(const CopyIn&) = delete;
  ~CopyIn();

  // A row has as many values behind it as it says.
  void row(std::size_t values);
  void text(const std::optional<std::string_view>& value);
  void integer(std::int32_t value);
  void integer(std::int64_t value);
  void real(double value);

  void finish();

 private:
  template <typename Number>
  void append(Number value);
  void flush();

  Connection& connection_;
  std::string buffer_;
  bool open_ = true;
};

// Rows on their way out, every value of them text.
class CopyOut {
 public:
  // `select` is a statement that gives texts alone.
  CopyOut(Connection& connection, const std::string& select);
  CopyOut(const CopyOut&) = delete;
  CopyOut& operator=(const CopyOut&) = delete;
  // Rows that are left are dropped with their connection: whoever stops before the end has no more use for
  // it.
  ~CopyOut() = default;

  // Goes to the next row, the first one at first. False when there is none left.
  bool next();
  // Good until the next row; nothing for null.
  const std::optional<std::string_view>& cell(std::size_t column) const { return cells_.at(column); }
  std::size_t columns() const { return cells_.size(); }

 private:
  struct Freer {
    void operator()(char* buffer) const noexcept { PQfreemem(buffer); }
  };
  Connection& connection_;
  std::unique_ptr<char, Freer> row_;
  std::vector<std::optional<std::string_view>> cells_;
  bool atStart_ = true;
  bool atEnd_ = false;
};

}  // namespace inventory::postgres
