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
// Behind this many whoever brings one more waits for his turn to publish.
constexpr std::size_t kMostWaiting = 64;
// An empty workplace keeps its memory.
constexpr std::size_t kMostIdle = 64;

// Somebody's turn to publish, which he has taken already.
class Turn {
 public:
  explicit Turn(std::counting_semaphore<>& turns) : turns_(turns) {}
  ~Turn() { turns_.release(); }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  std::counting_semaphore<>& turns_;
};

}  // namespace

Publisher::Publisher(inventory::Inventory& inventory, std::string database, Told told)
    : inventory_(inventory),
      database_(std::move(database)),
      told_(std::move(told)),
      publishers_(inventory.publishersAtOnce()) {}

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
  try {
    workplace->database().empty();
  } catch (const sqlite::Error&) {
    return;  // A new one will be made.
  }
  if (!workplace->database().breakdown().empty()) return;
  const std::lock_guard lock(mutex_);
  if (idle_.size() < kMostIdle) idle_.push_back(std::move(workplace));
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
    wait = waiting_.size() >= kMostWaiting;
  }
  if (!due) return;
  if (wait) {
    publishers_.acquire();
  } else if (!publishers_.try_acquire()) {
    return;
  }
  const Turn turn(publishers_);
  publishWaiting();
}

bool Publisher::isDue() const {
  return waiting_.size() >= kMostServers || waitingRows_ >= kMostRows ||
         std::chrono::steady_clock::now() - waitingSince_ >= kLongestWait;
}

void Publisher::finish() {
  publishers_.acquire();
  const Turn turn(publishers_);
  publishWaiting();
}

void Publisher::stop() {
  stopped_ = true;
  inventory_.stopWaiting();
  // Never given back.
  for (int turns = inventory_.publishersAtOnce(); turns > 0; --turns) publishers_.acquire();
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
  std::vector<inventory::Result> results;
  for (const auto& finished : batch) {
    finished->outcome.result.rows = finished->workplace.get();
    results.push_back(finished->outcome.result);
  }
  const auto tell = [&](std::size_t at, const inventory::Published* published, const std::string& why) {
    const std::lock_guard lock(telling_);
    told_(*batch[at], published, why);
  };
  std::string why;
  bool isOfOne = false;  // what stands in the way of one of them may not be in that of the others
  try {
    const auto published = inventory_.publish(results);
    for (std::size_t at = 0; at < batch.size(); ++at) tell(at, &published[at], {});
    return;
  } catch (const inventory::ServerLocked& error) {
    why = error.what();
    isOfOne = true;
  } catch (const inventory::Locked& error) {
    why = error.what();
  } catch (const inventory::Unreachable& error) {
    why = error.what();
  } catch (const std::exception& error) {
    why = error.what();
    isOfOne = true;
  }
  if (isOfOne && batch.size() > 1 && !stopped_) {
    for (auto& finished : batch) publish({&finished, 1});
    return;
  }
  for (std::size_t at = 0; at < batch.size(); ++at) tell(at, nullptr, why);
}

}  // namespace host
