#include "host/publisher.h"

#include <algorithm>
#include <iterator>
#include <span>
#include <utility>

namespace host {
namespace {

// A transaction takes a few waits for the disk, so small servers share one; but nobody's rows wait for long,
// and not many of them.
constexpr std::size_t kMostServers = 32;
constexpr std::int64_t kMostRows = 20000;
constexpr std::chrono::milliseconds kLongestWait{500};
// Behind this many, or as many as there are jobs of many rows, whoever brings one more waits for his turn to
// publish.
constexpr std::size_t kMostWaiting = 64;
// An empty workplace keeps its memory and its temporary file, so only small ones are kept, as many as are
// published at once.
constexpr std::size_t kMostIdle = kMostServers;
constexpr std::int64_t kMostIdleBytes = 1024 * 1024;

// Somebody's turn, for which he waits.
class Turn {
 public:
  explicit Turn(std::counting_semaphore<>& turns) : turns_(turns) { turns_.acquire(); }
  // One that he has already.
  Turn(std::counting_semaphore<>& turns, std::adopt_lock_t) : turns_(turns) {}
  ~Turn() { turns_.release(); }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  std::counting_semaphore<>& turns_;
};

}  // namespace

Publisher::Publisher(inventory::Inventory& inventory, std::string database, std::size_t jobs,
                     Listener& listener)
    : inventory_(inventory),
      database_(std::move(database)),
      jobs_(jobs),
      listener_(listener),
      publishers_(inventory.publishersAtOnce()),
      transactions_(inventory.publishersAtOnce()) {}

std::unique_ptr<Workplace> Publisher::workplace() {
  {
    const std::lock_guard lock(mutex_);
    if (!idle_.empty()) {
      auto workplace = std::move(idle_.back());
      idle_.pop_back();
      return workplace;
    }
  }
  return std::make_unique<Workplace>(database_);
}

void Publisher::giveBack(std::unique_ptr<Workplace> workplace) {
  // In place of one that isn't kept a new one will be made.
  if (workplace->database().memoryInUse() > kMostIdleBytes) return;
  try {
    workplace->database().empty();
    if (!workplace->database().breakdown().empty()) return;
    const std::lock_guard lock(mutex_);
    if (idle_.size() < kMostIdle) idle_.push_back(std::move(workplace));
  } catch (const sqlite::Error&) {
  } catch (const std::bad_alloc&) {
  }
}

void Publisher::add(std::unique_ptr<Finished> finished) {
  bool due = false;
  bool wait = false;
  {
    const std::lock_guard lock(mutex_);
    if (waiting_.empty()) waitingSince_ = std::chrono::steady_clock::now();
    waitingRows_ += finished->rows;
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
  const Turn turn(publishers_, std::adopt_lock);
  publishWaiting();
}

bool Publisher::isDue() const {
  return waiting_.size() >= kMostServers || waitingRows_ >= kMostRows ||
         std::chrono::steady_clock::now() - waitingSince_ >= kLongestWait;
}

void Publisher::finish() {
  const Turn turn(publishers_);
  publishWaiting();
}

void Publisher::stop() {
  stopped_ = true;
  inventory_.stopWaiting();
  // Never given back.
  for (int turns = inventory_.publishersAtOnce(); turns > 0; --turns) transactions_.acquire();
}

void Publisher::publishWaiting() {
  if (stopped_) return;
  Batch batch;
  {
    const std::lock_guard lock(mutex_);
    batch.swap(waiting_);
    waitingRows_ = 0;
  }
  if (!batch.empty()) publish(batch);
  for (auto& finished : batch) giveBack(std::move(finished->workplace));
}

void Publisher::publish(std::span<std::unique_ptr<Finished>> batch) {
  const auto refuse = [&](const char* why) {
    for (const auto& finished : batch) listener_.tellRefused(*finished, why);
  };
  const auto tryEach = [&](const char* why) {
    if (batch.size() == 1 || stopped_) return refuse(why);
    for (auto& finished : batch) publish({&finished, 1});
  };
  std::vector<inventory::Published> published;
  try {
    std::vector<inventory::Result> results;
    for (const auto& finished : batch) {
      finished->outcome.result.rows = finished->workplace.get();
      results.push_back(finished->outcome.result);
    }
    const Turn turn(transactions_);
    published = inventory_.publish(results);
    for (std::size_t at = 0; at < batch.size(); ++at) listener_.published(*batch[at], published[at]);
  } catch (const inventory::ServerLocked& error) {
    return tryEach(error.what());
  } catch (const inventory::Locked& error) {
    return refuse(error.what());
  } catch (const inventory::Unreachable& error) {
    return refuse(error.what());
  } catch (const std::exception& error) {
    // One of them may have been too much for it.
    return tryEach(error.what());
  }
  for (std::size_t at = 0; at < batch.size(); ++at) listener_.tellPublished(*batch[at], published[at]);
}

}  // namespace host
