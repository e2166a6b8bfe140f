// Signals that end the program.
#pragma once

#include <functional>
#include <memory>

namespace os {

// Blocks SIGINT, SIGTERM and SIGHUP while it lives, except those that the parent process had ignored. Create
// it before any other thread, so that every thread inherits the blocked signals.
class TerminationSignals {
 public:
  TerminationSignals();
  // A signal that is still pending has its usual effect now.
  ~TerminationSignals();
  TerminationSignals(const TerminationSignals&) = delete;
  TerminationSignals& operator=(const TerminationSignals&) = delete;

  // Waits for a signal on a thread of its own until ignore(). Calls `end` once, which must not return. A
  // second signal has its usual effect, which is the end of the process.
  void await(std::function<void(int signalNumber)> end);
  void ignore();

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

// Runs work that may block for ever, because nothing reads its output, for at most a second. For the end of
// the process: what the work refers to must live until then.
void runWithTimeout(std::function<void()> work);

// Ends the process by the signal, so that its parent sees the cause.
[[noreturn]] void endBySignal(int signalNumber);

// Makes writes to a closed pipe and beyond the size limit of files fail instead of ending the process.
void ignoreWriteSignals();

}  // namespace os
