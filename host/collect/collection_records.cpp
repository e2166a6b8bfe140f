#include "host/collect/collection_records.h"

#include <span>
#include <utility>

#include "automation/failure.h"
#include "host/collect/problem_text.h"

namespace host {
namespace {

// The beginning of the component's message about a log that it cannot write.
constexpr std::string_view kLostRecord = "Can't write the log ";

}  // namespace

void CollectionRecords::begin(RecordContext context) {
  context_ = std::move(context);
  reported_ = problems_.size();
}

void CollectionRecords::onStatus(automation::TextView status) {
  readNew();
  context_.sent(status, std::span(problems_).subspan(reported_));
  reported_ = problems_.size();
}

void CollectionRecords::end(const std::string& failure) {
  readNew();
  if (!failure.empty()) throw Incomplete(failure);
  if (!firstError_.empty()) throw Incomplete(firstError_);
  if (triedRecords() - triedBefore_ <= recordCount_) return;
  try {
    logs_.server.checkWritable();
    logs_.application.checkWritable();
  } catch (const std::runtime_error& error) {
    throw Incomplete(error.what());
  }
  throw Incomplete("records of the collection's own logs have been lost");
}

void CollectionRecords::readNew() {
  for (PrivateLog* log : {&logs_.application, &logs_.server}) {
    const std::string_view text = newRecordsOf(*log);
    if (text.empty()) continue;
    for (const Record& record : parseRecords(text)) {
      ++recordCount_;
      if (record.number == automation::number::kOutOfMemory)
        recordFirstError("out of memory: " + record.message);
      if (record.message.starts_with(kLostRecord)) recordFirstError(record.message);
      if (auto problem = context_.problemOf(record, server_, unsetLocation(record));
          problem && isNew(*problem))
        problems_.push_back(*std::move(problem));
    }
  }
}

std::string CollectionRecords::unsetLocation(const Record& record) const {
  if (!isAboutNull(record)) return {};
  const platform::metabase::Metabase::UnsetRead unset = takeUnsetRead();
  return unset.metabase == nullptr
             ? std::string()
             : unset.metabase->location(unset.node, automation::fromUtf8(server_), unset.property);
}

// An overflow is recorded for each further item, which would make tens of thousands of problems.
bool CollectionRecords::isNew(const inventory::Problem& problem) {
  return problem.number != automation::number::kOverflow || problem.message.find("more than") != 0 ||
         overflows_.insert(problem.node + problem.message).second;
}

// An exception within a call of the component would become another record, so it is kept until the call
// ends.
std::string_view CollectionRecords::newRecordsOf(PrivateLog& log) {
  try {
    return log.readNew();
  } catch (const std::runtime_error& error) {
    recordFirstError(error.what());
    return {};
  }
}

void CollectionRecords::recordFirstError(const std::string& why) {
  if (firstError_.empty()) firstError_ = why;
}

}  // namespace host
