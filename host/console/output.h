// Text that the program prints.
#pragma once

#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace host {

// The reader of the standard output has closed it.
class OutputClosed : public std::exception {
 public:
  const char* what() const noexcept override { return "the output is closed"; }
};

// Buffered text for the standard output or a file. The process must ignore SIGPIPE.
class Output {
 public:
  Output() = default;
  // For an open descriptor, which must outlive this; `name` is its name in error messages.
  Output(int descriptor, std::string name) : descriptor_(descriptor), name_(std::move(name)) {}
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  int descriptor() const { return descriptor_; }

  // Throws OutputClosed if the reader of the standard output has closed it, and std::runtime_error if the
  // text cannot be written.
  void write(std::string_view text);

  // Must be called at the end: text that is not flushed is lost.
  void flush();

 private:
  const int descriptor_ = 1;
  const std::string name_;  // empty for the standard output
  std::string buffer_;
};

// Prints something and returns the status, also if the reader has closed the output.
template <typename Print>
int printed(Output& output, int status, const Print& print) {
  try {
    print();
    output.flush();
  } catch (const OutputClosed&) {
    // The reader has read as much as it wanted.
  }
  return status;
}

// Writes a message as one line to the standard error output, after the program's name. Failures are ignored.
void printError(std::string_view message) noexcept;

// Writes a text to the standard error output unchanged. Failures are ignored.
void printToError(std::string_view text) noexcept;

}  // namespace host
