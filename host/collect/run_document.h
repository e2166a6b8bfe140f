// The results of a run as one JSON document, described in docs/collecting.md.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/collect/run_results.h"
#include "host/console/output.h"
#include "host/sources/sources.h"

namespace host {

class RunDocument {
 public:
  explicit RunDocument(const char* command);
  ~RunDocument();
  RunDocument(const RunDocument&) = delete;
  RunDocument& operator=(const RunDocument&) = delete;

  void add(const Server& server, const ServerResult& result, bool isDryRun);
  void addSources(const std::vector<std::string>& ignored, const std::vector<std::string>& problems);
  void addError(const std::string& error);

  // The whole document. `status`: nothing if a signal ended the run. `database`: empty if there is none.
  std::string text(std::optional<int> status, const std::string& database, bool isDryRun);

 private:
  struct Totals {
    std::size_t servers = 0;
    std::size_t published = 0;
    std::int64_t rows = 0;
    std::int64_t replacedRows = 0;
    std::int64_t problems = 0;
    std::int64_t notes = 0;
  };
  struct Json;

  std::unique_ptr<Json> json_;
  Totals totals_;
};

// Runs a command. If it throws, prints the document of a run that has failed, and throws again.
int withFailureDocument(const char* command, Output& output, const std::function<int()>& run);

}  // namespace host
