#include "host/console/output_files.h"

#include <system_error>

#include "os/file.h"

namespace host {

OutputFiles::OutputFiles(std::span<const std::filesystem::path> paths, os::NewFile::Readers readersOfFirst)
    : files_(paths.size()) {
  if (paths.empty()) return;
  const auto open = [&](bool areStreams) {
    for (std::size_t at = 0; at < paths.size(); ++at) {
      std::error_code ignored;
      const bool isStream = os::statusOf(paths[at], ignored).kind == os::FileKind::kStream;
      if (isStream == areStreams)
        files_[at] =
            std::make_unique<File>(paths[at], at == 0 ? readersOfFirst : os::NewFile::Readers::kUsual);
    }
  };
  // Opening a pipe waits for its reader: that must remain interruptible, while there is no file to remove.
  open(true);
  signals_.emplace();
  open(false);
  signals_->await([this](int signalNumber) {
    for (const auto& each : files_) each->file.remove();
    os::endBySignal(signalNumber);
  });
}

void OutputFiles::finish() {
  for (const auto& each : files_) each->output.flush();
  if (signals_) signals_->ignore();
  for (const auto& each : files_) each->file.finish();
  signals_.reset();
}

}  // namespace host
