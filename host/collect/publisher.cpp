#include "host/collect/publisher.h"

#include <algorithm>
#include <iterator>
#include <span>
#include <thread>
#include <utility>

namespace host {
namespace {

// A transaction waits for the disk several times, so small servers share one. Limits of such a batch:
constexpr std::size_t kMostServers = 128;
constexpr std::int64_t kMostRows = 20000;
constexpr std::chrono::milliseconds kLongestWait{500};
// With this many waiting collections, or many rows in more collections than there are jobs, a thread that
// adds one waits until it can publish.
constexpr std::size_t kMostWaiting = 256;

// Holds one count of a semaphore.
class SemaphoreGuard {
 public:
  explicit SemaphoreGuard(std::counting_semaphore<>& semaphore) : semaphore_(semaphore) {
    semaphore_.acquire();
  }
  // Adopts a count that is already held.
  SemaphoreGuard(std::counting_semaphore<>& semaphore, std::adopt_lock_t) : semaphore_(semaphore) {}
  ~SemaphoreGuard() { semaphore_.release(); }
  SemaphoreGuard(const SemaphoreGuard&) = delete;
  SemaphoreGuard& operator=(const SemaphoreGuard&) = delete;

 private:
  std::counting_semaphore<>& semaphore_;
};

}  // namespace

Publisher::Publisher(inventory::Inventory& inventory, std::size_t jobs,
                     const inventory::PublishOptions& options, Listener& listener)
    : inventory_(inventory),
      jobs_(jobs),
      options_(options),
      listener_(listener),
      publishers_(inventory.concurrentPublishers()),
      transactions_(inventory.concurrentPublishers()) {}

void Publisher::add(std::unique_ptr<CollectedServer> finished) {
  bool due = false;
  bool wait = false;
  {
    const std::lock_guard lock(mutex_);
    if (waiting_.empty()) waitingSince_ = std::chrono::steady_clock::now();
    waitingRows_ += inventory::sumOf(finished->rowCounts);
    waiting_.push_back(std::move(finished));
    due = isDue();
    wait = waiting_.size() >= kMostWaiting || (waiting_.size() > jobs_ && waitingRows_ >= kMostRows);
  }
  if (!due) return;
  if (wait) {
    publishers_.acquire();
  } else if (!publishers_.try_acquire()) {
    return;
  }
  const SemaphoreGuard turn(publishers_, std::adopt_lock);
  publishWaiting();
}

bool Publisher::isDue() const {
  return waiting_.size() >= kMostServers || waitingRows_ >= kMostRows ||
         std::chrono::steady_clock::now() - waitingSince_ >= kLongestWait;
}

void Publisher::finish() {
  const SemaphoreGuard turn(publishers_);
  publishWaiting();
}

void Publisher::stop() {
  stopped_ = true;
  inventory_.stopWaiting();
  // Never released.
  for (int count = inventory_.concurrentPublishers(); count > 0; --count) transactions_.acquire();
}

void Publisher::publishWaiting() {
  awaitEnd();
  Batch batch;
  {
    const std::lock_guard lock(mutex_);
    batch.swap(waiting_);
    waitingRows_ = 0;
  }
  if (!batch.empty()) publish(batch);
  awaitEnd();
}

// After stop() only the end of the process reports what was published.
void Publisher::awaitEnd() const {
  while (stopped_) std::this_thread::sleep_for(std::chrono::hours(1));
}

void Publisher::publish(std::span<std::unique_ptr<CollectedServer>> batch) {
  const auto tryEach = [&](const char* why) {
    if (stopped_) return;
    if (batch.size() == 1) return listener_.onFailed(batch, why);
    for (auto& server : batch) publish({&server, 1});
  };
  if (hasGivenUp_) {
    std::unique_lock lock(mutex_);
    const std::string why = sharedFailure_;
    lock.unlock();
    return listener_.onFailed(batch, why.c_str());
  }
  std::vector<inventory::Published> published;
  try {
    std::vector<inventory::Collected> collected;
    for (const auto& server : batch) {
      server->outcome.collected.rows = server->rows.get();
      collected.push_back(server->outcome.collected);
    }
    published = commit(batch, collected);
  } catch (const inventory::OutcomeUnknown& error) {
    return giveUp(batch, error.what(), "the connection to the database was lost");
  } catch (const inventory::ServerRefused& error) {
    return tryEach(error.what());
  } catch (const inventory::Locked& error) {
    return giveUp(batch, error.what(), error.what());
  } catch (const inventory::Unreachable& error) {
    return giveUp(batch, error.what(), error.what());
  } catch (const inventory::Forbidden& error) {
    return giveUp(batch, error.what(), error.what());
  } catch (const std::exception& error) {
    // The cause may be a single server.
    return tryEach(error.what());
  }
  for (std::size_t at = 0; at < batch.size(); ++at) listener_.onPublished(*batch[at], published[at]);
}

// stop() waits for the transaction and for the listener's first call about it.
std::vector<inventory::Published> Publisher::commit(std::span<std::unique_ptr<CollectedServer>> batch,
                                                    std::span<const inventory::Collected> collected) {
  const SemaphoreGuard guard(transactions_);
  try {
    auto published = inventory_.publish(collected, options_);
    for (std::size_t at = 0; at < batch.size(); ++at) listener_.onCommitted(*batch[at], published[at]);
    return published;
  } catch (const inventory::OutcomeUnknown&) {
    listener_.onUnknown(batch);
    throw;
  }
}

// A failure that all servers share is not retried for each of them. `others` is the reason for the rest.
void Publisher::giveUp(std::span<const std::unique_ptr<CollectedServer>> batch, const char* why,
                       const char* others) {
  {
    const std::lock_guard lock(mutex_);
    if (sharedFailure_.empty()) sharedFailure_ = others;
    hasGivenUp_ = true;
  }
  if (!stopped_) listener_.onFailed(batch, why);
}

}  // namespace host
