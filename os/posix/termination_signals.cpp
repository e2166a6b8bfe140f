#include "os/termination_signals.h"

#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace os {
namespace {

constexpr int kTerminating[] = {SIGINT, SIGTERM, SIGHUP};
constexpr std::chrono::milliseconds kTimeout{1000};

// Ends the waiting thread.
int releaseSignal() {
  return SIGRTMIN;
}

bool isIgnored(int signalNumber) {
  struct sigaction current {};
  ::sigaction(signalNumber, nullptr, &current);
  return current.sa_handler == SIG_IGN;
}

}  // namespace

class TerminationSignals::Implementation {
 public:
  Implementation() {
    ::sigemptyset(&signals_);
    for (const int signalNumber : kTerminating) {
      if (!isIgnored(signalNumber)) ::sigaddset(&signals_, signalNumber);
    }
    ::sigaddset(&signals_, releaseSignal());
    ::pthread_sigmask(SIG_BLOCK, &signals_, &previous_);
  }
  ~Implementation() {
    ignore();
    ::pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
  }
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  void await(std::function<void(int)> end) {
    thread_ = std::thread([this, end = std::move(end)] { wait(end); });
  }

  void ignore() {
    if (!thread_.joinable()) return;
    ::pthread_kill(thread_.native_handle(), releaseSignal());
    thread_.join();
  }

 private:
  void wait(const std::function<void(int)>& end) const {
    int signalNumber = 0;
    while (::sigwait(&signals_, &signalNumber) != 0) {
    }
    if (signalNumber == releaseSignal()) return;
    sigset_t terminating = signals_;
    ::sigdelset(&terminating, releaseSignal());
    ::pthread_sigmask(SIG_UNBLOCK, &terminating, nullptr);
    end(signalNumber);
  }

  sigset_t signals_{};
  sigset_t previous_{};
  std::thread thread_;
};

TerminationSignals::TerminationSignals() : implementation_(std::make_unique<Implementation>()) {}

TerminationSignals::~TerminationSignals() = default;

void TerminationSignals::await(std::function<void(int)> end) {
  implementation_->await(std::move(end));
}

void TerminationSignals::ignore() {
  implementation_->ignore();
}

void runWithTimeout(std::function<void()> work) {
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    bool isDone = false;
  };
  const auto state = std::make_shared<State>();
  try {
    std::thread([state, work = std::move(work)] {
      try {
        work();
      } catch (const std::exception&) {
        // The process ends all the same.
      }
      const std::lock_guard lock(state->mutex);
      state->isDone = true;
      state->changed.notify_one();
    }).detach();
  } catch (const std::system_error&) {
    return;
  }
  // The thread sanitizer of GCC 12 supports waits by the system clock only.
  std::unique_lock lock(state->mutex);
  state->changed.wait_until(lock, std::chrono::system_clock::now() + kTimeout, [&] { return state->isDone; });
}

void endBySignal(int signalNumber) {
  ::signal(signalNumber, SIG_DFL);
  sigset_t one;
  ::sigemptyset(&one);
  ::sigaddset(&one, signalNumber);
  ::pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
  ::raise(signalNumber);
  ::_exit(128 + signalNumber);
}

void ignoreWriteSignals() {
  ::signal(SIGPIPE, SIG_IGN);
  ::signal(SIGXFSZ, SIG_IGN);
}

}  // namespace os
