// Signals that end the program.
#pragma once

#include <signal.h>

#include <atomic>
#include <functional>
#include <thread>

namespace host {

// Waits for SIGINT, SIGTERM and SIGHUP, as far as whoever started the program hasn't had them ignored. To be
// made before any other thread, which then takes none of them.
class EndingSignals {
 public:
  // `end` is called once, on a thread of its own, and must not return; the signal after that one has its
  // usual effect, which is the end of the process.
  explicit EndingSignals(std::function<void(int signalNumber)> end);
  ~EndingSignals();
  EndingSignals(const EndingSignals&) = delete;
  EndingSignals& operator=(const EndingSignals&) = delete;

 private:
  void await(const std::function<void(int)>& end) const;

  sigset_t signals_;
  sigset_t former_;
  std::thread thread_;
};

// Ends the process as the signal does, so that a shell sees what has ended it.
[[noreturn]] void endBySignal(int signalNumber);

}  // namespace host
