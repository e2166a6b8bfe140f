#include "host/output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "host/terminal_text.h"

namespace host {
namespace {

constexpr std::size_t kBufferSize = 64 * 1024;

// 0, or the number of the error.
int writeWhole(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(file, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return errno;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return 0;
}

}  // namespace

void Output::write(std::string_view text) {
  buffer_ += text;
  if (buffer_.size() >= kBufferSize) flush();
}

void Output::flush() {
  const std::string text = std::move(buffer_);
  buffer_.clear();
  const int error = writeWhole(descriptor_, text);
  if (error == EPIPE && name_.empty()) throw OutputClosed();
  if (error != 0) {
    throw std::runtime_error("can't write " + (name_.empty() ? "the output" : name_) + ": " +
                             std::generic_category().message(error));
  }
}

void complain(std::string_view message) noexcept {
  try {
    writeWhole(STDERR_FILENO, "iisinventory: " + harmless(message) + "\n");
  } catch (const std::bad_alloc&) {
    writeWhole(STDERR_FILENO, "iisinventory: out of memory\n");
  }
}

void printToError(std::string_view text) noexcept {
  writeWhole(STDERR_FILENO, text);
}

void openStandardFiles() {
  for (const int file : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(file, F_GETFD) >= 0 || errno != EBADF) continue;
    // The lowest free number is the missing one, since those below it are open. What is printed to an output
    // that isn't there can't be written, and is not to look as if it had been.
    if (::open("/dev/null", file == STDOUT_FILENO ? O_RDONLY : O_RDWR) < 0) return;
  }
}

}  // namespace host
