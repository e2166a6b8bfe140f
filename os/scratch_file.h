// Temporary files without a name.
#pragma once

#include <cstdio>
#include <memory>

namespace os {

// A file in the temporary directory (TMPDIR, or else /tmp) that exists as long as its owner, and has no name
// there.
class ScratchFile {
 public:
  // Throws std::runtime_error.
  ScratchFile();

  // For reading and writing; owned by this.
  std::FILE* stream() const { return stream_.get(); }
  int descriptor() const;

 private:
  struct Closer {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
  };
  std::unique_ptr<std::FILE, Closer> stream_;
};

}  // namespace os
