// Progress of a run: a line on the terminal, from what the component reports to its host's three objects.
// Nothing is shown elsewhere.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "automation/object.h"

namespace host {

// The estimated rest of a run of which `done` of `all` servers took the time `took`: "about 40 s left". Empty
// at the beginning, when there is no good estimate, and near the end.
std::string timeLeft(std::chrono::steady_clock::duration took, std::size_t done, std::size_t all);

// One line for all servers being collected, at the bottom of the terminal and not wider than it. It
// disappears when nothing is collected. Members may be called from any thread.
class ProgressLine {
 public:
  // What the component has reported about a server.
  struct Lane {
    std::string name;  // with its number; empty if there is only one server
    std::string section;
    std::string status;
    std::string count;
    int steps = 0;
    int stepsDone = 0;
  };

  // The component's three progress objects, and a function to call at the beginning of a section; null if
  // nothing is shown.
  struct Updaters {
    automation::ObjectRef statusBar;
    automation::ObjectRef progressBar;
    automation::ObjectRef processCount;
    std::function<void(std::string_view section)> begin;
  };

  // For a run over `servers` servers. Shows the line if `wanted` and the standard error output is a terminal.
  ProgressLine(bool wanted, std::size_t servers);
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;
  ~ProgressLine();

  // Begins and ends a server; numbers count from 1. The updaters may outlive the server, but not the line.
  std::shared_ptr<Lane> begin(const std::string& name, std::size_t number);
  Updaters updaters(const std::shared_ptr<Lane>& lane);
  void end(const std::shared_ptr<Lane>& lane);

  // Removes the line permanently.
  void stop();

  // Runs `print` while the line is hidden.
  void aside(const std::function<void()>& print);

 private:
  class Updater;
  using Clock = std::chrono::steady_clock;

  void change(const std::shared_ptr<Lane>& lane, const std::function<void(Lane&)>& edit);
  void chooseLane(Clock::time_point now);
  void wipe() noexcept;

  const bool shown_;
  const std::size_t servers_;
  const Clock::time_point start_ = Clock::now();
  std::timed_mutex mutex_;
  std::vector<std::shared_ptr<Lane>> lanes_;
  std::shared_ptr<Lane> current_;
  Clock::time_point currentSince_;
  Clock::time_point drawn_;
  std::size_t done_ = 0;
  bool isLineShown_ = false;
  std::atomic<bool> stopped_ = false;
};

}  // namespace host
