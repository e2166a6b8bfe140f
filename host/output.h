// What the program prints.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace host {

// Nobody reads the output any more.
class OutputClosed : public std::exception {
 public:
  const char* what() const noexcept override { return "the output is closed"; }
};

// Text on its way to the standard output or a file, in large pieces. The process must ignore SIGPIPE.
class Output {
 public:
  Output() = default;
  // To a descriptor, which must stay open; failures name it so.
  Output(int descriptor, std::string name) : descriptor_(descriptor), name_(std::move(name)) {}
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  // Throws OutputClosed when the reader of the standard output has gone, std::runtime_error when the output
  // can't be written.
  void write(std::string_view text);

  // To be called at the end: what isn't flushed is lost.
  void flush();

 private:
  const int descriptor_ = 1;
  const std::string name_;  // empty for the standard output
  std::string buffer_;
};

// Prints something whose status is known beforehand; it stands also where the reader has gone.
template <typename Print>
int printed(Output& output, int status, const Print& print) {
  try {
    print();
    output.flush();
  } catch (const OutputClosed&) {
    // As much as the reader wanted.
  }
  return status;
}

// Writes a message as one line to the standard error output, behind the program's name. Failures are dropped:
// there is nowhere left to tell them.
void complain(std::string_view message) noexcept;

// Writes a text to the standard error output as it is.
void printToError(std::string_view text) noexcept;

// Opens what is missing of the three standard files, so that no database takes the place of one.
void openStandardFiles();

}  // namespace host
