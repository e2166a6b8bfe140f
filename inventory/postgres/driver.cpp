#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <utility>

#include "inventory/catalog/catalog.h"
#include "inventory/driver.h"
#include "inventory/postgres/connection.h"
#include "inventory/postgres/session.h"

namespace inventory {
namespace {

using postgres::Connection;
using postgres::ResultSet;
using postgres::Transaction;
using std::chrono::steady_clock;

constexpr int kMostChanges = 8;
// More locks would be a burden to the server.
constexpr std::size_t kMostLocks = 100;
constexpr const char* kBegin = "begin isolation level read committed, read write";

std::shared_ptr<postgres::Target> targetOf(const std::string& address, const Access& access) {
  if (access.schema.empty() || access.schema.size() > 63)
    throw Error("cannot use the schema '" + access.schema + "': a schema's name has 1 to 63 bytes");
  auto target = std::make_shared<postgres::Target>(address);
  target->lockWait = access.wait;
  target->serverTimeout = access.serverTimeout;
  const std::string schema = quotedName(access.schema);
  target->forbiddenHint = " (the schema's owner runs: grant usage on schema " + schema +
                          " to ...; grant select on all tables in schema " + schema + " to ...)";
  return target;
}

// The system and the timeline, within which transactions have their numbers; empty where the role may not
// ask.
std::string systemOf(Connection& connection) {
  try {
    const ResultSet found = connection.run(
        "select system_identifier || '/' || left(pg_walfile_name(pg_current_wal_lsn()), 8) from "
        "pg_control_system()");
    return std::string(found.text(0, 0).value_or(""));
  } catch (const Error&) {
    if (connection.isLost() || connection.target().stop.isRaised()) throw;
    return {};
  }
}

// The connections of a driver, which they must not outlive. Used by any number of threads.
class Pool {
 public:
  explicit Pool(std::shared_ptr<postgres::Target> target) : target_(std::move(target)) { idle_.reserve(100); }

  // An idle connection or a new one. Where the server has no more of them for a change, waits for that of
  // another change.
  std::shared_ptr<Connection> acquire(bool forChange) {
    while (true) {
      {
        std::unique_lock lock(mutex_);
        freed_.wait(lock, [&] {
          return !forChange || target_->stop.isRaised() || !idle_.empty() || changes_ < most_;
        });
        target_->stop.check();
        if (forChange) ++changes_;
        if (!idle_.empty()) {
          auto connection = std::move(idle_.back());
          idle_.pop_back();
          return lend(std::move(connection), forChange);
        }
      }
      try {
        return open(forChange);
      } catch (const postgres::TooManyConnections& error) {
        if (!forChange || !limit(error.what())) throw;
      }
    }
  }

  // A new connection for a change that has lost its own. Waits for a server that is being started.
  std::shared_ptr<Connection> reconnect() {
    const auto end = steady_clock::now() + target_->lockWait;
    while (true) {
      {
        const std::lock_guard lock(mutex_);
        ++changes_;
        // They were lost with it, most likely.
        idle_.clear();
      }
      try {
        return open(true);
      } catch (const Unreachable&) {
        if (!target_->stop.pauseUntil(end)) throw;
      } catch (const postgres::TooManyConnections&) {
        // The server may not have ended the lost session yet.
        if (!target_->stop.pauseUntil(end)) throw;
      }
    }
  }

  void stopWaiting() {
    target_->stop.raise();
    const std::lock_guard lock(mutex_);
    freed_.notify_all();
  }

  std::string takeNotice() {
    const std::lock_guard lock(mutex_);
    return std::exchange(notice_, {});
  }

 private:
  std::shared_ptr<Connection> lend(std::unique_ptr<Connection> connection, bool forChange) {
    return {connection.release(), [this, forChange](Connection* lent) {
              std::unique_ptr<Connection> returned(lent);
              if (!returned->isIdle()) returned.reset();
              const std::lock_guard lock(mutex_);
              if (returned != nullptr) idle_.push_back(std::move(returned));
              uncount(forChange);
            }};
  }

  // Opens a connection that is counted already.
  std::shared_ptr<Connection> open(bool forChange) {
    try {
      return lend(postgres::connect(target_), forChange);
    } catch (...) {
      const std::lock_guard lock(mutex_);
      uncount(forChange);
      throw;
    }
  }

  void uncount(bool isChange) {
    if (isChange) --changes_;
    freed_.notify_all();
  }

  // Limits the changes to those that have a connection. False where none has.
  bool limit(const std::string& why) {
    const std::lock_guard lock(mutex_);
    if (changes_ == 0) return false;
    most_ = std::min(most_, changes_);
    if (!std::exchange(hasNotice_, true)) notice_ = "using fewer connections than allowed: " + why;
    return true;
  }

  const std::shared_ptr<postgres::Target> target_;
  std::mutex mutex_;
  std::condition_variable freed_;
  std::vector<std::unique_ptr<Connection>> idle_;
  int changes_ = 0;  // that have a connection or are getting one
  int most_ = kMostChanges;
  std::string notice_;
  bool hasNotice_ = false;  // also once it has been taken
};

// A change on its way.
struct Attempt {
  bool isRepeated = false;
  int formerBackend = 0;    // of a lost connection
  std::string system;       // as systemOf() gives it
  std::string transaction;  // the number of the one whose commit was sent
};

class PostgresDriver : public Driver {
 public:
  PostgresDriver(const std::string& address, const Access& access)
      : access_(access),
        target_(targetOf(address, access)),
        dialect_(Dialect::Kind::kPostgres, access.schema),
        pool_(target_) {}

  std::string shownName() const override { return target_->shown; }
  const Dialect& dialect() const override { return dialect_; }
  int concurrentChanges() const override { return kMostChanges; }
  bool readsConcurrently() const override { return true; }
  std::vector<std::string> checkIntegrity() override { return {}; }
  void stopWaiting() override { pool_.stopWaiting(); }
  std::string takeNotice() override { return pool_.takeNotice(); }

  void change(const Change& change) override;
  std::unique_ptr<Session> read() override {
    return begin(pool_.acquire(false), "begin isolation level repeatable read, read only");
  }
  void checkWritable(const std::function<void(Session&)>& checkSchema) override;
  void analyze(std::span<const std::string> tables) override;

 private:
  std::unique_ptr<Transaction> begin(std::shared_ptr<Connection> connection, const char* sql) const {
    return postgres::beginTransaction(dialect_, access_.schema, std::move(connection), sql);
  }
  std::int64_t lockOf(const std::string& key = {}) const {
    return postgres::lockNumber(access_.schema + '\0' + key);
  }

  bool checkRights(Connection& connection, const std::string& role) const;
  void prepare(const Change& change, const std::shared_ptr<Connection>& connection);
  std::unique_ptr<Transaction> lock(const Change& change, const std::shared_ptr<Connection>& connection,
                                    const Attempt& attempt) const;
  void perform(const Change& change, const std::shared_ptr<Connection>& connection, Attempt& attempt);
  std::shared_ptr<Connection> resolve(const Change& change, const Attempt& attempt, std::string why);

  const Access access_;
  const std::shared_ptr<postgres::Target> target_;
  const Dialect dialect_;
  Pool pool_;
  std::atomic<bool> isPrepared_ = false;
};

void PostgresDriver::checkWritable(const std::function<void(Session&)>& checkSchema) {
  const std::shared_ptr<Connection> connection = pool_.acquire(false);
  const ResultSet state = connection->run(
      "select pg_is_in_recovery(), current_setting('transaction_read_only') = 'on', "
      "quote_ident(current_user)");
  const std::string role(state.text(0, 2).value_or(""));
  if (state.isTrue(0, 0))
    target_->refuse("the server is a standby and takes no changes (use the primary server)");
  if (state.isTrue(0, 1)) {
    target_->refuse("the server is read-only for the role " + role +
                    " (its administrator sets default_transaction_read_only to off)");
  }
  if (checkRights(*connection, role))
    checkSchema(*begin(connection, "begin isolation level repeatable read, read only"));
}

// Gives whether there is a schema.
bool PostgresDriver::checkRights(Connection& connection, const std::string& role) const {
  const std::string& name = access_.schema;
  const std::string schema = quotedName(name),
                    start = "cannot use '" + target_->shown + "': the role " + role;
  const ResultSet rights = connection.run(
      "select has_schema_privilege(oid, 'USAGE'), has_schema_privilege(oid, 'CREATE') from pg_namespace "
      "where nspname = $1",
      {name});
  if (rights.rows() == 0) {
    if (connection.run("select has_database_privilege(current_database(), 'CREATE')").isTrue(0, 0))
      return false;
    throw Forbidden(start + " may not create the schema '" + name +
                    "' (the database's owner runs: create schema " + schema + " authorization " + role + ")");
  }
  const std::string grants = " (its owner runs: grant usage, create on schema " + schema + " to " + role +
                             "; grant select, insert, update, delete on all tables in schema " + schema +
                             " to " + role + "; grant usage on all sequences in schema " + schema + " to " +
                             role + ")";
  if (!rights.isTrue(0, 0)) throw Forbidden(start + " may not use the schema '" + name + "'" + grants);

  const ResultSet found = connection.run(
      "select c.relname, c.relkind not in ('r', 'p') or (has_table_privilege(c.oid, 'SELECT') and "
      "has_table_privilege(c.oid, 'INSERT') and has_table_privilege(c.oid, 'UPDATE') and "
      "has_table_privilege(c.oid, 'DELETE')) from pg_class c join pg_namespace n on n.oid = c.relnamespace "
      "where n.nspname = $1 and c.relkind in ('r', 'p', 'v', 'm', 'f')",
      {name});
  std::map<std::string, bool, std::less<>> writable;
  for (int row = 0; row < found.rows(); ++row)
    writable[std::string(found.text(row, 0).value_or(""))] = found.isTrue(row, 1);
  const auto isThere = [&](const Table& table) { return writable.contains(table.name); };
  if (!writable.empty() && std::ranges::none_of(tables(), isThere) && !access_.force) {
    target_->refuse("its schema '" + name +
                    "' has other tables but no inventory (use --schema NAME for another schema, --force to "
                    "add an inventory to this one)");
  }
  for (const auto& all : {tables(), ownTables()}) {
    for (const Table& table : all) {
      const std::string shown = name + "." + std::string(table.name);
      if (!isThere(table) && !rights.isTrue(0, 1))
        throw Forbidden(start + " may not create the missing table " + shown + grants);
      if (isThere(table) && !writable.find(table.name)->second)
        throw Forbidden(start + " may not change the table " + shown + grants);
    }
  }
  return true;
}

void PostgresDriver::analyze(std::span<const std::string> names) {
  std::string list;
  for (const std::string& name : names) list += (list.empty() ? "" : ", ") + dialect_.table(name);
  if (!list.empty()) pool_.acquire(false)->execute("analyze (skip_locked) " + list);
}

void PostgresDriver::change(const Change& change) {
  Attempt attempt;
  std::shared_ptr<Connection> connection = pool_.acquire(true);
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

// Makes the change in one transaction. The attempt has a transaction's number from the moment on from which
// it may be committed.
void PostgresDriver::perform(const Change& change, const std::shared_ptr<Connection>& connection,
                             Attempt& attempt) {
  attempt.transaction.clear();
  if (!isPrepared_) prepare(change, connection);
  attempt.system = systemOf(*connection);
  const auto session = lock(change, connection, attempt);
  change.work(*session, attempt.isRepeated);
  attempt.transaction = session->value("select pg_current_xact_id_if_assigned()");
  session->commit();
}

// Brings the schema up to date, and creates it first where it is missing.
void PostgresDriver::prepare(const Change& change, const std::shared_ptr<Connection>& connection) {
  if (!change.prepare(*begin(connection, kBegin), false)) {
    const auto session = begin(connection, kBegin);
    session->execute("select pg_advisory_xact_lock($1)", {lockOf()});
    // Not "if not exists", which needs the right to create it in any case.
    if (session->value("select 1 from pg_namespace where nspname = $1", {access_.schema}).empty())
      session->execute("create schema " + quotedName(access_.schema), {});
    change.prepare(*session, true);
    session->commit();
  }
  isPrepared_ = true;
}

// Begins a transaction that has the locks of the change's servers. As processes that have some and wait for
// others could wait for each other, they are had all at once or not at all.
std::unique_ptr<Transaction> PostgresDriver::lock(const Change& change,
                                                  const std::shared_ptr<Connection>& connection,
                                                  const Attempt& attempt) const {
  std::string sql = "select pg_try_advisory_xact_lock(" + std::to_string(lockOf()) + ")";
  if (change.serverKeys.size() <= kMostLocks) {
    std::set<std::int64_t> numbers;
    for (const std::string& key : change.serverKeys) numbers.insert(lockOf(key));
    sql = "select pg_try_advisory_xact_lock_shared(" + std::to_string(lockOf()) + ")";
    for (const std::int64_t number : numbers)
      sql += " and pg_try_advisory_xact_lock(" + std::to_string(number) + ")";
  }
  const auto end = steady_clock::now() + access_.wait;
  do {
    auto session = begin(connection, kBegin);
    if (session->value(sql) == "1") return session;
  } while (target_->stop.pauseUntil(end));
  target_->stop.check();
  if (attempt.formerBackend != 0 &&
      connection
              ->run("select 1 from pg_locks where locktype = 'advisory' and pid = $1",
                    {std::int64_t{attempt.formerBackend}})
              .rows() > 0) {
    throw Unreachable(
        "cannot publish " + change.subject + " into '" + target_->shown +
        "': the connection was lost, and the server has not ended its session yet (use --wait to "
        "wait longer)");
  }
  throw ServerLocked("another process is publishing " + change.subject + " into '" + target_->shown +
                     "' (use --wait to wait longer)");
}

// Finds out what became of a transaction whose commit was sent. Gives a connection on which the change may be
// repeated, none where it has been committed.
std::shared_ptr<Connection> PostgresDriver::resolve(const Change& change, const Attempt& attempt,
                                                    std::string why) {
  const auto end = steady_clock::now() + access_.wait;
  std::string status = "in progress";
  do {
    std::shared_ptr<Connection> connection;
    try {
      connection = pool_.reconnect();
      if (systemOf(*connection) != attempt.system) break;
      do {
        const ResultSet found = connection->run("select pg_xact_status($1)", {attempt.transaction});
        status = found.text(0, 0).value_or("");
      } while (status == "in progress" && target_->stop.pauseUntil(end));
      if (status == "committed") return nullptr;
      if (status == "aborted") return connection;
    } catch (const Error& error) {
      // A number that the server is yet to give: its crash has undone the transaction.
      if (connection != nullptr && connection->state() == "22023" && !attempt.system.empty())
        return connection;
      if (dynamic_cast<const Unreachable*>(&error) == nullptr) status = "unknown";
      why = error.what();
    }
  } while (status == "in progress" && target_->stop.pauseUntil(end));
  throw OutcomeUnknown("outcome unknown: " + change.subject + " may or may not " + change.effect + ": " +
                       why);
}

}  // namespace

std::unique_ptr<Driver> openPostgres(const std::string& address, const Access& access) {
  return std::make_unique<PostgresDriver>(address, access);
}

}  // namespace inventory
