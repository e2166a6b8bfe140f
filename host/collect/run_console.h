// What a run prints while it collects, from any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

#include "host/console/output.h"
#include "host/console/progress.h"

namespace host {

// Members may be called from any thread.
class RunConsole {
 public:
  // `quiet`: no progress.
  RunConsole(bool quiet, bool wantsNotes, std::size_t servers, Output& output)
      : wantsNotes_(wantsNotes), output_(output), progress_(!quiet, servers) {}

  ProgressLine& progress() { return progress_; }

  // An error, of which the run counts the number.
  void error(const std::string& text);
  std::int64_t errorCount() const { return errorCount_; }
  // Whether the output could not be written, other than to a reader that is gone.
  bool hasLostOutput() const { return hasLostOutput_; }

  // More about errors that have been reported.
  void remark(const std::string& text);
  // A line on the standard output.
  void note(const std::string& text);
  // Prints to the standard output. If that is closed, the run continues.
  void print(const std::function<void(Output&)>& prints);

  // From now on only the caller prints: other threads that want to wait for the end of the process.
  void close();
  // Prints to the standard output after close(), unless another thread's output is still incomplete.
  void printLast(const std::function<void(Output&)>& prints);

 private:
  void speak(const std::function<void()>& speech);

  const bool wantsNotes_;
  Output& output_;
  ProgressLine progress_;
  std::timed_mutex mutex_;
  std::atomic<bool> isClosed_ = false;
  std::atomic<bool> isWhole_ = true;
  std::atomic<bool> outputFailed_ = false;
  std::atomic<bool> hasLostOutput_ = false;
  std::atomic<std::int64_t> errorCount_ = 0;
};

}  // namespace host
