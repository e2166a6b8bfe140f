// Signals that end the program.
#pragma once

#include <signal.h>

#include <atomic>
#include <functional>
#include <thread>

namespace host {

// Holds back SIGINT, SIGTERM and SIGHUP for as long as it lives, as far as whoever started the program hasn't
// had them ignored. To be made before any other thread, which then takes none of them.
class EndingSignals {
 public:
  EndingSignals();
  // What came while nobody awaited it has its usual effect now.
  ~EndingSignals();
  EndingSignals(const EndingSignals&) = delete;
  EndingSignals& operator=(const EndingSignals&) = delete;

  // Waits for one on a thread of its own, up to ignore(). `end` is called once and must not return; the
  // signal after that one has its usual effect, which is the end of the process.
  void await(std::function<void(int signalNumber)> end);
  void ignore();

 private:
  void wait(const std::function<void(int)>& end) const;

  sigset_t signals_;
  sigset_t former_;
  std::thread thread_;
};

// Does something that may never end, because somebody doesn't read what is printed, but goes on after a
// moment. For the end of the process: whatever it refers to must live until then.
void tryForAMoment(std::function<void()> work);

// Ends the process as the signal does, so that a shell sees what has ended it.
[[noreturn]] void endBySignal(int signalNumber);

}  // namespace host
