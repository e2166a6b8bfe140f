// The progress of a collection, as the component tells it to its host's three objects, and how far the run
// has come: on a terminal one line, anywhere else nothing.
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

// How much longer a run takes of which `done` servers of `all` took so long: "about 40 s left". Empty where
// it isn't worth telling: at the beginning, when nobody knows, and where it is soon over.
std::string timeLeft(std::chrono::steady_clock::duration took, std::size_t done, std::size_t all);

// The one line of all servers that are collected at the moment. It stands at the bottom of the terminal, fits
// its width, and is gone when nothing is collected. Its members may be called from any thread.
class ProgressLine {
 public:
  // What the component has told about one server so far.
  struct Lane {
    std::string name;  // with its number; empty where there is no other one
    std::string section;
    std::string status;
    std::string count;
    int steps = 0;
    int stepsDone = 0;
  };

  // The component's three objects, and what is to be called as another section begins; null where nobody
  // would see it.
  struct Updaters {
    automation::ObjectRef statusBar;
    automation::ObjectRef progressBar;
    automation::ObjectRef processCount;
    std::function<void(std::string_view section)> begin;
  };

  // Of a run over so many servers. `wanted` only has an effect where the standard error output is a terminal.
  ProgressLine(bool wanted, std::size_t servers);
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;
  ~ProgressLine();

  // Begins and ends a server, whose number counts from 1. The updaters may outlive it, but not the line.
  std::shared_ptr<Lane> begin(const std::string& name, std::size_t number);
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
  const std::size_t servers_;
  const Clock::time_point start_ = Clock::now();
  std::timed_mutex mutex_;
  std::vector<std::shared_ptr<Lane>> lanes_;
  std::shared_ptr<Lane> current_;
  Clock::time_point currentSince_;
  Clock::time_point drawn_;
  std::size_t done_ = 0;
  bool lineStands_ = false;
  std::atomic<bool> stopped_ = false;
};

}  // namespace host
