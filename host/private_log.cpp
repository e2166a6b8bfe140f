#include "host/private_log.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <stdexcept>

#include "automation/runtime.h"

namespace host {
namespace {

// How much space is kept ahead of the records, and when it is filled up again. The longest record is that of
// a path of 32,767 characters.
constexpr std::int64_t kReserve = 256 * 1024;
constexpr std::int64_t kLeastReserve = 128 * 1024;
constexpr std::int64_t kBlock = 512;  // of st_blocks, whatever the file system's own blocks are

// What the file begins with, so that its first page is there from the beginning.
constexpr char kHead = '\n';

constexpr std::string_view kTime = "00/00/0000 00:00:00\t";
constexpr std::size_t kNumberWidth = 10;

// A record begins with its time. A message may hold line breaks, so not each line is a record.
bool beginsRecord(std::string_view text) {
  if (text.size() < kTime.size()) return false;
  for (std::size_t at = 0; at < kTime.size(); ++at) {
    const bool fits = kTime[at] == '0' ? text[at] >= '0' && text[at] <= '9' : text[at] == kTime[at];
    if (!fits) return false;
  }
  return true;
}

std::string trimmed(std::string_view text) {
  const std::size_t end = text.find_last_not_of(' ');
  return std::string(text.substr(0, end == text.npos ? 0 : end + 1));
}

// The place of the number behind a TAB: ten characters, then another TAB. The field before it may hold TABs.
std::size_t findNumber(std::string_view text) {
  for (std::size_t tab = text.find('\t'); tab != text.npos; tab = text.find('\t', tab + 1)) {
    if (tab + 1 + kNumberWidth >= text.size() || text[tab + 1 + kNumberWidth] != '\t') continue;
    const std::string_view field = text.substr(tab + 1, kNumberWidth);
    const std::size_t digits = field.find_first_not_of(' ');
    if (digits != field.npos && field.find_first_not_of("0123456789ABCDEF", digits) == field.npos)
      return tab + 1;
  }
  return text.npos;
}

Record parseRecord(std::string_view line) {
  Record record;
  line.remove_prefix(kTime.size());
  if (line.ends_with("\r\n")) line.remove_suffix(2);
  const std::size_t objectEnd = line.find('\t');
  if (objectEnd == line.npos) {
    record.message = line;
    return record;
  }
  record.object = trimmed(line.substr(0, objectEnd));
  line.remove_prefix(objectEnd + 1);
  const std::size_t number = findNumber(line);
  if (number == line.npos) {
    record.message = line;
    return record;
  }
  const std::string_view routine = line.substr(0, number - 1);
  record.routine = trimmed(routine.substr(0, routine.find('(')));
  const std::string_view field = line.substr(number, kNumberWidth);
  std::uint32_t value = 0;
  std::from_chars(field.data() + field.find_first_not_of(' '), field.data() + field.size(), value, 16);
  record.number = static_cast<std::int32_t>(value);
  record.message = line.substr(number + kNumberWidth + 1);
  return record;
}

std::size_t pageSize() {
  static const auto size = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  return size;
}

// A record has three texts.
constexpr std::int64_t kTextsOfRecord = 3;
thread_local std::int64_t encodedTexts = 0;

std::string encodeCounted(automation::TextView text) {
  ++encodedTexts;
  return automation::toUtf8(text);
}

}  // namespace

std::vector<Record> parseRecords(std::string_view text) {
  std::vector<Record> records;
  std::size_t begin = 0;
  while (begin < text.size()) {
    std::size_t end = begin;
    do {
      const std::size_t lineFeed = text.find('\n', end);
      end = lineFeed == text.npos ? text.size() : lineFeed + 1;
    } while (end < text.size() && !beginsRecord(text.substr(end)));
    if (beginsRecord(text.substr(begin))) records.push_back(parseRecord(text.substr(begin, end - begin)));
    begin = end;
  }
  return records;
}

void countTriedRecords() {
  automation::setSystemEncoding(&encodeCounted);
}

std::int64_t triedRecords() {
  // One that failed between two of its texts counts too.
  return (encodedTexts + kTextsOfRecord - 1) / kTextsOfRecord;
}

PrivateLog::PrivateLog(std::filesystem::path file)
    : file_(std::move(file)),
      descriptor_(::open(file_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)) {
  if (!descriptor_) fail(std::strerror(errno));
  begin();
}

std::string_view PrivateLog::news() {
  if (isSilent()) return {};
  const off_t end = ::lseek(descriptor_.number(), 0, SEEK_END);
  if (end < 0) fail(std::strerror(errno));
  const std::size_t known = text_.size();
  const auto size = static_cast<std::size_t>(std::max<off_t>(end - 1, 0));
  if (size == known) return {};
  if (size < known) fail("it has been cut");
  text_.resize(size);
  std::size_t done = known;
  while (done < size) {
    const ssize_t count =
        ::pread(descriptor_.number(), text_.data() + done, size - done, static_cast<off_t>(done) + 1);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) fail(count < 0 ? std::strerror(errno) : "it has been cut");
    done += static_cast<std::size_t>(count);
  }
  if (!text_.ends_with("\r\n")) fail("a record has been cut off");
  struct stat status {};
  if (::fstat(descriptor_.number(), &status) != 0) fail(std::strerror(errno));
  if (std::int64_t{status.st_blocks} * kBlock - end < kLeastReserve) reserve(end);
  watch();
  return std::string_view(text_).substr(known);
}

void PrivateLog::checkWritable() {
  const platform::Descriptor append(::open(file_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  if (!append) fail(std::strerror(errno));
  static const std::string probe(static_cast<std::size_t>(kLeastReserve), ' ');
  const ssize_t written = ::write(append.number(), probe.data(), probe.size());
  const int error = written < 0 ? errno : ENOSPC;
  if (::ftruncate(append.number(), static_cast<off_t>(fileSize())) != 0) fail(std::strerror(errno));
  if (written != static_cast<ssize_t>(probe.size())) fail(std::strerror(error));
}

void PrivateLog::clear() {
  if (text_.empty()) return;
  text_.clear();
  page_.reset();
  if (::ftruncate(descriptor_.number(), 0) != 0) fail(std::strerror(errno));
  begin();
}

void PrivateLog::begin() {
  reserve(0);
  ssize_t written = 0;
  do {
    written = ::pwrite(descriptor_.number(), &kHead, 1, 0);
  } while (written < 0 && errno == EINTR);
  if (written != 1) fail(std::strerror(written < 0 ? errno : ENOSPC));
  watch();
}

void PrivateLog::Unmapper::operator()(const char* page) const noexcept {
  ::munmap(const_cast<char*>(page), pageSize());
}

// A look at the file's last page costs nothing beside asking the system, and this is asked at each status
// text. A page of which no byte is in the file may not be looked at.
void PrivateLog::watch() {
  const std::size_t at = fileSize();
  pageAt_ = at % pageSize();
  page_.reset();
  if (pageAt_ == 0) return;
  void* const page = ::mmap(nullptr, pageSize(), PROT_READ, MAP_SHARED, descriptor_.number(),
                            static_cast<off_t>(at - pageAt_));
  if (page != MAP_FAILED) page_.reset(static_cast<const char*>(page));
}

// A record begins with a digit, and behind the file's end its page holds zeros.
bool PrivateLog::isSilent() const {
  return page_ != nullptr && *static_cast<const volatile char*>(page_.get() + pageAt_) == '\0';
}

void PrivateLog::reserve([[maybe_unused]] std::int64_t size) {
#ifdef __linux__
  while (canReserve_ && ::fallocate(descriptor_.number(), FALLOC_FL_KEEP_SIZE, size, kReserve) != 0) {
    if (errno == EINTR) continue;
    if (errno != EOPNOTSUPP && errno != ENOSYS) fail(std::strerror(errno));
    canReserve_ = false;
  }
#else
  canReserve_ = false;
#endif
}

void PrivateLog::fail(const std::string& why) const {
  throw std::runtime_error("the collection's own log " + file_.string() + " can't be kept: " + why);
}

}  // namespace host
