// The progress of a collection, as the component tells it to its host's three objects: on a terminal one
// line, anywhere else nothing.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "automation/object.h"

namespace host {

// The one line of all servers that are collected at the moment. It stands at the bottom of the terminal, fits
// its width, and is gone when nothing is collected. Its members may be called from any thread.
class ProgressLine {
 public:
  // What the component has told about one server so far.
  struct Lane {
    std::string name;  // empty where it need not be shown
    std::string status;
    std::string count;
    int steps = 0;
    int stepsDone = 0;
  };

  // The status bar, the progress bar and the process count; null objects where nobody would see them.
  using Updaters = std::array<automation::ObjectRef, 3>;

  // `wanted` only has an effect where the standard error output is a terminal.
  explicit ProgressLine(bool wanted);
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;
  ~ProgressLine();

  // Begins and ends a server. The updaters may outlive it, but not the line.
  std::shared_ptr<Lane> begin(std::string name);
  Updaters updaters(const std::shared_ptr<Lane>& lane);
  void end(const std::shared_ptr<Lane>& lane);

  // Takes the line away for good, whatever goes on.
  void stop();

  // Lets somebody print while the line is out of the way.
  void aside(const std::function<void()>& print);

 private:
  class Updater;
  using Clock = std::chrono::steady_clock;

  void change(const std::shared_ptr<Lane>& lane, const std::function<void(Lane&)>& edit);
  void chooseLane(Clock::time_point now);
  void wipe() noexcept;

  const bool shown_;
  std::timed_mutex mutex_;
  std::vector<std::shared_ptr<Lane>> lanes_;
  std::shared_ptr<Lane> current_;
  Clock::time_point currentSince_;
  Clock::time_point drawn_;
  bool lineStands_ = false;
  std::atomic<bool> stopped_ = false;
};

}  // namespace host
