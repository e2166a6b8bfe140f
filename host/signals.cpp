#include "host/signals.h"

#include <pthread.h>
#include <unistd.h>

namespace host {
namespace {

constexpr int kEnding[] = {SIGINT, SIGTERM, SIGHUP};

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

EndingSignals::EndingSignals(std::function<void(int)> end) {
  ::sigemptyset(&signals_);
  for (const int signalNumber : kEnding) {
    if (!isIgnored(signalNumber)) ::sigaddset(&signals_, signalNumber);
  }
  ::sigaddset(&signals_, releaseSignal());
  ::pthread_sigmask(SIG_BLOCK, &signals_, &former_);
  thread_ = std::thread([this, end = std::move(end)] { await(end); });
}

EndingSignals::~EndingSignals() {
  ::pthread_kill(thread_.native_handle(), releaseSignal());
  thread_.join();
  ::pthread_sigmask(SIG_SETMASK, &former_, nullptr);
}

void EndingSignals::await(const std::function<void(int)>& end) const {
  int signalNumber = 0;
  while (::sigwait(&signals_, &signalNumber) != 0) {
  }
  if (signalNumber == releaseSignal()) return;
  sigset_t ending = signals_;
  ::sigdelset(&ending, releaseSignal());
  ::pthread_sigmask(SIG_UNBLOCK, &ending, nullptr);
  end(signalNumber);
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
