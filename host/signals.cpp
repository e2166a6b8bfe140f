#include "host/signals.h"

#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <system_error>
#include <utility>

namespace host {
namespace {

constexpr int kEnding[] = {SIGINT, SIGTERM, SIGHUP};
constexpr std::chrono::milliseconds kMoment{1000};

// Tells the waiting thread that there is nothing left to wait for.
int releaseSignal() {
  return SIGRTMIN;
}

bool isIgnored(int signalNumber) {
  struct sigaction current {};
  ::sigaction(signalNumber, nullptr, &current);
  return current.sa_handler == SIG_IGN;
}

}  // namespace

EndingSignals::EndingSignals() {
  ::sigemptyset(&signals_);
  for (const int signalNumber : kEnding) {
    if (!isIgnored(signalNumber)) ::sigaddset(&signals_, signalNumber);
  }
  ::sigaddset(&signals_, releaseSignal());
  ::pthread_sigmask(SIG_BLOCK, &signals_, &former_);
}

EndingSignals::~EndingSignals() {
  ignore();
  ::pthread_sigmask(SIG_SETMASK, &former_, nullptr);
}

void EndingSignals::await(std::function<void(int)> end) {
  thread_ = std::thread([this, end = std::move(end)] { wait(end); });
}

void EndingSignals::ignore() {
  if (!thread_.joinable()) return;
  ::pthread_kill(thread_.native_handle(), releaseSignal());
  thread_.join();
}

void EndingSignals::wait(const std::function<void(int)>& end) const {
  int signalNumber = 0;
  while (::sigwait(&signals_, &signalNumber) != 0) {
  }
  if (signalNumber == releaseSignal()) return;
  sigset_t ending = signals_;
  ::sigdelset(&ending, releaseSignal());
  ::pthread_sigmask(SIG_UNBLOCK, &ending, nullptr);
  end(signalNumber);
}

void tryForAMoment(std::function<void()> work) {
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
        // The end comes all the same.
      }
      const std::lock_guard lock(state->mutex);
      state->isDone = true;
      state->changed.notify_one();
    }).detach();
  } catch (const std::system_error&) {
    return;
  }
  // By the system's clock, which the thread sanitizer of GCC 12 understands.
  std::unique_lock lock(state->mutex);
  state->changed.wait_until(lock, std::chrono::system_clock::now() + kMoment, [&] { return state->isDone; });
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

}  // namespace host
