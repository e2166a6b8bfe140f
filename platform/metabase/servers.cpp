#include "platform/metabase/servers.h"

#include <sys/stat.h>

#include <cerrno>
#include <map>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <unordered_map>
#include <utility>

#include "automation/failure.h"
#include "automation/runtime.h"
#include "platform/metabase/failures.h"
#include "platform/metabase/node_object.h"

namespace platform::metabase {
namespace {

using automation::Failure;
using automation::ObjectRef;
using automation::Text;
using automation::TextView;

constexpr TextView kMonikerStart = u"IIS://";
constexpr TextView kLocalMachine = u"LM";

// What tells one state of a file from another.
struct Stamp {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t size = 0;
  std::int64_t seconds = 0;
  std::int64_t nanoseconds = 0;

  bool operator==(const Stamp&) const = default;
};

// The stamp of a file, or nothing where it cannot be looked at; opening it then tells why.
std::optional<Stamp> stampOf(const std::filesystem::path& file) {
  struct stat status {};
  if (::stat(file.c_str(), &status) != 0) return std::nullopt;
  return Stamp{status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

// A file and what was made of it.
class CachedFile {
 public:
  explicit CachedFile(std::filesystem::path path) : path_(std::move(path)) {}

  // Threads that ask for a file while it is parsed wait for that one parse.
  std::shared_ptr<const Metabase> snapshot() {
    const std::lock_guard lock(mutex_);
    // Before the file is read: a change while it is being read then shows at the next look.
    const std::optional<Stamp> stamp = stampOf(path_);
    if (stamp && stamp == stamp_) {
      if (failure_) throw Failure(*failure_);
      return snapshot_;
    }
    forget();
    try {
      snapshot_ = Metabase::load(path_);
    } catch (const Failure& failure) {
      failure_ = failure;
      if (failure.number() != number::kFileNotFound && failure.number() != number::kFileUnreadable &&
          failure.number() != number::kFileReadFault) {
        stamp_ = stamp;
      }
      throw;
    }
    stamp_ = stamp;
    return snapshot_;
  }

 private:
  // Also lets go of the old snapshot before the new one takes its memory.
  void forget() {
    stamp_.reset();
    snapshot_.reset();
    failure_.reset();
  }

  const std::filesystem::path path_;
  std::mutex mutex_;
  std::optional<Stamp> stamp_;
  std::shared_ptr<const Metabase> snapshot_;
  std::optional<Failure> failure_;
};

class Servers {
 public:
  static Servers& process() {
    static Servers servers;
    return servers;
  }

  void map(TextView server, const std::filesystem::path& file) {
    const std::filesystem::path whole = std::filesystem::absolute(file).lexically_normal();
    const std::unique_lock lock(mutex_);
    std::weak_ptr<CachedFile>& known = files_[whole];
    std::shared_ptr<CachedFile> cached = known.lock();
    if (!cached) {
      cached = std::make_shared<CachedFile>(whole);
      known = cached;
    }
    servers_[automation::lowerCase(server)] = Entry{Text(server), std::move(cached)};
    forgetFiles();
  }

  void unmap(TextView server) {
    const std::unique_lock lock(mutex_);
    servers_.erase(automation::lowerCase(server));
    forgetFiles();
  }

  std::shared_ptr<const Metabase> snapshot(TextView server) {
    std::shared_ptr<CachedFile> file;
    {
      const std::shared_lock lock(mutex_);
      const auto found = servers_.find(automation::lowerCase(server));
      if (found == servers_.end()) failUnknown(server);
      file = found->second.file;
    }
    return file->snapshot();
  }

 private:
  struct Entry {
    Text name;
    std::shared_ptr<CachedFile> file;
  };

  // Takes out the files that no server stands for any more.
  void forgetFiles() {
    std::erase_if(files_, [](const auto& entry) { return entry.second.expired(); });
  }

  [[noreturn]] void failUnknown(TextView server) const {
    constexpr std::size_t kMostNames = 10;
    std::map<Text, std::string> names;
    for (const auto& [key, entry] : servers_) names.emplace(key, automation::toUtf8(entry.name));
    std::string known;
    std::size_t count = 0;
    for (const auto& [key, name] : names) {
      if (count == kMostNames) {
        known += ", ...";
        break;
      }
      known += (count++ == 0 ? "" : ", ") + name;
    }
    fail(number::kUnknownServer, "The server " + inQuotes(automation::toUtf8(server)) + " is not known; " +
                                     (known.empty() ? "no server is" : "known are: " + known));
  }

  std::shared_mutex mutex_;
  std::unordered_map<Text, Entry> servers_;
  std::map<std::filesystem::path, std::weak_ptr<CachedFile>> files_;
};

// Serves "IIS://server/path".
ObjectRef objectAt(TextView moniker) {
  const auto failSyntax = [&] {
    throw Failure(automation::number::kMonikerSyntax, u"Not of the form IIS://server/path: " + Text(moniker),
                  Text(kSource));
  };
  if (!automation::equalsIgnoringCase(moniker.substr(0, kMonikerStart.size()), kMonikerStart)) failSyntax();
  const TextView rest = moniker.substr(kMonikerStart.size());
  const std::size_t slash = rest.find(u'/');
  const TextView server = rest.substr(0, slash);
  if (server.empty()) failSyntax();
  std::shared_ptr<const Metabase> metabase = snapshotOf(server);
  std::optional<Metabase::NodeId> node = metabase->child(metabase->root(), kLocalMachine);
  if (node && slash != TextView::npos) {
    const TextView path = rest.substr(slash + 1);
    node = path.empty() ? std::nullopt : metabase->find(*node, path);
  }
  if (!node) {
    fail(number::kPathNotFound,
         metabase->file() + ": there is no node " + inQuotes(automation::toUtf8(moniker)));
  }
  return makeNodeObject(std::make_shared<const Origin>(Origin{std::move(metabase), Text(server)}), *node);
}

}  // namespace

void mapServer(TextView server, const std::filesystem::path& metabaseFile) {
  Servers::process().map(server, metabaseFile);
}

void unmapServer(TextView server) {
  Servers::process().unmap(server);
}

std::shared_ptr<const Metabase> snapshotOf(TextView server) {
  return Servers::process().snapshot(server);
}

void registerMoniker() {
  automation::Runtime::process().serveMoniker(u"IIS:", objectAt);
}

}  // namespace platform::metabase
