// A connection to a PostgreSQL server with limited waits.
#pragma once

#include <libpq-fe.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "inventory/driver.h"

namespace inventory::postgres {

// Whether a database's name is the address of one on a server: "postgresql://...", "postgres://...",
// "service=NAME", or unless there is such a file, libpq's "KEYWORD=VALUE ...".
bool isAddress(const std::string& name);

// The address without a password. Throws Error for an invalid address, without any part that may be a
// password.
std::string shownAddress(const std::string& address);

// A deleter that calls a function of libpq.
template <auto kFree>
struct Freer {
  template <typename Value>
  void operator()(Value* value) const noexcept {
    kFree(value);
  }
};

// Ends waits from another thread.
class StopSignal {
 public:
  StopSignal();
  ~StopSignal();
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  void raise();
  bool isRaised() const { return isRaised_; }
  // Throws Interrupted once it is raised.
  void check() const;
  // Readable once it is raised.
  int descriptor() const { return descriptor_; }
  // Sleeps for a random 10 to 50 ms, so that processes do not retry in lockstep. Returns false if `end` or
  // the signal ends the wait.
  bool pauseUntil(std::chrono::steady_clock::time_point end) const;

 private:
  std::atomic<bool> isRaised_ = false;
  int descriptor_;
};

// Shared by the connections to a database.
struct Target {
  // Throws Error for an invalid address or schema.
  Target(std::string database, Access options);

  [[noreturn]] void refuse(const std::string& why) const {
    throw Error("cannot use '" + shown + "': " + why);
  }

  std::string address;
  std::string shown;
  Access access;
  StopSignal stop;
};

// The server has no connection left for this role or database.
using TooManyConnections = ErrorOfKind<struct TooManyConnectionsTag, Unreachable>;

// The result of a statement, or one of its rows; null after the last result.
class ResultSet {
 public:
  explicit ResultSet(PGresult* result = nullptr) : result_(result) {}

  int rows() const { return PQntuples(raw()); }
  int columns() const { return PQnfields(raw()); }
  // Valid as long as the result.
  Cell text(int row, int column) const;

  PGresult* raw() const { return result_.get(); }
  ExecStatusType status() const { return PQresultStatus(raw()); }

 private:
  std::unique_ptr<PGresult, Freer<PQclear>> result_;
};

// Used by one thread at a time. Members throw Error or one of its kinds: Interrupted once the target's signal
// is raised, Unreachable if the server has not sent a byte for the access's serverTimeout, plus its wait if
// the server may be waiting for a lock. After both, and after a lost connection, isLost() is true.
class Connection {
 public:
  explicit Connection(std::shared_ptr<const Target> target);
  explicit Connection(const std::string& address)
      : Connection(std::make_shared<const Target>(address, Access())) {}
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Runs one statement with the parameters $1 and so on, whose types the server infers, or several without
  // any. Returns the last one's result.
  ResultSet run(const std::string& sql, const Parameters& parameters = {});

  // Starts a statement. receive() returns its results: one row each with the status PGRES_SINGLE_TUPLE,
  // finally a null result.
  void start(const std::string& sql, const Parameters& parameters);
  ResultSet receive();

  // Sends data after "copy ... from stdin", and ends it, successfully if `error` is null.
  void sendCopy(std::string_view data);
  void endCopy(const char* error);

  // Discards the remaining results of a running statement.
  void drain() noexcept;

  bool isLost() const { return isLost_ || PQstatus(raw()) != CONNECTION_OK; }
  bool isIdle() const { return !isLost() && PQtransactionStatus(raw()) == PQTRANS_IDLE; }
  int backend() const { return PQbackendPID(raw()); }
  PGconn* raw() const { return connection_.get(); }
  // The SQLSTATE of the latest failure.
  const std::string& state() const { return state_; }
  const Target& target() const { return *target_; }

  // Throws the error of a failed result, or of the connection.
  [[noreturn]] void fail(const PGresult* result = nullptr);

 private:
  void send(const std::string& sql, const Parameters& parameters);
  void flush();
  short await(short events, std::chrono::milliseconds limit);
  void cancel();
  ResultSet finish();

  std::shared_ptr<const Target> target_;
  std::unique_ptr<PGconn, Freer<PQfinish>> connection_;
  std::string state_;
  bool isOpen_ = false;  // also once it is lost
  bool isLost_ = false;
  std::optional<std::chrono::steady_clock::time_point> cancelEnd_;  // of the wait for an answer to cancel()
};

// Opens a connection for an inventory, with the settings that it needs: names without a schema are those of
// the inventory's. Throws Error for a server that cannot have one.
std::unique_ptr<Connection> connect(const std::shared_ptr<const Target>& target);

}  // namespace inventory::postgres
