#include "host/collect.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "automation/failure.h"
#include "host/inventory.h"
#include "host/log_files.h"
#include "host/progress.h"
#include "host/server_collection.h"
#include "host/tables.h"
#include "host/terminal_text.h"
#include "platform/host/host.h"
#include "platform/metabase/servers.h"
#include "platform/store/store.h"
#include "platform/wmi/wmi.h"
#include "server/portable/server.h"

namespace host {
namespace {

using automation::Failure;

enum Status { kAllWell = 0, kWithProblems = 1, kNothing = 2 };

void requireDatabaseDirectory(const std::filesystem::path& database) {
  const auto refuse = [&](const char* why) {
    throw UsageError("--database '" + database.string() + "': " + why);
  };
  std::error_code error;
  const std::filesystem::path directory = database.parent_path();
  if (!std::filesystem::is_directory(directory, error)) refuse("its directory doesn't exist");
  if (!std::filesystem::exists(database, error) && ::access(directory.c_str(), W_OK | X_OK) != 0) {
    refuse("its directory can't be written to");
  }
}

// The component's logs go where the database is unless told otherwise, so a directory that can't take them
// shows before the first row.
void requireLogDirectory(const std::filesystem::path& directory) {
  const auto refuse = [&](const char* why) {
    throw UsageError("the logs can't go to the directory '" + directory.string() + "': " + why);
  };
  std::error_code error;
  if (!std::filesystem::exists(directory, error)) refuse("it doesn't exist");
  if (!std::filesystem::is_directory(directory, error)) refuse("it is not a directory");
  if (::access(directory.c_str(), W_OK | X_OK) != 0) refuse("it can't be written to");
  if (directory.string().find('\\') != std::string::npos) {
    refuse("a backslash in its path would be taken for a separator");
  }
}

std::string counted(std::int64_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

class Collection {
 public:
  Collection(const CollectOptions& options, Output& output)
      : options_(options),
        output_(output),
        target_{options.database, options.logDirectory},
        logs_(logPaths(options, target_)),
        progress_(!options.quiet),
        replaced_(tables().size(), 0) {}

  int run() {
    // Nothing is made for the sake of files that are no good.
    if (!passUnusable()) return kNothing;

    // Kept open to the end, so that the threads' connections come and go without closing the file each time.
    std::optional<platform::store::Database> database;
    RowCounts before;
    try {
      database.emplace(openInventory(options_.database));
      before = countRows(*database, serverNames());
    } catch (const Failure& failure) {
      complain(automation::toUtf8(failure.description()));
      return kNothing;
    } catch (const std::filesystem::filesystem_error& error) {
      complain("Can't make the database '" + options_.database.string() + "': " + error.code().message());
      return kNothing;
    }
    collectAll();
    reportUnknown(options_.selection.sites, foundSites_, "FTP site");
    reportUnknown(options_.selection.pools, foundPools_, "application pool");
    const RowCounts after = countRows(*database, serverNames());
    database.reset();
    return summarize(after - (before - replaced_));
  }

 private:
  static std::vector<std::filesystem::path> logPaths(const CollectOptions& options, const Target& target) {
    std::vector<std::filesystem::path> paths{target.applicationLog()};
    for (const Server& server : options.servers) paths.push_back(target.serverLog(server.name));
    return paths;
  }

  std::vector<std::string> serverNames() const {
    std::vector<std::string> names;
    for (const Server& server : options_.servers) names.push_back(server.name);
    return names;
  }

  void fail(const Server& server, const std::string& why) {
    progress_.aside([&] { complain(server.name + ": " + why); });
    const std::lock_guard lock(mutex_);
    ++problems_;
  }

  void note(const std::string& text) {
    if (options_.quiet) return;
    progress_.aside([&] { print([&] { output_.write(harmless(text) + "\n"); }); });
  }

  // A collection that nobody reads about goes on: its rows are what it is for. Not for several threads at
  // once.
  template <typename Print>
  void print(const Print& prints) {
    if (outputFailed_) return;
    try {
      prints();
      output_.flush();
    } catch (const OutputClosed&) {
      outputFailed_ = true;
    } catch (const std::runtime_error& error) {
      outputFailed_ = true;
      complain(error.what());
      const std::lock_guard lock(mutex_);
      ++problems_;
    }
  }

  // Goes on to the first server that can be collected. False when there is none.
  bool passUnusable() {
    for (; next_ < options_.servers.size(); ++next_) {
      const Server& server = options_.servers[next_];
      try {
        lookAt(server);
        return true;
      } catch (const Failure& failure) {
        fail(server, automation::toUtf8(failure.description()));
      }
    }
    return false;
  }

  void collectAll() {
    const std::size_t count = std::min<std::size_t>(options_.jobs, options_.servers.size() - next_);
    std::vector<std::jthread> others;
    for (std::size_t at = 1; at < count; ++at) {
      others.emplace_back([this] { work(); });
    }
    work();
  }

  // What each thread does, the first one included: a server after the other, until none is left.
  void work() {
    while (true) {
      const std::size_t place = next_++;
      if (place >= options_.servers.size()) break;
      collectOne(options_.servers[place]);
    }
    platform::store::releaseIdle();
  }

  void collectOne(const Server& server) {
    const auto lane = progress_.begin(options_.servers.size() > 1 ? server.name : std::string());
    try {
      const Outcome outcome = collectServer(server, target_, options_.selection, progress_.updaters(lane),
                                            [&](const std::string& text) { note(text); });
      take(outcome);
      for (const std::string& problem : outcome.problems) fail(server, problem);
    } catch (const std::exception& error) {
      fail(server, error.what());
    }
    progress_.end(lane);
    // Its metabase may be large, and nobody asks for it any more.
    platform::metabase::unmapServer(automation::fromUtf8(server.name));
  }

  void take(const Outcome& outcome) {
    const std::lock_guard lock(mutex_);
    if (outcome.collected) ++collected_;
    if (!outcome.replaced.empty()) replaced_ = replaced_ + outcome.replaced;
    foundSites_.insert(outcome.foundSites.begin(), outcome.foundSites.end());
    foundPools_.insert(outcome.foundPools.begin(), outcome.foundPools.end());
  }

  void reportUnknown(const std::vector<std::string>& wanted, const std::set<std::string>& found,
                     const char* what) {
    if (collected_ == 0) return;
    for (const std::string& item : std::set<std::string>(wanted.begin(), wanted.end())) {
      if (found.contains(item)) continue;
      complain(std::string("there is no ") + what + " '" + item + "'" +
               (collected_ == 1 ? "" : " on any of the servers"));
      ++problems_;
    }
  }

  int summarize(const RowCounts& rows) {
    const std::vector<LogFiles::Added> logs = logs_.added();
    std::int64_t records = 0;
    for (const LogFiles::Added& log : logs) records += log.records;

    const bool nothing = collected_ == 0 || (total(rows) == 0 && records + problems_ > 0);
    if (!options_.quiet) {
      print([&] {
        printRows(rows);
        printRecords(records, logs);
      });
    } else if (records > 0) {
      std::string text = counted(records, "problem stands", "problems stand") + " in the logs:";
      for (const LogFiles::Added& log : logs) text += " " + log.file.string();
      complain(text);
    }
    if (nothing) return kNothing;
    return records + problems_ > 0 ? kWithProblems : kAllWell;
  }

  void printRows(const RowCounts& rows) {
    output_.write("collected " + counted(collected_, "server", "servers") + " into " +
                  harmless(options_.database.string()) + ": " + counted(total(rows), "row", "rows") + "\n");
    std::size_t nameWidth = 0;
    std::size_t countWidth = 0;
    for (std::size_t at = 0; at < rows.size(); ++at) {
      nameWidth = std::max(nameWidth, tables()[at].name.size());
      countWidth = std::max(countWidth, std::to_string(rows[at]).size());
    }
    for (std::size_t at = 0; at < rows.size(); ++at) {
      if (rows[at] == 0) continue;
      const std::string name(tables()[at].name);
      const std::string count = std::to_string(rows[at]);
      output_.write("  " + name + std::string(nameWidth - name.size() + 2 + countWidth - count.size(), ' ') +
                    count + "\n");
    }
  }

  void printRecords(std::int64_t records, const std::vector<LogFiles::Added>& logs) {
    if (records == 0) {
      output_.write("no problems in the logs\n");
      return;
    }
    output_.write(counted(records, "problem stands", "problems stand") + " in the logs:\n");
    for (const LogFiles::Added& log : logs) {
      output_.write("  " + harmless(log.file.string()) + "  " + std::to_string(log.records) + "\n");
    }
  }

  const CollectOptions& options_;
  Output& output_;
  const Target target_;
  const LogFiles logs_;
  ProgressLine progress_;

  std::atomic<std::size_t> next_ = 0;
  bool outputFailed_ = false;
  std::mutex mutex_;
  std::int64_t collected_ = 0;
  std::int64_t problems_ = 0;
  RowCounts replaced_;
  std::set<std::string> foundSites_;
  std::set<std::string> foundPools_;
};

}  // namespace

int collect(const CollectOptions& options, Output& output) {
  requireDatabaseDirectory(options.database);
  requireLogDirectory(options.logDirectory);
  platform::metabase::registerMoniker();
  platform::wmi::registerMoniker();
  platform::store::registerStore();
  platform::host::registerHostObjects();
  DllRegisterServer();
  return Collection(options, output).run();
}

}  // namespace host
