// Collections that are done, on their way into the inventory.
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

// A collection that is whole.
struct CollectedServer {
  std::size_t place = 0;  // its server's among all of them
  std::unique_ptr<inventory::RowSource> rows;
  inventory::RowCounts rowCounts;
  Outcome outcome;
};

// Publishes what is ready together in one transaction, as many of them at once as the inventory takes.
// Whoever brings a collection may find himself publishing those that wait; the others go on collecting. All
// members may be called from any thread.
class Publisher {
 public:
  // Receives the outcome of publications. Called on the publishing thread.
  class Listener {
   public:
    virtual ~Listener() = default;
    // It is published. stop() waits for this call, so it must not wait for another thread.
    virtual void onCommitted(const CollectedServer&, const inventory::Published&) noexcept = 0;
    // The time to report it.
    virtual void onPublished(const CollectedServer&, const inventory::Published&) noexcept = 0;
    // The connection was lost, and they may have been published. The same holds for this call.
    virtual void onUnknown(std::span<const std::unique_ptr<CollectedServer>>) noexcept = 0;
    // The time to report, for one reason, that some were not published, or may not have been.
    virtual void onFailed(std::span<const std::unique_ptr<CollectedServer>>, const char* why) noexcept = 0;
  };

  // `jobs` is how many threads collect.
  Publisher(inventory::Inventory& inventory, std::size_t jobs, const inventory::PublishOptions& options,
            Listener& listener);

  void add(std::unique_ptr<CollectedServer> finished);

  // Publishes what is left.
  void finish();

  // Whether the inventory can't be published into for a reason that all servers share, so that collecting
  // more of them is in vain.
  bool hasGivenUp() const { return hasGivenUp_; }

  // Ends the publication that is under way, either way, and begins no other one. Afterwards nothing changes
  // any more until the process ends.
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
