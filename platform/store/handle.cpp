#include "platform/store/handle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "platform/store/database.h"

namespace platform::store {

using automation::Failure;
using automation::Text;
using automation::TextView;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

struct FileUse {
  // Held while a handle sets up the file's journal or lets it go, so that the last of the old handles and the
  // first of the new ones don't meet there.
  std::mutex mutex;
  int handles = 0;
  bool abandoned = false;
};

namespace {

constexpr std::int64_t kMebibyte = 1024 * 1024;
// How long the log may grow, and how much more when it couldn't be emptied because somebody was at work.
constexpr std::int64_t kLogToMove = 64 * kMebibyte;
constexpr std::int64_t kLogToRetry = 16 * kMebibyte;
// Pieces in which the log is handed to the disk ahead of the sync.
constexpr std::int64_t kLogPiece = kMebibyte;
constexpr std::int64_t kLogFrameHead = 24;

std::atomic<milliseconds> waitForLocks{milliseconds(5000)};

// What the process knows about files beyond its handles. Never destroyed: handles may outlive all statics.
struct Process {
  std::mutex mutex;
  std::map<FileIdentity, std::weak_ptr<FileUse>> uses;
  // Files whose opening has waited in vain.
  std::set<std::string> outOfPatience;
};

Process& process() {
  static Process* const instance = new Process;
  return *instance;
}

std::shared_ptr<FileUse> useOf(const FileIdentity& identity) {
  Process& known = process();
  const std::lock_guard lock(known.mutex);
  std::erase_if(known.uses, [](const auto& entry) { return entry.second.expired(); });
  std::weak_ptr<FileUse>& entry = known.uses[identity];
  std::shared_ptr<FileUse> use = entry.lock();
  if (use == nullptr) entry = use = std::make_shared<FileUse>();
  return use;
}

bool waitedInVain(const std::string& path) {
  Process& known = process();
  const std::lock_guard lock(known.mutex);
  return known.outOfPatience.contains(path);
}

void noteWait(const std::string& path, bool inVain) {
  Process& known = process();
  const std::lock_guard lock(known.mutex);
  if (inVain) {
    known.outOfPatience.insert(path);
  } else {
    known.outOfPatience.erase(path);
  }
}

int primary(int result) {
  return result & 0xFF;
}

FileIdentity identityFrom(const struct stat& status) {
  return {status.st_dev, status.st_ino};
}

// A failure's description is one line, whatever SQLite quotes from a statement.
std::string oneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, ' ');
  return text;
}

}  // namespace

void setLockWait(milliseconds wait) {
  waitForLocks = wait;
}

milliseconds lockWait() {
  return waitForLocks;
}

std::optional<FileIdentity> identityOf(const char* path) noexcept {
  struct stat status {};
  if (::stat(path, &status) != 0) return std::nullopt;
  return identityFrom(status);
}

FileDescriptor::~FileDescriptor() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

Handle::Handle(const std::filesystem::path& path, Mode mode, TextView source) : path_(path.string()) {
  open(mode, source);
  if (mode == Mode::kReadOnly) {
    probe(source);
    return;
  }
  use_ = useOf(identity_);
  const std::lock_guard lock(use_->mutex);
  useLog(source);
  ++use_->handles;
  use_->abandoned = false;
}

Handle::~Handle() {
  if (use_ == nullptr || db_ == nullptr) return;
  const std::lock_guard lock(use_->mutex);
  if (--use_->handles == 0 && !abandoned_) {
    neverWait_ = true;
    // Outside the log, only this setting keeps the file whole whenever the power fails.
    run("pragma synchronous = full");
    if (run("pragma journal_mode = delete") != SQLITE_OK) moveLogIntoFile(SQLITE_CHECKPOINT_PASSIVE);
  }
  db_.reset();
}

void Handle::open(Mode mode, TextView source) {
  if (path_.empty()) throw Failure(number::kUnusableFile, u"No database file is named", Text(source));
  if (path_.find('\0') != std::string::npos) failUnusable("its name holds a NUL character", source);

  struct stat status {};
  if (::stat(path_.c_str(), &status) == 0) {
    if (S_ISDIR(status.st_mode)) failUnusable("it is a directory", source);
    if (!S_ISREG(status.st_mode)) failUnusable("it is not a plain file", source);
  } else if (errno != ENOENT || mode != Mode::kCreate) {
    failUnusable(errno == ENOENT ? "there is no such file" : std::strerror(errno), source);
  } else {
    const std::filesystem::path folder = std::filesystem::absolute(path_).parent_path();
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error)) {
      failUnusable("its directory doesn't exist", source);
    }
  }

  int flags = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
  flags |= mode == Mode::kReadOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE;
  if (mode == Mode::kCreate) flags |= SQLITE_OPEN_CREATE;
  // An absolute path can't be taken for one of the names that SQLite gives a meaning of its own.
  const std::string absolute = std::filesystem::absolute(path_).string();
  sqlite3* opened = nullptr;
  const int result = sqlite3_open_v2(absolute.c_str(), &opened, flags, nullptr);
  db_.reset(opened);
  if (result != SQLITE_OK) {
    const int cause = opened != nullptr ? sqlite3_system_errno(opened) : 0;
    failUnusable(cause != 0 ? std::strerror(cause) : sqlite3_errstr(result), source);
  }
  if (::stat(path_.c_str(), &status) != 0) failUnusable("there is no such file", source);
  identity_ = identityFrom(status);
  if (mode != Mode::kReadOnly && sqlite3_db_readonly(db_.get(), "main") != 0) {
    failUnusable("it is read-only", source);
  }
  sqlite3_busy_handler(db_.get(), &Handle::onBusy, this);
}

// Reads the file's head, which is what SQLite puts off for as long as it can.
void Handle::probe(TextView source) {
  outOfPatience_ = waitedInVain(path_);
  int result = runWaiting("pragma schema_version");
  if (result == SQLITE_READONLY_ROLLBACK) {
    undoUnfinished();
    result = runWaiting("pragma schema_version");
  }
  noteWait(path_, outOfPatience_ && result != SQLITE_OK);
  if (result != SQLITE_OK) fail(result, source);
  outOfPatience_ = false;
}

// A writer that was killed may have left a change half made beside its journal. The next writer undoes it by
// itself, a reader's handle can't.
void Handle::undoUnfinished() noexcept {
  sqlite3* opened = nullptr;
  const char* const file = sqlite3_db_filename(db_.get(), "main");
  sqlite3_open_v2(file, &opened, SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_READWRITE, nullptr);
  const std::unique_ptr<sqlite3, Closer> writer(opened);
  if (writer != nullptr) sqlite3_exec(writer.get(), "pragma schema_version", nullptr, nullptr, nullptr);
}

// The one place where a file's journal is set up. A log (WAL) takes a commit in one append. With
// `synchronous` at normal SQLite syncs the log before it is copied into the file, the file before the log is
// used anew, and the log's new head before it is filled again, and nothing at a commit (SQLite documentation,
// "Pragma statements", synchronous). Left to itself it would copy after every thousand pages, which costs
// more than the commits do, so the copying is done here.
void Handle::useLog(TextView source) {
  outOfPatience_ = waitedInVain(path_);
  std::string journal;
  // Takes effect in a file that is new. Each commit appends every page that it has changed, mostly one, so
  // small pages make small commits.
  run("pragma page_size = 2048");
  int result = runWaiting("pragma journal_mode = wal", &journal);
  if (result == SQLITE_OK) result = run("pragma synchronous = normal");
  // A writer of another process shows now, and not at the first row.
  if (result == SQLITE_OK) result = runWaiting("begin immediate");
  if (result == SQLITE_OK) result = run("rollback");
  noteWait(path_, outOfPatience_ && result != SQLITE_OK);
  if (result != SQLITE_OK) fail(result, source);
  outOfPatience_ = false;
  if (journal != "wal") return;
  sqlite3_wal_autocheckpoint(db_.get(), 0);
  sqlite3_wal_hook(db_.get(), &Handle::onLogGrown, this);
  std::string pageSize;
  run("pragma page_size", &pageSize);
  bytesPerPage_ = std::strtol(pageSize.c_str(), nullptr, 10) + kLogFrameHead;
  logToMove_ = kLogToMove;
  const std::string logPath = path_ + "-wal";
  logIdentity_ = identityOf(logPath.c_str());
  // Unlike the database file, the log may be opened and closed at will: SQLite holds no lock on it.
  logDescriptor_ = FileDescriptor(::open(logPath.c_str(), O_RDWR | O_CLOEXEC));
}

StatementPtr Handle::prepare(std::string_view sql, std::string_view& rest, TextView source) {
  requireUsable(source);
  sqlite3_stmt* statement = nullptr;
  const char* tail = nullptr;
  if (sql.size() > static_cast<std::size_t>(sqlite3_limit(db_.get(), SQLITE_LIMIT_SQL_LENGTH, -1))) {
    fail(SQLITE_TOOBIG, source);
  }
  // SQLite would silently end at a NUL character, and a shortened statement may do harm.
  if (sql.find('\0') != std::string_view::npos) {
    throw Failure(number::kBadSql,
                  u"Database '" + automation::fromUtf8(path_) + u"': the SQL text holds a NUL character",
                  Text(source));
  }
  const int result =
      sqlite3_prepare_v3(db_.get(), sql.data(), static_cast<int>(sql.size()), 0, &statement, &tail);
  if (result != SQLITE_OK) fail(result, source);
  rest = sql.substr(static_cast<std::size_t>(tail - sql.data()));
  return StatementPtr(statement);
}

void Handle::executeWaiting(const char* sql, TextView source) {
  requireUsable(source);
  const int result = runWaiting(sql);
  if (result != SQLITE_OK) fail(result, source);
}

void Handle::changed() noexcept {
  outOfPatience_ = false;
  if (logBytes_ - logHandedOver_ >= kLogPiece) startWritingLog();
  if (logBytes_ < logToMove_ || sqlite3_get_autocommit(db_.get()) == 0) return;
  logToMove_ = logBytes_ + kLogToRetry;
  moveLogIntoFile(SQLITE_CHECKPOINT_PASSIVE);
}

// The disk can write the log while rows are still being added, so that the sync before the log is moved finds
// most of it done. Waits for nothing and promises nothing.
void Handle::startWritingLog() noexcept {
#ifdef __linux__
  if (logDescriptor_.get() >= 0) {
    ::sync_file_range(logDescriptor_.get(), logHandedOver_, logBytes_ - logHandedOver_,
                      SYNC_FILE_RANGE_WRITE);
  }
#endif
  logHandedOver_ = logBytes_;
}

// Nobody waits for anybody here: what can't be moved now is moved later. A failure loses nothing, since the
// rows stay in the log.
int Handle::moveLogIntoFile(int checkpointMode) noexcept {
  const bool neverWaited = neverWait_;
  neverWait_ = true;
  const int result = sqlite3_wal_checkpoint_v2(db_.get(), "main", checkpointMode, nullptr, nullptr);
  neverWait_ = neverWaited;
  return result;
}

void Handle::abandon() noexcept {
  if (abandoned_) return;
  abandoned_ = true;
  if (use_ == nullptr) return;
  const std::lock_guard lock(use_->mutex);
  if (!use_->abandoned) {
    use_->abandoned = true;
    // A log that is left behind under this name would be taken for the new file's.
    const bool logIsOurs = logIdentity_ && identityOf((path_ + "-wal").c_str()) == logIdentity_;
    moveLogIntoFile(logIsOurs ? SQLITE_CHECKPOINT_TRUNCATE : SQLITE_CHECKPOINT_PASSIVE);
  }
  sqlite3_db_config(db_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

int Handle::run(const char* sql, std::string* firstValue) noexcept {
  const auto keepFirst = [](void* target, int columns, char** values, char**) {
    auto* const value = static_cast<std::string*>(target);
    if (value != nullptr && columns > 0 && values[0] != nullptr) *value = values[0];
    return 0;
  };
  return sqlite3_exec(db_.get(), sql, keepFirst, firstValue, nullptr);
}

// Where two connections would wait for each other SQLite reports busy at once; such a try is made again.
int Handle::runWaiting(const char* sql, std::string* firstValue) noexcept {
  const auto start = steady_clock::now();
  while (true) {
    const int result = run(sql, firstValue);
    if (primary(result) != SQLITE_BUSY || outOfPatience_) return result;
    if (steady_clock::now() - start >= lockWait()) {
      outOfPatience_ = true;
      return result;
    }
    std::this_thread::sleep_for(milliseconds(1));
  }
}

// Another writer of this system is done within microseconds, somebody's transaction takes longer, so the naps
// grow. A wait that has run out is not repeated: a caller that goes on after each failure would else hang for
// hours in front of a file that stays locked.
int Handle::onBusy(void* self, int attempt) noexcept {
  Handle& handle = *static_cast<Handle*>(self);
  if (handle.neverWait_ || handle.outOfPatience_) return 0;
  const auto now = steady_clock::now();
  if (attempt == 0) handle.waitingSince_ = now;
  if (now - handle.waitingSince_ >= lockWait()) {
    handle.outOfPatience_ = true;
    return 0;
  }
  std::this_thread::sleep_for(std::chrono::microseconds(std::min(10 << std::min(attempt / 4, 9), 5000)));
  return 1;
}

int Handle::onLogGrown(void* self, sqlite3*, const char*, int pages) noexcept {
  Handle& handle = *static_cast<Handle*>(self);
  const std::int64_t bytes = pages * handle.bytesPerPage_;
  if (bytes < handle.logBytes_) {
    // It has been emptied and is being filled anew.
    handle.logHandedOver_ = 0;
    handle.logToMove_ = kLogToMove;
  }
  handle.logBytes_ = bytes;
  return SQLITE_OK;
}

void Handle::fail(int result, TextView source) const {
  const std::string message = oneLine(db_ != nullptr ? sqlite3_errmsg(db_.get()) : sqlite3_errstr(result));
  std::int32_t code = number::kUnusableFile;
  switch (primary(result)) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      failUnusable("it is locked by somebody else", source);
    case SQLITE_NOTADB:
      failUnusable("it is not a database", source);
    case SQLITE_READONLY:
      failUnusable("it is read-only", source);
    case SQLITE_CANTOPEN:
      failUnusable("a file beside it can't be opened, so its directory may be read-only", source);
    case SQLITE_FULL:
      failUnusable("it is full: " + message, source);
    case SQLITE_CORRUPT:
      failUnusable("it is damaged: " + message, source);
    case SQLITE_CONSTRAINT:
      code = number::kConstraint;
      break;
    case SQLITE_ERROR:
      code = message.starts_with("no such table") ? number::kNoSuchTable : number::kBadSql;
      break;
    default:
      break;
  }
  throw Failure(code, automation::fromUtf8("Database '" + path_ + "': " + message), Text(source));
}

void Handle::failUnusable(std::string_view cause, TextView source) const {
  throw Failure(
      number::kUnusableFile,
      automation::fromUtf8("Can't use the database '" + oneLine(path_) + "': " + std::string(cause)),
      Text(source));
}

void Handle::failAbandoned(TextView source) const {
  failUnusable("another file has taken its place since it was opened", source);
}

}  // namespace platform::store
