#include "host/console/output_files.h"

namespace host {

OutputFiles::OutputFiles(std::span<const std::filesystem::path> paths) {
  for (const std::filesystem::path& path : paths) files_.push_back(std::make_unique<File>(path));
  if (files_.empty()) return;
  signals_.emplace();
  signals_->await([this](int signalNumber) {
    for (const auto& each : files_) each->file.remove();
    os::endBySignal(signalNumber);
  });
}

void OutputFiles::finish() {
  if (signals_) signals_->ignore();
  for (const auto& each : files_) {
    each->output.flush();
    each->file.finish();
  }
}

}  // namespace host
