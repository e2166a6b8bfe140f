// A log that only one collection uses.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "platform/metabase/metabase.h"

namespace host {

// Starts counting the records that the component tries to write, in every thread.
void countTriedRecords();

// The number of records that the component has tried to write on this thread, successfully or not.
std::int64_t triedRecords();

// The same before a collection. A record that has failed halfway does not count towards the next one.
std::int64_t beginCountingRecords();

// Of the records about the use of a value that is not set, the first one that this function has not been
// called for: which value that was. Call it for each of these records of this thread, in their order.
platform::metabase::Metabase::UnsetRead takeUnsetRead();

// A file in a private folder that the component appends records to on this thread. Members throw
// std::runtime_error if the log cannot be written or read.
class PrivateLog {
 public:
  explicit PrivateLog(std::filesystem::path file);

  const std::filesystem::path& file() const { return file_; }

  // The records written since the last call, valid until the next one.
  std::string_view readNew();

  // Throws if a record cannot be appended.
  void checkWritable();

  // All records since the last clear() that readNew() has returned.
  const std::string& text() const { return text_; }

  // Empties the log.
  void clear();

 private:
  [[noreturn]] void fail(const std::string& why) const;

  std::filesystem::path file_;
  std::ifstream stream_;
  std::string text_;
  std::int64_t tried_ = triedRecords();  // at the last readNew()
};

}  // namespace host
