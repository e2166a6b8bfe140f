// Collections that are done, on their way into the inventory.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <semaphore>
#include <string>
#include <vector>

#include "host/server_collection.h"
#include "inventory/inventory.h"

namespace host {

// A collection that is whole.
struct Finished {
  std::size_t place = 0;  // its server's among all of them
  std::unique_ptr<Workplace> workplace;
  Outcome outcome;
  std::int64_t rows = 0;
};

// Publishes what is ready together in one transaction, as many of them at once as the inventory takes.
// Whoever brings a collection may find himself publishing those that wait; the others go on collecting. All
// members may be called from any thread.
class Publisher {
 public:
  // Who wants to know what has become of the collections. Called on the publishing thread.
  class Listener {
   public:
    virtual ~Listener() = default;
    // It stands in the inventory. stop() waits for this call, so it must not wait for anybody.
    virtual void published(const Finished&, const inventory::Published&) noexcept = 0;
    // The time to say so.
    virtual void tellPublished(const Finished&, const inventory::Published&) noexcept = 0;
    virtual void tellRefused(const Finished&, const char* why) noexcept = 0;
  };

  // `jobs` is how many threads collect.
  Publisher(inventory::Inventory& inventory, std::string database, std::size_t jobs, Listener& listener);

  // A workplace for a collection, empty.
  std::unique_ptr<Workplace> workplace();

  // Gives one back that nothing is to be published from.
  void giveBack(std::unique_ptr<Workplace> workplace);

  void add(std::unique_ptr<Finished> finished);

  // Publishes what is left.
  void finish();

  // Lets the publication that is under way end, either way, and begins no other one. Afterwards nothing
  // changes any more until the process ends.
  void stop();

 private:
  using Batch = std::vector<std::unique_ptr<Finished>>;

  bool isDue() const;
  void publishWaiting();
  void publish(std::span<std::unique_ptr<Finished>> batch);

  inventory::Inventory& inventory_;
  const std::string database_;
  const std::size_t jobs_;
  Listener& listener_;
  std::atomic<bool> stopped_ = false;
  std::counting_semaphore<> publishers_;    // of those who publish what waits, and tell what has become of it
  std::counting_semaphore<> transactions_;  // while the inventory is changed
  mutable std::mutex mutex_;                // of what stands below
  Batch waiting_;
  std::int64_t waitingRows_ = 0;
  std::chrono::steady_clock::time_point waitingSince_;
  std::vector<std::unique_ptr<Workplace>> idle_;
};

}  // namespace host
