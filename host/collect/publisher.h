// Publishes complete collections.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <semaphore>
#include <span>
#include <string>
#include <vector>

#include "host/collect/server_collection.h"
#include "inventory/inventory.h"

namespace host {

// A complete collection.
struct CollectedServer {
  std::size_t place = 0;  // of its server in the run
  std::unique_ptr<inventory::RowSource> rows;
  inventory::RowCounts rowCounts;
  Outcome outcome;
};

// Publishes collections in batches, one transaction each, with as many concurrent transactions as the
// inventory supports. A thread that adds a collection may publish the waiting ones while the other threads go
// on collecting. All members may be called from any thread.
class Publisher {
 public:
  // Receives the outcome of publications. Called on the publishing thread.
  class Listener {
   public:
    virtual ~Listener() = default;
    // The transaction is committed. stop() waits for this call, so it must not wait for another thread.
    virtual void onCommitted(const CollectedServer&, const inventory::Published&) noexcept = 0;
    // Reports it.
    virtual void onPublished(const CollectedServer&, const inventory::Published&) noexcept = 0;
    // The connection was lost, and the servers may have been published. stop() waits for this call too.
    virtual void onUnknown(std::span<const std::unique_ptr<CollectedServer>>) noexcept = 0;
    // Reports servers that were not, or may not have been, published for one reason.
    virtual void onFailed(std::span<const std::unique_ptr<CollectedServer>>, const char* why) noexcept = 0;
  };

  // `jobs`: the number of collecting threads.
  Publisher(inventory::Inventory& inventory, std::size_t jobs, const inventory::PublishOptions& options,
            Listener& listener);

  void add(std::unique_ptr<CollectedServer> finished);

  // Publishes the remaining collections.
  void finish();

  // Whether publishing failed for a reason that all servers share, so that collecting more of them is
  // useless.
  bool hasGivenUp() const { return hasGivenUp_; }

  // Ends the current transactions, committed or not, and starts no other. Nothing changes afterwards until
  // the process ends.
  void stop();

 private:
  using Batch = std::vector<std::unique_ptr<CollectedServer>>;

  bool isDue() const;
  void publishWaiting();
  void publish(std::span<std::unique_ptr<CollectedServer>> batch);
  std::vector<inventory::Published> commit(std::span<std::unique_ptr<CollectedServer>> batch,
                                           std::span<const inventory::Collected> collected);
  void giveUp(std::span<const std::unique_ptr<CollectedServer>> batch, const char* why, const char* others);
  void awaitEnd() const;

  inventory::Inventory& inventory_;
  const std::size_t jobs_;
  const inventory::PublishOptions options_;
  Listener& listener_;
  std::atomic<bool> stopped_ = false;
  std::atomic<bool> hasGivenUp_ = false;
  std::counting_semaphore<> publishers_;    // of threads that publish what waits, and report it
  std::counting_semaphore<> transactions_;  // while the inventory is changed
  mutable std::mutex mutex_;                // guards the members below
  std::string sharedFailure_;
  Batch waiting_;
  std::int64_t waitingRows_ = 0;
  std::chrono::steady_clock::time_point waitingSince_;
};

}  // namespace host
