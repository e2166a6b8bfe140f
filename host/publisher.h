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
  std::unique_ptr<Workplace> workplace;
  Outcome outcome;
  std::int64_t rows = 0;
};

// Publishes what is ready together in one transaction, as many of them at once as the inventory takes.
// Whoever brings a collection may find himself publishing those that wait; the others go on collecting. All
// members may be called from any thread.
class Publisher {
 public:
  // What has become of a collection: the rows, or why there are none; never both. Called on a publishing
  // thread, one at a time.
  using Told = std::function<void(const Finished&, const inventory::Published*, const std::string& why)>;

  Publisher(inventory::Inventory& inventory, std::string database, Told told);

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
  const Told told_;
  std::atomic<bool> stopped_ = false;
  std::counting_semaphore<> publishers_;
  std::mutex telling_;
  mutable std::mutex mutex_;  // of what stands below
  Batch waiting_;
  std::int64_t waitingRows_ = 0;
  std::chrono::steady_clock::time_point waitingSince_;
  std::vector<std::unique_ptr<Workplace>> idle_;
};

}  // namespace host
