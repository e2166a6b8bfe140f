#include "os/terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cwchar>

namespace os {

bool isTerminal(int file) {
  return ::isatty(file) != 0;
}

std::size_t terminalColumns(int file) {
  constexpr std::size_t kDefaultColumns = 80;
  winsize size{};
  if (::ioctl(file, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kDefaultColumns;
  return size.ws_col;
}

std::size_t characterWidth(char32_t character) {
  const int width = ::wcwidth(static_cast<wchar_t>(character));
  return width < 0 ? 1 : static_cast<std::size_t>(width);
}

int writeText(int file, std::string_view text) noexcept {
  while (!text.empty()) {
    const ssize_t written = ::write(file, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return errno;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return 0;
}

void openStandardStreams() {
  for (const int file : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(file, F_GETFD) >= 0 || errno != EBADF) continue;
    // open() returns the lowest free number, which is this one, since those below it are open.
    if (::open("/dev/null", file == STDOUT_FILENO ? O_RDONLY : O_RDWR) < 0) return;
  }
}

}  // namespace os
