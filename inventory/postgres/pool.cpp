#include "inventory/postgres/pool.h"

#include <algorithm>
#include <random>
#include <utility>

namespace inventory::postgres {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int kOldestVersion = 130000;

}  // namespace

bool pauseUntil(steady_clock::time_point end, const StopSignal& stop) {
  if (steady_clock::now() >= end) return false;
  static thread_local std::minstd_rand random{std::random_device{}()};
  return !stop.sleep(milliseconds(std::uniform_int_distribution<int>(10, 50)(random)));
}

// Opens a connection, and refuses a server that can't have an inventory.
std::unique_ptr<Connection> Pool::connect() const {
  auto connection = std::make_unique<Connection>(target_);
  if (connection->serverVersion() < kOldestVersion) {
    target_->refuse("the server is PostgreSQL " + connection->setting("server_version") +
                    ", an inventory needs version 13 or later");
  }
  if (const std::string encoding = connection->setting("server_encoding"); encoding != "UTF8")
    target_->refuse("its encoding is " + encoding +
                    " (use a database that was created with encoding 'UTF8')");
  // Whatever the role's own settings are: names mean the same everywhere, only this program limits the time,
  // and what is committed is safe on the disk. Some of the settings are missing from older servers.
  connection->execute(
      "set search_path = pg_catalog; set row_security = off; set jit = off; set standard_conforming_strings "
      "= on;"
      "set extra_float_digits = 1; set lock_timeout = " +
      std::to_string(std::clamp<milliseconds::rep>(target_->lockWait.count(), 1, 2147483647)) +
      "; select set_config(name, '0', false) from pg_settings where name in ('statement_timeout', "
      "'transaction_timeout', 'idle_in_transaction_session_timeout', 'idle_session_timeout');"
      "select set_config('synchronous_commit', 'on', false) where current_setting('synchronous_commit') = "
      "'off'");
  return connection;
}

std::shared_ptr<Connection> Pool::lend(std::unique_ptr<Connection> connection, bool forChange) {
  return {connection.release(), [this, forChange](Connection* lent) { giveBack(lent, forChange); }};
}

void Pool::giveBack(Connection* lent, bool fromChange) noexcept {
  std::unique_ptr<Connection> connection(lent);
  const bool isUsable = connection->isIdle();
  if (!isUsable) connection.reset();
  const std::lock_guard lock(mutex_);
  if (fromChange) --changes_;
  try {
    if (isUsable) idle_.push_back(std::move(connection));
  } catch (const std::bad_alloc&) {
    // It is closed instead.
  }
  freed_.notify_all();
}

// Opens a connection that is counted already.
std::shared_ptr<Connection> Pool::open(bool forChange) {
  try {
    return lend(connect(), forChange);
  } catch (...) {
    const std::lock_guard lock(mutex_);
    if (forChange) --changes_;
    freed_.notify_all();
    throw;
  }
}

std::shared_ptr<Connection> Pool::acquire(bool forChange) {
  while (true) {
    {
      std::unique_lock lock(mutex_);
      freed_.wait(
          lock, [&] { return !forChange || target_->stop.isRaised() || !idle_.empty() || changes_ < most_; });
      if (target_->stop.isRaised()) throw Interrupted("interrupted");
      if (forChange) ++changes_;
      if (!idle_.empty()) {
        auto connection = std::move(idle_.back());
        idle_.pop_back();
        return lend(std::move(connection), forChange);
      }
    }
    try {
      return open(forChange);
    } catch (const TooManyConnections& error) {
      if (!forChange || !limit(error.what())) throw;
    }
  }
}

// Limits the changes to those that have a connection. False where none has.
bool Pool::limit(const std::string& why) {
  const std::lock_guard lock(mutex_);
  if (changes_ == 0) return false;
  most_ = std::min(most_, changes_);
  if (!std::exchange(hasNotice_, true)) notice_ = "using fewer connections than allowed: " + why;
  return true;
}

std::shared_ptr<Connection> Pool::reconnect() {
  const auto end = steady_clock::now() + target_->lockWait;
  while (true) {
    {
      const std::lock_guard lock(mutex_);
      ++changes_;
    }
    try {
      return open(true);
    } catch (const Unreachable&) {
      if (!pauseUntil(end, target_->stop)) throw;
    } catch (const TooManyConnections&) {
      // The server may not have ended the lost session yet.
      if (!pauseUntil(end, target_->stop)) throw;
    }
  }
}

void Pool::dropIdle() {
  std::vector<std::unique_ptr<Connection>> dropped;
  const std::lock_guard lock(mutex_);
  dropped.swap(idle_);
}

void Pool::stopWaiting() {
  target_->stop.raise();
  const std::lock_guard lock(mutex_);
  freed_.notify_all();
}

std::string Pool::takeNotice() {
  const std::lock_guard lock(mutex_);
  return std::exchange(notice_, {});
}

}  // namespace inventory::postgres
