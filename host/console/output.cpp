#include "host/console/output.h"

#include <cerrno>
#include <new>
#include <system_error>

#include <fmt/core.h>

#include "host/console/terminal_text.h"
#include "os/terminal.h"

namespace host {
namespace {

constexpr std::size_t kBufferSize = 64 * 1024;

}  // namespace

void Output::write(std::string_view text) {
  buffer_ += text;
  if (buffer_.size() >= kBufferSize) flush();
}

void Output::flush() {
  const std::string text = std::move(buffer_);
  buffer_.clear();
  const int error = os::writeText(descriptor_, text);
  if (error == EPIPE && name_.empty()) throw OutputClosed();
  if (error != 0) {
    throw std::runtime_error(fmt::format("cannot write {}: {}", name_.empty() ? "the output" : name_,
                                         std::generic_category().message(error)));
  }
}

void printError(std::string_view message) noexcept {
  try {
    os::writeText(os::kStandardError, "iisinventory: " + escapeForTerminal(message) + "\n");
  } catch (const std::bad_alloc&) {
    os::writeText(os::kStandardError, "iisinventory: out of memory\n");
  }
}

void printToError(std::string_view text) noexcept {
  os::writeText(os::kStandardError, text);
}

}  // namespace host
