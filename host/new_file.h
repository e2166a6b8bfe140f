// A file that the user has named, written whole or not at all.
#pragma once

#include <filesystem>
#include <optional>

#include "host/output.h"
#include "platform/posix/descriptor.h"

namespace host {

// Written beside the file's place, which it takes when it is whole; behind a link, the place that this leads
// to. Whoever may read the former file may read the new one. What isn't a file, as a device or a pipe, is
// written to as it stands.
class NewFile {
 public:
  // Throws std::runtime_error with the path and the cause, as everything here does.
  explicit NewFile(std::filesystem::path path);
  ~NewFile() { remove(); }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  Output& output() { return *output_; }

  // The file is on the disk and in its place when this ends.
  void finish();

  // Leaves everything as it was, unless it is finished. From any thread.
  void remove() noexcept;

 private:
  [[noreturn]] void fail(int error) const;

  const std::filesystem::path path_;
  std::filesystem::path place_;
  std::filesystem::path made_;  // empty for what isn't a file
  platform::Descriptor descriptor_;
  std::optional<Output> output_;
};

}  // namespace host
