#include "os/scratch_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <system_error>

#include "os/posix/temporary_directory.h"

namespace os {

ScratchFile::ScratchFile() {
  const std::string directory = temporaryDirectory().string();
  std::string name = directory + "/iisinventory-XXXXXX";
  const int descriptor = ::mkostemp(name.data(), O_CLOEXEC);
  if (descriptor >= 0) {
    ::unlink(name.c_str());
    stream_.reset(::fdopen(descriptor, "w+"));
    if (stream_ != nullptr) return;
  }
  const int error = errno;
  if (descriptor >= 0) ::close(descriptor);
  throw std::runtime_error("cannot create a temporary file in '" + directory +
                           "': " + std::generic_category().message(error));
}

int ScratchFile::descriptor() const {
  return ::fileno(stream_.get());
}

}  // namespace os
