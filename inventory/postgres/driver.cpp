#include <fmt/core.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "inventory/driver.h"
#include "inventory/postgres/connection.h"
#include "inventory/postgres/session.h"

namespace inventory {
namespace {

using postgres::Connection;
using postgres::ResultSet;
using postgres::Transaction;
using std::chrono::steady_clock;

constexpr int kMaxChanges = 8;
// Limits the server's load by locks.
constexpr std::size_t kMaxLocks = 100;
constexpr const char* kBegin = "begin isolation level read committed, read write";
constexpr const char* kBeginReading = "begin isolation level repeatable read, read only";

std::string textOf(const ResultSet& result, int column = 0) {
  return std::string(result.rows() == 0 ? "" : result.text(0, column).value_or(""));
}

// The system id and timeline in which transaction ids are valid; empty if the role has no privilege to query
// them.
std::string systemOf(Connection& connection) {
  try {
    return textOf(connection.run(
        R"(select system_identifier || '/' || left(pg_walfile_name(pg_current_wal_lsn()), 8)
from pg_control_system())"));
  } catch (const Error&) {
    if (connection.isLost() || connection.target().stop.isRaised()) throw;
    return {};
  }
}

// A driver's connection pool, which must outlive its connections. Thread-safe.
class Pool {
 public:
  explicit Pool(std::shared_ptr<postgres::Target> target) : target_(std::move(target)) { idle_.reserve(100); }

  // Returns an idle connection or a new one. If the server's limit is reached, waits for the connection of
  // another change.
  std::shared_ptr<Connection> acquire(bool forChange) {
    while (true) {
      std::unique_lock lock(mutex_);
      freed_.wait(
          lock, [&] { return !forChange || target_->stop.isRaised() || !idle_.empty() || changes_ < most_; });
      target_->stop.check();
      changes_ += forChange ? 1 : 0;
      std::unique_ptr<Connection> connection;
      if (!idle_.empty()) {
        connection = std::move(idle_.back());
        idle_.pop_back();
      }
      lock.unlock();
      const std::shared_ptr<void> counted(this, [this, forChange](void*) { count(forChange ? -1 : 0); });
      try {
        if (connection == nullptr) connection = postgres::connect(target_);
        return {connection.release(), [this, counted](Connection* lent) {
                  std::unique_ptr<Connection> returned(lent);
                  const std::lock_guard returning(mutex_);
                  if (returned->isIdle()) idle_.push_back(std::move(returned));
                }};
      } catch (const postgres::TooManyConnections& error) {
        if (!forChange || !limit(error.what())) throw;
      }
    }
  }

  // Returns a new connection for a change that lost its own. Waits for a starting server and for the end of
  // the lost session.
  std::shared_ptr<Connection> reconnect() {
    const auto end = steady_clock::now() + target_->access.wait;
    while (true) {
      {
        // They are most likely lost too.
        const std::lock_guard lock(mutex_);
        idle_.clear();
      }
      try {
        return acquire(true);
      } catch (const Unreachable&) {
        if (!target_->stop.pauseUntil(end)) throw;
      }
    }
  }

  void stopWaiting() {
    target_->stop.raise();
    count(0);
  }

  std::string takeNotice() {
    const std::lock_guard lock(mutex_);
    return std::exchange(notice_, {});
  }

 private:
  void count(int changes) {
    const std::lock_guard lock(mutex_);
    changes_ += changes;
    freed_.notify_all();
  }

  // Limits concurrent changes to those that have a connection. Returns false if none has.
  bool limit(const std::string& why) {
    const std::lock_guard lock(mutex_);
    if (changes_ <= 1) return false;
    if (most_ == kMaxChanges) notice_ = "using fewer connections than allowed: " + why;
    most_ = std::min(most_, changes_ - 1);
    return true;
  }

  const std::shared_ptr<postgres::Target> target_;
  std::mutex mutex_;
  std::condition_variable freed_;
  std::vector<std::unique_ptr<Connection>> idle_;
  int changes_ = 0;  // that have a connection or are getting one
  int most_ = kMaxChanges;
  std::string notice_;
};

// The state of a change over its attempts.
struct Attempt {
  bool isRepeated = false;
  int formerBackend = 0;    // of a lost connection
  std::string system;       // from systemOf()
  std::string transaction;  // the number of the one whose commit was sent
};

class PostgresDriver : public Driver {
 public:
  PostgresDriver(const std::string& address, const Access& access)
      : target_(std::make_shared<postgres::Target>(address, access)), pool_(target_) {}

  std::string shownName() const override { return target_->shown; }
  const Dialect& dialect() const override { return dialect_; }
  int concurrentChanges() const override { return kMaxChanges; }
  bool readsConcurrently() const override { return true; }
  std::vector<std::string> checkIntegrity() override { return {}; }
  void stopWaiting() override { pool_.stopWaiting(); }
  std::string takeNotice() override { return pool_.takeNotice(); }

  void change(const Change& change) override;
  std::unique_ptr<Session> read() override {
    return beginTransaction(dialect_, pool_.acquire(false), kBeginReading);
  }
  void checkWritable(std::span<const std::string> tables,
                     const std::function<void(Session&)>& checkSchema) override;
  void analyze(std::span<const std::string> tables) override {
    pool_.acquire(false)->run("analyze (skip_locked) " + joined(tables, quotedName));
  }

 private:
  using Shared = std::shared_ptr<Connection>;

  void prepare(const Change& change, const Shared& connection);
  std::unique_ptr<Transaction> lock(const Change& change, const Shared& connection,
                                    const Attempt& attempt) const;
  void perform(const Change& change, const Shared& connection, Attempt& attempt);
  Shared resolve(const Change& change, const Attempt& attempt, std::string why);

  const std::shared_ptr<postgres::Target> target_;
  const Dialect dialect_{Dialect::Kind::kPostgres};
  Pool pool_;
  std::atomic<bool> isPrepared_ = false;
};

void PostgresDriver::checkWritable(std::span<const std::string> tables,
                                   const std::function<void(Session&)>& checkSchema) {
  const Shared connection = pool_.acquire(false);
  const std::string& name = target_->access.schema;
  const ResultSet found = connection->run(
      R"(with t as (
    select w.name, c.oid, c.relkind in ('r', 'p') and not (
        has_table_privilege(c.oid, 'SELECT') and has_table_privilege(c.oid, 'INSERT')
        and has_table_privilege(c.oid, 'UPDATE') and has_table_privilege(c.oid, 'DELETE')) as is_locked
    from unnest(string_to_array($2, ',')) w(name) left join pg_class c
        on c.relname = w.name and c.relnamespace = (select oid from pg_namespace where nspname = $1))
select pg_is_in_recovery(), current_setting('transaction_read_only') = 'on', n.oid is not null,
    has_database_privilege(current_database(), 'CREATE'),
    (select min(name) from t where is_locked or oid is null and not has_schema_privilege(n.oid, 'CREATE')),
    quote_ident(current_user)
from (select 1) x left join pg_namespace n on n.nspname = $1)",
      {name, joined(tables, std::identity(), ",")});
  const auto is = [&](int column) { return found.text(0, column) == "t"; };
  const std::string role = textOf(found, 5), table = textOf(found, 4), schema = quotedName(name),
                    start = fmt::format("cannot use '{}': the role {} may not ", target_->shown, role);
  if (is(0)) target_->refuse("the server is a read-only standby (use the primary server)");
  if (is(1)) {
    target_->refuse(
        fmt::format("the server is read-only for the role {} (its administrator sets "
                    "default_transaction_read_only to off)",
                    role));
  }
  if (!is(2) && !is(3)) {
    throw Forbidden(start + fmt::format("create the schema '{}' (the database's owner runs: create schema {} "
                                        "authorization {})",
                                        name, schema, role));
  }
  if (!is(2)) return;
  if (!table.empty()) {
    throw Forbidden(
        start +
        fmt::format(
            "change or create the table '{0}' (the schema's owner runs: grant usage, create on schema "
            "{1} to {2}; grant select, insert, update, delete on all tables in schema {1} to {2}; "
            "grant usage on all sequences in schema {1} to {2})",
            table, schema, role));
  }
  checkSchema(*beginTransaction(dialect_, connection, kBeginReading));
}

void PostgresDriver::change(const Change& change) {
  Attempt attempt;
  Shared connection = pool_.acquire(true);
  while (true) {
    try {
      return perform(change, connection, attempt);
    } catch (const Error& error) {
      if (!connection->isLost()) throw;
      isPrepared_ = false;
      attempt.formerBackend = connection->backend();
      connection.reset();
      const bool isLast = std::exchange(attempt.isRepeated, true) || target_->stop.isRaised();
      if (!attempt.transaction.empty()) {
        connection = resolve(change, attempt, error.what());
        if (connection == nullptr) return;
      }
      if (isLast) throw;
      if (connection == nullptr) connection = pool_.reconnect();
    }
  }
}

// Makes the change in one transaction. Sets the attempt's transaction id before the commit is sent.
void PostgresDriver::perform(const Change& change, const Shared& connection, Attempt& attempt) {
  attempt.transaction.clear();
  if (!isPrepared_) prepare(change, connection);
  attempt.system = systemOf(*connection);
  const auto session = lock(change, connection, attempt);
  change.work(*session);
  attempt.transaction = session->value("select pg_current_xact_id_if_assigned()");
  session->commit();
}

// Updates the schema, after creating it if it is missing.
void PostgresDriver::prepare(const Change& change, const Shared& connection) {
  if (!change.prepare(*beginTransaction(dialect_, connection, kBegin), false)) {
    const std::string& schema = target_->access.schema;
    const auto session = beginTransaction(dialect_, connection, kBegin);
    session->execute("select pg_advisory_xact_lock(hashtextextended($1, 0))", {schema});
    // Not "if not exists", which needs the privilege even if the schema exists.
    if (session->value("select 1 from pg_namespace where nspname = $1", {schema}).empty())
      session->execute("create schema " + quotedName(schema));
    change.prepare(*session, true);
    session->commit();
  }
  isPrepared_ = true;
}

// Begins a transaction with the locks of the change's servers. Acquires all of them at once or none, to avoid
// deadlocks between processes.
std::unique_ptr<Transaction> PostgresDriver::lock(const Change& change, const Shared& connection,
                                                  const Attempt& attempt) const {
  Parameters names{target_->access.schema};
  const bool isOfAll = change.serverKeys.size() > kMaxLocks;
  std::string sql =
      fmt::format("select pg_try_advisory_xact_lock{}(hashtextextended($1, 0))", isOfAll ? "" : "_shared");
  for (std::size_t at = 0; !isOfAll && at < change.serverKeys.size(); ++at) {
    names.push_back(target_->access.schema + "/" + change.serverKeys[at]);
    sql += fmt::format(" and pg_try_advisory_xact_lock(hashtextextended(${}, 0))", names.size());
  }
  const auto end = steady_clock::now() + target_->access.wait;
  do {
    auto session = beginTransaction(dialect_, connection, kBegin);
    if (session->value(sql, names) == "1") return session;
  } while (target_->stop.pauseUntil(end));
  target_->stop.check();
  if (attempt.formerBackend != 0 &&
      connection
              ->run("select 1 from pg_locks where locktype = 'advisory' and pid = $1",
                    {std::int64_t{attempt.formerBackend}})
              .rows() > 0) {
    throw Unreachable(fmt::format(
        "cannot publish {} into '{}': the connection was lost, and the server has not ended its session yet "
        "(use --wait to wait longer)",
        change.subject, target_->shown));
  }
  throw ServerLocked(fmt::format("another process is publishing {} into '{}' (use --wait to wait longer)",
                                 change.subject, target_->shown));
}

// Determines the outcome of a transaction whose commit was sent. Returns a connection for retrying the
// change, or null if it was committed.
std::shared_ptr<Connection> PostgresDriver::resolve(const Change& change, const Attempt& attempt,
                                                    std::string why) {
  const auto end = steady_clock::now() + target_->access.wait;
  Shared connection;
  do {
    try {
      if (connection == nullptr || connection->isLost()) connection = pool_.reconnect();
      if (systemOf(*connection) != attempt.system) break;
      const std::string status = textOf(connection->run("select pg_xact_status($1)", {attempt.transaction}));
      if (status == "committed") return nullptr;
      if (status == "aborted") return connection;
      if (status != "in progress") break;
    } catch (const Error& error) {
      // The id is not assigned yet: the transaction was lost in a crash of the server.
      if (connection != nullptr && connection->state() == "22023" && !attempt.system.empty())
        return connection;
      why = error.what();
      if (dynamic_cast<const Unreachable*>(&error) == nullptr) break;
    }
  } while (target_->stop.pauseUntil(end));
  throw OutcomeUnknown(
      fmt::format("outcome unknown: {} may or may not {}: {}", change.subject, change.effect, why));
}

}  // namespace

std::unique_ptr<Driver> openPostgres(const std::string& address, const Access& access) {
  return std::make_unique<PostgresDriver>(address, access);
}

}  // namespace inventory
