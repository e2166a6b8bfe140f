// A log that belongs to one collection alone, and the records that the component writes into it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/posix/descriptor.h"

namespace host {

// A record of a log.
struct Record {
  std::string object;
  std::string routine;  // without the arguments that some records name behind it
  std::int32_t number = 0;
  std::string message;
};

// The records in a piece of a log that begins and ends with whole records.
std::vector<Record> parseRecords(std::string_view text);

// From now on counts the records that the component tries to write.
void countTriedRecords();

// How many it has tried to write on this thread, whether they could be written or not.
std::int64_t triedRecords();

// The file stands in a private folder and is written to by the component, record by record, while this object
// looks on. Since the component may lose a record without a word, space for the records to come is kept
// reserved. Members throw std::runtime_error where the log can't be kept.
class PrivateLog {
 public:
  explicit PrivateLog(std::filesystem::path file);

  const std::filesystem::path& file() const { return file_; }

  // What has been written since the last look, whole records.
  std::string_view news();

  // Throws where a record can't be written.
  void checkWritable();

  // Everything since the last clear().
  const std::string& text() const { return text_; }

  // Empties the log.
  void clear();

 private:
  // A page of the file as it stands, or nothing.
  struct Unmapper {
    void operator()(const char* page) const noexcept;
  };
  using Page = std::unique_ptr<const char, Unmapper>;

  void begin();
  std::size_t fileSize() const { return text_.size() + 1; }
  bool isSilent() const;
  void watch();
  void reserve(std::int64_t size);
  [[noreturn]] void fail(const std::string& why) const;

  std::filesystem::path file_;
  platform::Descriptor descriptor_;
  std::string text_;
  Page page_;  // the one that the next record begins in
  std::size_t pageAt_ = 0;
  bool canReserve_ = true;
};

}  // namespace host
