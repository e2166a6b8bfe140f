#include "os/scratch_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

#include "os/posix/temporary_directory.h"

namespace os {

ScratchFile::ScratchFile() {
  std::string name = (temporaryDirectory() / "iisinventory-XXXXXX").string();
  const int descriptor = ::mkstemp(name.data());
  if (descriptor >= 0) {
    ::unlink(name.c_str());
    stream_.reset(::fdopen(descriptor, "w+"));
    if (stream_ != nullptr) return;
  }
  const int error = errno;
  if (descriptor >= 0) ::close(descriptor);
  throw std::system_error(error, std::generic_category());
}

int ScratchFile::descriptor() const {
  return ::fileno(stream_.get());
}

}  // namespace os
