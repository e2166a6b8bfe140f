// Files that a command writes.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "host/console/output.h"
#include "os/new_file.h"
#include "os/termination_signals.h"

namespace host {

// Files that replace their predecessors only when all are complete. A signal that ends the program removes
// them. Members throw std::runtime_error.
class OutputFiles {
 public:
  // Must be called before other threads start. finish() moves the files to their paths in this order.
  explicit OutputFiles(std::span<const std::filesystem::path> paths,
                       os::NewFile::Readers readersOfFirst = os::NewFile::Readers::kUsual);
  OutputFiles(const OutputFiles&) = delete;
  OutputFiles& operator=(const OutputFiles&) = delete;

  Output& operator[](std::size_t index) { return files_[index]->output; }
  void finish();

 private:
  struct File {
    File(const std::filesystem::path& path, os::NewFile::Readers readers)
        : file(path, readers), output(file.descriptor(), "'" + path.string() + "'") {}
    os::NewFile file;
    Output output;
  };

  std::vector<std::unique_ptr<File>> files_;
  std::optional<os::TerminationSignals> signals_;
};

}  // namespace host
