// The summary at the end of a run.
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "host/collect/collect.h"
#include "host/collect/run_results.h"

namespace host {

class RunSummary {
 public:
  // All arguments must outlive it.
  RunSummary(const CollectOptions& options, std::span<const Server> servers, const RunResults& results);

  void print(Output& output) const;

  // The number of problems and where they are listed, in one line; empty if there are none.
  std::string problems() const;

  // The exit status.
  int status() const;

 private:
  std::string problemsHint() const;
  void printDryRun(Output& output) const;
  void printRemarks(Output& output) const;
  void printRows(Output& output) const;
  void printServersWithProblems(Output& output, std::size_t width) const;

  const CollectOptions& options_;
  const std::span<const Server> servers_;
  const RunResults& results_;
  const std::size_t published_;
};

}  // namespace host
