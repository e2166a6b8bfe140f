// The summary at the end of a run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>

#include "host/collect/collect.h"
#include "host/collect/run_results.h"

namespace host {

// When each server of a database was last collected, by folded name.
using LastCollected = std::map<std::string, std::string>;

class RunSummary {
 public:
  // All references must outlive it. `errors`: lines on the standard error output.
  RunSummary(const CollectOptions& options, const Sources& sources, const RunResults& results,
             const LastCollected& lastCollected, std::int64_t errors);

  void print(Output& output) const;

  // The run as a JSON document. `status`: null if the run was ended by a signal.
  std::string json(bool isInterrupted) const;

  // The number of problems and where they are listed, in one line; empty if there are none.
  std::string problems() const;

  // The exit status.
  int status() const;

 private:
  std::string logDirectory() const;
  void printDryRun(Output& output) const;
  void printRemarks(Output& output) const;
  void printRows(Output& output) const;
  void printServersWithProblems(Output& output, std::size_t width) const;
  void printHint(Output& output) const;

  const CollectOptions& options_;
  const Sources& sources_;
  const std::span<const Server> servers_;
  const RunResults& results_;
  const LastCollected& lastCollected_;
  const std::int64_t errors_;
  const ProblemGroups groups_;
  const std::size_t published_;
};

// The command that lists the problems of a database, for a shell.
std::string problemsCommand(const CollectOptions& options);

}  // namespace host
