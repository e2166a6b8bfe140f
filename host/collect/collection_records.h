// The records that the component writes into the logs of one collection.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "host/collect/private_log.h"
#include "host/collect/record_context.h"
#include "inventory/model.h"

namespace host {

// The logs of one collection, reused for the next, in a folder.
struct PrivateLogs {
  explicit PrivateLogs(const std::filesystem::path& folder)
      : directory(folder), application(folder / "TORVINLog.Log"), server(folder / "server.log") {}

  std::filesystem::path directory;
  PrivateLog application;
  PrivateLog server;
};

// A collection is incomplete, for example because a record was lost, and must not be published.
class Incomplete : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads the records of one call of the component after the other and converts them to problems.
class CollectionRecords {
 public:
  CollectionRecords(PrivateLogs& logs, std::string server) : logs_(logs), server_(std::move(server)) {}

  const PrivateLogs& logs() const { return logs_; }

  // A call begins.
  void begin(RecordContext context);
  // The component has sent a status text, to which later records belong.
  void onStatus(automation::TextView status);
  // The call has ended, with a failure if the text is not empty. Throws Incomplete for one, and if a record
  // has been lost.
  void end(const std::string& failure);

  void add(inventory::Problem problem) { problems_.push_back(std::move(problem)); }
  std::vector<inventory::Problem> takeProblems() { return std::move(problems_); }

 private:
  void readNew();
  std::string_view newRecordsOf(PrivateLog& log);
  std::string unsetLocation(const Record& record) const;
  bool isNew(const inventory::Problem& problem);
  // The first error is the cause of later ones.
  void recordFirstError(const std::string& why);

  PrivateLogs& logs_;
  const std::string server_;
  RecordContext context_ = RecordContext::ofItem({}, inventory::ObjectKind::kNone, {}, {});
  std::vector<inventory::Problem> problems_;
  std::size_t reported_ = 0;  // number of problems at the last status text or the beginning of the call
  std::string firstError_;    // why records have been lost
  std::set<std::string> overflows_;  // nodes and messages of overflows of counts
  // The component may lose a record without reporting it.
  const std::int64_t triedBefore_ = beginCountingRecords();
  std::int64_t recordCount_ = 0;  // records that were read
};

}  // namespace host
