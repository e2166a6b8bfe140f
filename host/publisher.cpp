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

}  // namespace

Publisher::Publisher(inventory::Inventory& inventory, std::string database, Told told)
    : inventory_(inventory), database_(std::move(database)), told_(std::move(told)) {}

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
  std::unique_lock turn(publishing_, std::defer_lock);
  if (wait) {
    turn.lock();
  } else if (!turn.try_lock()) {
    return;
  }
  publishWaiting();
}

bool Publisher::isDue() const {
  return waiting_.size() >= kMostServers || waitingRows_ >= kMostRows ||
         std::chrono::steady_clock::now() - waitingSince_ >= kLongestWait;
}

void Publisher::finish() {
  const std::lock_guard turn(publishing_);
  publishWaiting();
}

void Publisher::stop() {
  stopped_ = true;
  inventory_.stopWaiting();
  // Never unlocked again.
  publishing_.lock();
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
  std::string why;
  try {
    const auto published = inventory_.publish(results);
    for (std::size_t at = 0; at < batch.size(); ++at) told_(*batch[at], &published[at], {});
    return;
  } catch (const inventory::Locked& error) {
    why = error.what();
  } catch (const std::exception& error) {
    why = error.what();
    // One of them may have been too much for it.
    if (batch.size() > 1 && !stopped_) {
      for (auto& finished : batch) publish({&finished, 1});
      return;
    }
  }
  for (const auto& finished : batch) told_(*finished, nullptr, why);
}

}  // namespace host
