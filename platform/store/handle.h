// One open SQLite file: how it is opened, waited for, journalled and let go, for everybody who uses one.
#pragma once

#include <sqlite3.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "automation/failure.h"
#include "automation/text.h"

namespace platform::store {

// Numbers that ADO programmers know, beside those of automation::number.
namespace number {
constexpr std::int32_t kWrongType = 3001;
constexpr std::int32_t kNoCurrentRow = 3021;
constexpr std::int32_t kNotSupported = 3251;
constexpr std::int32_t kObjectClosed = 3704;
constexpr std::int32_t kObjectOpen = 3705;
constexpr std::int32_t kNoConnection = 3709;
constexpr std::int32_t kUnusableFile = static_cast<std::int32_t>(0x80004005);
constexpr std::int32_t kNoCommandText = static_cast<std::int32_t>(0x80040E0C);
constexpr std::int32_t kBadSql = static_cast<std::int32_t>(0x80040E14);
constexpr std::int32_t kConstraint = static_cast<std::int32_t>(0x80040E2F);
constexpr std::int32_t kNoSuchTable = static_cast<std::int32_t>(0x80040E37);
}  // namespace number

struct StatementFinalizer {
  void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
};
using StatementPtr = std::unique_ptr<sqlite3_stmt, StatementFinalizer>;

// Which file a path has led to.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  auto operator<=>(const FileIdentity&) const = default;
};

// The file behind a path, or nothing where there is none.
std::optional<FileIdentity> identityOf(const char* path) noexcept;

// A descriptor, closed with its owner.
class FileDescriptor {
 public:
  explicit FileDescriptor(int descriptor = -1) noexcept : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~FileDescriptor();

  int get() const { return descriptor_; }

 private:
  int descriptor_;
};

// What all handles of the process on one file share.
struct FileUse;

// An open file. Every change is committed by itself unless a transaction is open. A committed change survives
// the death of the process: it stands in the write-ahead log, which is written without waiting for the disk.
// The log is copied into the file, both synced, when it has grown large and when the process's last handle on
// the file goes; after a power loss the file is whole, and at worst lacks the latest changes.
//
// Used by one thread at a time. The functions that throw take the name of the object that they fail for.
class Handle {
 public:
  enum class Mode { kReadOnly, kReadWrite, kCreate };

  // Fails with kUnusableFile and a message of its own for each thing that may be wrong with the file, a lock
  // that somebody else holds for longer than lockWait() included.
  Handle(const std::filesystem::path& path, Mode mode, automation::TextView source);
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle();

  const std::string& path() const { return path_; }
  const FileIdentity& identity() const { return identity_; }
  sqlite3* raw() const { return db_.get(); }

  // Prepares the first statement of `sql`, null where there is none, and gives what follows it.
  StatementPtr prepare(std::string_view sql, std::string_view& rest, automation::TextView source);

  // Runs one text that may stay busy in ways for which SQLite doesn't wait by itself.
  void executeWaiting(const char* sql, automation::TextView source);

  // To be called behind each change that went well.
  void changed() noexcept;

  // Fails for the SQLite result `result` of an operation on this handle.
  [[noreturn]] void fail(int result, automation::TextView source) const;

  // The path leads to another file by now, or to none: brings this one's rows home and keeps everybody from
  // using it further, since its log bears the name of the new file's log.
  void abandon() noexcept;

  // Fails where the file has been abandoned.
  void requireUsable(automation::TextView source) const {
    if (abandoned_) failAbandoned(source);
  }

 private:
  struct Closer {
    void operator()(sqlite3* db) const noexcept { sqlite3_close_v2(db); }
  };

  void open(Mode mode, automation::TextView source);
  void useLog(automation::TextView source);
  void probe(automation::TextView source);
  void undoUnfinished() noexcept;
  void startWritingLog() noexcept;
  int moveLogIntoFile(int checkpointMode) noexcept;
  int run(const char* sql, std::string* firstValue = nullptr) noexcept;
  int runWaiting(const char* sql, std::string* firstValue = nullptr) noexcept;
  [[noreturn]] void failUnusable(std::string_view cause, automation::TextView source) const;
  [[noreturn]] void failAbandoned(automation::TextView source) const;

  static int onBusy(void* self, int attempt) noexcept;
  static int onLogGrown(void* self, sqlite3* db, const char* schema, int pages) noexcept;

  std::string path_;
  FileIdentity identity_;
  std::optional<FileIdentity> logIdentity_;
  std::shared_ptr<FileUse> use_;
  std::unique_ptr<sqlite3, Closer> db_;
  std::chrono::steady_clock::time_point waitingSince_;
  // The log's length in bytes, up to where it has been handed to the disk, and where it is moved next.
  std::int64_t logBytes_ = 0;
  std::int64_t logHandedOver_ = 0;
  std::int64_t logToMove_ = 0;
  std::int64_t bytesPerPage_ = 0;
  FileDescriptor logDescriptor_;
  bool outOfPatience_ = false;
  bool neverWait_ = false;
  bool abandoned_ = false;
};

}  // namespace platform::store
