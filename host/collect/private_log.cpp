#include "host/collect/private_log.h"

#include <cerrno>
#include <cstring>
#include <deque>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "automation/runtime.h"
#include "automation/text.h"

namespace host {

using platform::metabase::Metabase;

namespace {

// Longer than any record: paths have at most 32,767 characters.
constexpr std::size_t kProbe = std::size_t{128} * 1024;

// A record has three texts.
constexpr std::int64_t kTextsOfRecord = 3;
thread_local std::int64_t encodedTexts = 0;

// The description of the failure that a component's record of an unset value contains.
constexpr automation::TextView kUseOfNull = u"Invalid use of Null";
thread_local std::deque<Metabase::UnsetRead> unsetReads;

std::string encodeCounted(automation::TextView text) {
  ++encodedTexts;
  if (text == kUseOfNull) unsetReads.push_back(Metabase::takeUnsetRead());
  return automation::toUtf8(text);
}

}  // namespace

Metabase::UnsetRead takeUnsetRead() {
  if (unsetReads.empty()) return {};
  const Metabase::UnsetRead first = unsetReads.front();
  unsetReads.pop_front();
  return first;
}

std::int64_t beginCountingRecords() {
  unsetReads.clear();
  Metabase::takeUnsetRead();
  encodedTexts = triedRecords() * kTextsOfRecord;
  return triedRecords();
}

void countTriedRecords() {
  automation::setSystemEncoding(&encodeCounted);
}

std::int64_t triedRecords() {
  // A record that failed between two of its texts counts too.
  return (encodedTexts + kTextsOfRecord - 1) / kTextsOfRecord;
}

PrivateLog::PrivateLog(std::filesystem::path file) : file_(std::move(file)) {
  if (!std::ofstream(file_, std::ios::binary)) fail(std::strerror(errno));
  stream_.open(file_, std::ios::binary);
  if (!stream_) fail(std::strerror(errno));
}

std::string_view PrivateLog::readNew() {
  const std::int64_t tried = triedRecords();
  if (std::exchange(tried_, tried) == tried) return {};
  std::error_code error;
  const std::size_t known = text_.size(), size = std::filesystem::file_size(file_, error);
  if (error) fail(error.message());
  if (size < known) fail("it has been truncated");
  text_.resize(size);
  stream_.clear();
  stream_.seekg(static_cast<std::streamoff>(known));
  stream_.read(text_.data() + known, static_cast<std::streamsize>(size - known));
  if (stream_.bad() || stream_.gcount() != static_cast<std::streamsize>(size - known)) {
    text_.resize(known + static_cast<std::size_t>(stream_.gcount()));
    fail("it cannot be read");
  }
  if (!text_.empty() && !text_.ends_with("\r\n")) fail("a record is incomplete");
  return std::string_view(text_).substr(known);
}

void PrivateLog::checkWritable() {
  errno = 0;
  std::ofstream append(file_, std::ios::binary | std::ios::app);
  if (!append) fail(std::strerror(errno));
  append << std::string(kProbe, ' ') << std::flush;
  const int failure = append ? 0 : errno;
  append.close();
  std::error_code error;
  std::filesystem::resize_file(file_, text_.size(), error);
  if (error) fail(error.message());
  if (failure != 0) fail(std::strerror(failure));
}

void PrivateLog::clear() {
  text_.clear();
  tried_ = triedRecords();
  std::error_code error;
  std::filesystem::resize_file(file_, 0, error);
  if (error) fail(error.message());
}

void PrivateLog::fail(const std::string& why) const {
  throw std::runtime_error("cannot keep the collection's own log '" + file_.string() + "': " + why);
}

}  // namespace host
