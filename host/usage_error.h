// Wrong command lines.
#pragma once

#include <stdexcept>

namespace host {

// What is wrong with the command line.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace host
