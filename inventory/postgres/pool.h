// The connections of one driver to its database.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "inventory/postgres/connection.h"

namespace inventory::postgres {

// Used by any number of threads. Connections go back by themselves, and must not outlive the pool.
class Pool {
 public:
  // `most` is the number of changes at a time.
  Pool(std::shared_ptr<Target> target, int most) : target_(std::move(target)), most_(most) {}

  // An idle connection or a new one. Where the server has no more of them for a change, waits for that of
  // another change.
  std::shared_ptr<Connection> acquire(bool forChange);
  // A new connection for a change that has lost its own. Waits for a server that is being started.
  std::shared_ptr<Connection> reconnect();
  // Closes idle connections, where another one was lost.
  void dropIdle();

  void stopWaiting();
  std::string takeNotice();

 private:
  std::unique_ptr<Connection> connect() const;
  std::shared_ptr<Connection> open(bool forChange);
  bool limit(const std::string& why);
  std::shared_ptr<Connection> lend(std::unique_ptr<Connection> connection, bool forChange);
  void giveBack(Connection* connection, bool fromChange) noexcept;

  const std::shared_ptr<Target> target_;
  std::mutex mutex_;
  std::condition_variable freed_;
  std::vector<std::unique_ptr<Connection>> idle_;
  int changes_ = 0;  // that have a connection or are getting one
  int most_;
  std::string notice_;
  bool hasNotice_ = false;  // also once it has been taken
};

// Waits for 10 to 50 ms, so that processes don't keep meeting. False once the time or the signal ends the
// wait.
bool pauseUntil(std::chrono::steady_clock::time_point end, const StopSignal& stop);

}  // namespace inventory::postgres
