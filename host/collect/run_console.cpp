#include "host/collect/run_console.h"

#include <chrono>
#include <stdexcept>
#include <thread>

#include "host/console/terminal_text.h"

namespace host {
namespace {

constexpr std::chrono::milliseconds kLongestClose{200};

}  // namespace

void RunConsole::speak(const std::function<void()>& speech) {
  {
    const std::lock_guard lock(mutex_);
    if (!isClosed_) return progress_.aside(speech);
  }
  while (true) std::this_thread::sleep_for(std::chrono::hours(1));
}

void RunConsole::error(const std::string& text) {
  ++errorCount_;
  speak([&] { printError(text); });
}

void RunConsole::remark(const std::string& text) {
  speak([&] { printError(text); });
}

void RunConsole::note(const std::string& text) {
  if (wantsNotes_) print([&](Output& output) { output.write(escapeForTerminal(text) + "\n"); });
}

void RunConsole::print(const std::function<void(Output&)>& prints) {
  if (outputFailed_) return;
  speak([&] {
    try {
      prints(output_);
      output_.flush();
    } catch (const OutputClosed&) {
      outputFailed_ = true;
    } catch (const std::runtime_error& error) {
      outputFailed_ = hasLostOutput_ = true;
      ++errorCount_;
      printError(error.what());
    }
  });
}

void RunConsole::printLast(const std::function<void(Output&)>& prints) {
  if (!isWhole_) return;
  prints(output_);
  output_.flush();
}

void RunConsole::close() {
  // A thread that prints may wait for a reader for ever. The thread sanitizer of GCC 12 supports waits by the
  // system clock only.
  const std::unique_lock lock(mutex_, std::chrono::system_clock::now() + kLongestClose);
  isClosed_ = true;
  isWhole_ = lock.owns_lock();
  progress_.stop();
}

}  // namespace host
