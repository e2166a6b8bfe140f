// A connection to a PostgreSQL server that is never waited for longer than the user wants.
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

// Whether a database's name is the address of one on a server: "postgresql://...", "postgres://..." or
// "service=NAME".
bool isAddress(std::string_view name);

// The address without a password. Throws Error for an invalid address; its text contains nothing of what may
// be a password.
std::string shownAddress(const std::string& address);

// Frees what a function of libpq frees.
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
  // Waits for 10 to 50 ms, so that processes don't keep meeting. False where `end` or the signal ends the
  // wait.
  bool pauseUntil(std::chrono::steady_clock::time_point end) const;

 private:
  std::atomic<bool> isRaised_ = false;
  int descriptor_;
};

// What the connections to a database have in common.
struct Target {
  // Throws Error for an invalid address or schema.
  Target(std::string database, const Access& options);

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

// The rows of a statement, or one of them; none behind the last result.
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
// is raised, Unreachable where the server hasn't sent a byte for the access's serverTimeout, to which its
// wait is added where the server may be waiting for a lock. After both, and wherever the connection is gone,
// isLost() is true.
class Connection {
 public:
  explicit Connection(std::shared_ptr<const Target> target);
  explicit Connection(const std::string& address)
      : Connection(std::make_shared<const Target>(address, Access())) {}
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Runs one statement with the parameters $1 and so on, whose types the server infers, or several without
  // any. Gives the last one's result.
  ResultSet run(const std::string& sql, const Parameters& parameters = {});

  // Starts a statement. Its results come by receive(), until there is none: with the status
  // PGRES_SINGLE_TUPLE a row each.
  void start(const std::string& sql, const Parameters& parameters);
  ResultSet receive();

  // Sends data after "copy ... from stdin", and ends it, successfully where `error` is null.
  void sendCopy(std::string_view data);
  void endCopy(const char* error);

  // Receives and drops what is left of the running statement, if one is.
  void drain() noexcept;

  bool isLost() const { return isLost_ || PQstatus(raw()) != CONNECTION_OK; }
  bool isIdle() const { return !isLost() && PQtransactionStatus(raw()) == PQTRANS_IDLE; }
  int backend() const { return PQbackendPID(raw()); }
  PGconn* raw() const { return connection_.get(); }
  // The SQLSTATE of the latest failure.
  const std::string& state() const { return state_; }
  const Target& target() const { return *target_; }

  // Throws what a failed result, or without one the connection, reports.
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
