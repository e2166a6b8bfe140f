#include "host/collect/collect.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "automation/failure.h"
#include "automation/text.h"
#include "host/collect/problem_groups.h"
#include "host/collect/publisher.h"
#include "host/collect/run_results.h"
#include "host/collect/run_summary.h"
#include "host/collect/server_collection.h"
#include "host/console/listing.h"
#include "host/console/progress.h"
#include "host/console/terminal_text.h"
#include "host/console/text.h"
#include "host/sources/source_list.h"
#include "host/usage_error.h"
#include "inventory/clock.h"
#include "inventory/names.h"
#include "os/log_file.h"
#include "os/private_folder.h"
#include "os/process.h"
#include "os/terminal.h"
#include "os/termination_signals.h"
#include "platform/desktop/desktop.h"
#include "platform/metabase/servers.h"
#include "platform/store/store.h"
#include "platform/wmi/wmi.h"
#include "server/portable/server.h"

namespace host {
namespace {

using automation::Failure;

// Open files of a thread (the server's file, two logs and a record being written, a database's temporary
// file) and of the rest of the program.
constexpr std::size_t kDescriptorsOfJob = 8;
constexpr std::size_t kDescriptorsOfAll = 24;

void requireLogDirectory(const std::filesystem::path& directory) {
  const auto refuse = [&](const char* why) {
    throw UsageError("cannot write logs to the directory '" + directory.string() + "': " + why);
  };
  std::error_code error;
  if (!std::filesystem::exists(directory, error)) refuse("it does not exist");
  if (!std::filesystem::is_directory(directory, error)) refuse("it is not a directory");
}

// When each server of a database was last collected, by folded name.
using LastCollected = std::map<std::string, std::string>;

LastCollected readLastCollected(inventory::Inventory& inventory) {
  LastCollected last;
  inventory::Reader reader = inventory.read();
  for (const inventory::CollectionInfo& collection : reader.collections()) {
    // To the minute.
    const std::string& time = collection.published;
    last[collection.serverKey] = time.size() < 16 ? time : time.substr(0, 10) + " " + time.substr(11, 5);
  }
  return last;
}

class Collection : private Publisher::Listener {
 public:
  // Signals end it from run() on.
  Collection(const CollectOptions& options, Sources sources, Output& output,
             std::unique_ptr<inventory::Inventory> inventory, LastCollected lastCollected,
             os::TerminationSignals& signals)
      : options_(options),
        servers_(std::move(sources.servers)),
        notes_(std::move(sources.notes)),
        findings_(std::move(sources.problems)),
        output_(output),
        inventory_(std::move(inventory)),
        lastCollected_(std::move(lastCollected)),
        signals_(signals),
        progress_(!options.quiet, servers_.size()),
        publisher_(*inventory_, options.jobs, {options.replace}, *this),
        logWait_(options.access.wait),
        results_(servers_.size()) {}

  ~Collection() override { signals_.ignore(); }

  int run() {
    signals_.await([this](int signalNumber) { end(signalNumber); });
    for (const std::string& text : notes_) note(text);
    for (const std::string& text : findings_) fail(text);
    collectAll();
    publisher_.finish();
    finishPublishing();
    reportUnprocessed();
    reportUnknown(options_.selection.sites, results_.foundSites, "FTP site");
    reportUnknown(options_.selection.pools, results_.foundPools, "application pool");
    return summarize();
  }

 private:
  using Servers = std::span<const std::unique_ptr<CollectedServer>>;

  // A failure only makes later commands slower.
  void finishPublishing() {
    try {
      inventory_->finishPublishing();
    } catch (const inventory::Error& error) {
      note(error.what());
    }
    if (const std::string text = inventory_->driver().takeNotice(); !text.empty()) note(text);
  }

  // Prints an error and counts it.
  void fail(const std::string& text) {
    progress_.aside([&] { printError(text); });
    const std::lock_guard lock(mutex_);
    ++results_.errorCount;
  }

  void note(const std::string& text) {
    if (options_.quiet) return;
    progress_.aside([&] { print([&] { output_.write(escapeForTerminal(text) + "\n"); }); });
  }

  // Prints to the standard output. If that is closed, the collection continues. Not thread-safe.
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
      printError(error.what());
      const std::lock_guard lock(mutex_);
      ++results_.errorCount;
    }
  }

  std::size_t jobs() {
    std::size_t count = std::min<std::size_t>(options_.jobs, servers_.size());
    const std::optional<std::size_t> limit = os::openFileLimit();
    if (!limit) return count;
    const std::size_t spare = *limit > kDescriptorsOfAll ? *limit - kDescriptorsOfAll : 0;
    const auto most = std::max<std::size_t>(1, spare / kDescriptorsOfJob);
    if (count > most) {
      note("collecting " + std::to_string(most) + " servers in parallel instead of " + std::to_string(count) +
           ": at most " + std::to_string(*limit) + " files may be open");
      count = most;
    }
    return count;
  }

  void collectAll() {
    std::vector<std::jthread> others;
    const std::size_t count = jobs();
    try {
      for (std::size_t at = 1; at < count; ++at) {
        others.emplace_back([this, at] { work(at); });
      }
    } catch (const std::system_error& error) {
      note("collecting " + std::to_string(others.size() + 1) + " servers in parallel instead of " +
           std::to_string(count) + ": cannot start more threads: " + error.what());
    }
    work(0);
  }

  // Run by every thread: collects one server after another until none is left.
  void work(std::size_t number) {
    try {
      const std::filesystem::path folder = folder_.path() / std::to_string(number);
      std::filesystem::create_directory(folder);
      PrivateLogs logs(folder);
      std::unique_ptr<StagingDatabase> staging;
      while (true) {
        const std::size_t place = next_++;
        if (place >= servers_.size() || publisher_.hasGivenUp()) return;
        collectOne(place, logs, staging);
        StagingDatabase::recycle(staging);
      }
    } catch (const std::exception& error) {
      // The other threads continue.
      const std::lock_guard lock(mutex_);
      if (results_.workerError.empty()) results_.workerError = error.what();
    }
  }

  void collectOne(std::size_t place, PrivateLogs& logs, std::unique_ptr<StagingDatabase>& staging) {
    const Server& server = servers_[place];
    const auto lane = progress_.begin(server.name, place + 1);
    auto finished = std::make_unique<CollectedServer>();
    finished->place = place;
    if (tryCollect(server, logs, lane, staging, *finished)) {
      submit(std::move(finished));
    } else {
      setState(place, PublishState::kFailed);
    }
  }

  // Collects a server and keeps its logs. Returns whether it can be published, or else reports why not.
  bool tryCollect(const Server& server, PrivateLogs& logs, const std::shared_ptr<ProgressLine::Lane>& lane,
                  std::unique_ptr<StagingDatabase>& staging, CollectedServer& finished) {
    bool isWhole = false;
    try {
      logs.application.clear();
      logs.server.clear();
      if (staging == nullptr)
        staging = std::make_unique<StagingDatabase>(inventory::shownName(options_.database));
      finished.outcome = collectServer(server, options_.maxSize, options_.selection, *staging, logs,
                                       progress_.updaters(lane));
      finished.rowCounts = staging->rowCounts();
      if (!options_.dryRun) finished.rows = StagingDatabase::takeRows(staging);
      isWhole = true;
    } catch (const Failure& failure) {
      fail(server.name + ": " + automation::toUtf8(failure.description()));
    } catch (const std::bad_alloc&) {
      fail(server.name + ": incomplete and not published: out of memory");
    } catch (const std::exception& error) {
      // A failure of the staging database is the cause of later ones.
      const std::string why = staging != nullptr ? staging->database().fatalError() : "";
      fail(server.name + ": incomplete and not published: " + (why.empty() ? error.what() : why));
    }
    progress_.end(lane);
    if (!options_.dryRun) keepLogs(server, logs, isWhole ? &finished.outcome.collected : nullptr);
    return isWhole;
  }

  // Appends the component's records to the user's logs, whether the rows are published or not.
  void keepLogs(const Server& server, const PrivateLogs& logs, inventory::Collected* collected) {
    const auto keep = [&](const std::filesystem::path& file, const std::string& records) {
      try {
        os::appendToLog(file, records, logWait_);
      } catch (const std::runtime_error& error) {
        // Further servers do not wait again.
        if (dynamic_cast<const os::LogLocked*>(&error) != nullptr) logWait_ = std::chrono::milliseconds(0);
        fail(server.name + ": " + error.what());
        if (collected == nullptr) return;
        inventory::Problem problem;
        problem.message = error.what();
        problem.time = inventory::utcNow();
        collected->problems.push_back(std::move(problem));
      }
    };
    keep(applicationLog(), logs.application.text());
    keep(serverLog(server.name), logs.server.text());
  }

  std::filesystem::path applicationLog() const { return options_.logDirectory / "TORVINLog.Log"; }
  std::filesystem::path serverLog(const std::string& server) const {
    return options_.logDirectory / (server + ".log");
  }

  void submit(std::unique_ptr<CollectedServer> finished) {
    const Outcome& outcome = finished->outcome;
    const std::string& server = servers_[finished->place].name;
    {
      const std::lock_guard lock(mutex_);
      for (const std::string& remark : outcome.remarks) results_.remarks[remark].push_back(server);
      results_.foundSites.insert(outcome.foundSites.begin(), outcome.foundSites.end());
      results_.foundPools.insert(outcome.foundPools.begin(), outcome.foundPools.end());
      ++results_.collectedCount;
      for (const inventory::Problem& problem : outcome.collected.problems)
        results_.groups.add(server, problem);
    }
    if (inventory::sumOf(finished->rowCounts) > 0)
      return options_.dryRun ? addDryRunRow(*finished) : publisher_.add(std::move(finished));
    setState(finished->place, PublishState::kFailed);
    fail(server + ": not published: the file contains nothing to inventory");
  }

  // Records what a dry run would publish.
  void addDryRunRow(const CollectedServer& finished) {
    const inventory::RowCounts& counts = finished.rowCounts;
    const Selection& selection = options_.selection;
    const auto items = [&](Side side, std::string_view list, bool isSelected,
                           const std::vector<std::string>& found) {
      if (!selection.needsList(side)) return Value();
      return Value(std::to_string(isSelected
                                      ? static_cast<std::int64_t>(std::set(found.begin(), found.end()).size())
                                      : counts[inventory::findTable(list)]));
    };
    const Server& server = servers_[finished.place];
    const auto last = lastCollected_.find(inventory::folded(server.name));
    Row row = {server.name,
               items(Side::kFtp, "tblFTPSiteInfo", !selection.sites.empty(), finished.outcome.foundSites),
               items(Side::kPools, "tblAppPoolInfo", !selection.pools.empty(), finished.outcome.foundPools),
               std::to_string(inventory::sumOf(counts)),
               "0",
               last == lastCollected_.end() ? "never" : last->second,
               server.source.shown()};
    {
      const std::lock_guard lock(mutex_);
      const auto& problems = results_.groups.problemsByServer();
      if (const auto found = problems.find(server.name); found != problems.end())
        row[4] = std::to_string(found->second);
      results_.dryRunRows.emplace(finished.place, std::move(row));
      for (std::size_t at = 0; at < results_.rows.size(); ++at) results_.rows[at] += counts[at];
    }
    setState(finished.place, PublishState::kPublished);
  }

  void onCommitted(const CollectedServer& finished, const inventory::Published& published) noexcept override {
    const std::lock_guard lock(mutex_);
    results_.states[finished.place] = PublishState::kPublished;
    for (std::size_t at = 0; at < results_.rows.size(); ++at) results_.rows[at] += published.added[at];
  }

  void onPublished(const CollectedServer& finished, const inventory::Published& published) noexcept override {
    const std::string& server = servers_[finished.place].name;
    const std::int64_t replaced = inventory::sumOf(published.replaced);
    try {
      std::int64_t problems = 0;
      {
        const std::lock_guard lock(mutex_);
        for (const inventory::Problem& problem : published.problems) results_.groups.add(server, problem);
        if (const auto found = results_.groups.problemsByServer().find(server);
            found != results_.groups.problemsByServer().end()) {
          problems = found->second;
        }
        results_.replacedRows += replaced;
        if (replaced > 0) results_.replaced.push_back(server);
      }
      if (!options_.verbose) return;
      progress_.aside([&] {
        print([&] {
          output_.write(escapeForTerminal(server) + ": " +
                        pluralize(inventory::sumOf(published.added), "row", "rows") +
                        (replaced > 0 ? " (replaced " + std::to_string(replaced) + ")" : "") +
                        (problems > 0 ? ", " + countedProblems(problems) : "") + "\n");
        });
      });
    } catch (const std::bad_alloc&) {
      // It is published nevertheless.
    }
  }

  void onUnknown(Servers servers) noexcept override {
    for (const auto& server : servers) setState(server->place, PublishState::kUnknown);
  }

  void onFailed(Servers servers, const char* why) noexcept override {
    try {
      std::vector<std::string> names;
      bool isUnknown = false;
      for (const auto& server : servers) {
        isUnknown = isUnknown || markFailed(server->place) == PublishState::kUnknown;
        names.push_back(servers_[server->place].name);
      }
      // The message about an unknown outcome names a single server already.
      const std::string who = isUnknown && names.size() == 1 ? "" : joinNames(names, kMostNames) + ": ";
      fail(who + (isUnknown ? "" : "not published: ") + why);
    } catch (const std::bad_alloc&) {
      printError(why);
    }
  }

  // Sets the state unless it is unknown. Returns it.
  PublishState markFailed(std::size_t place) noexcept {
    const std::lock_guard lock(mutex_);
    if (results_.states[place] != PublishState::kUnknown) results_.states[place] = PublishState::kFailed;
    return results_.states[place];
  }

  void setState(std::size_t place, PublishState state) noexcept {
    const std::lock_guard lock(mutex_);
    results_.states[place] = state;
  }

  std::vector<std::string> namesOf(PublishState state) const { return results_.namesOf(state, servers_); }

  // Reports servers that no thread has collected.
  void reportUnprocessed() {
    const std::vector<std::string> names = namesOf(PublishState::kOpen);
    if (names.empty()) return;
    for (PublishState& state : results_.states) {
      if (state == PublishState::kOpen) state = PublishState::kFailed;
    }
    fail(joinNames(names, kMostNames) + ": not collected: " +
         (publisher_.hasGivenUp() ? "the database cannot be published into" : results_.workerError));
  }

  void reportUnknown(const std::vector<std::string>& wanted, const std::set<std::string>& found,
                     const char* what) {
    if (results_.collectedCount == 0) return;
    for (const std::string& item : std::set<std::string>(wanted.begin(), wanted.end())) {
      if (found.contains(item)) continue;
      printError(std::string("no ") + what + " '" + item + "'" +
                 (results_.collectedCount == 1 ? "" : " on any of the servers"));
      ++results_.errorCount;
    }
  }

  int summarize() {
    if (!options_.dryRun) reportKept();
    const RunSummary summary(options_, servers_, results_);
    if (!options_.quiet) {
      print([&] { summary.print(output_); });
    } else if (const std::string problems = summary.problems(); !problems.empty()) {
      printError(problems);
    }
    return summary.status();
  }

  // Reports the previous collections of servers that were not published.
  void reportKept() {
    const std::vector<std::string> names = namesOf(PublishState::kFailed);
    if (names.empty()) return;
    std::error_code error;
    if (!inventory::isOnServer(options_.database) && !std::filesystem::exists(options_.database, error))
      return;
    try {
      // Reading would only wait again.
      if (publisher_.hasGivenUp()) {
        return printError(namesOf(PublishState::kUnknown).empty()
                              ? "what was published before is unchanged"
                              : "what was published before is unchanged, but for servers of unknown outcome");
      }
      inventory::Reader reader = inventory_->read();
      std::vector<std::string> kept;
      for (const inventory::CollectionInfo& collection : reader.collections({names, ""}))
        kept.push_back(collection.server + " (" + pluralize(collection.rows, "row", "rows") + ")");
      if (!kept.empty()) printError("previous inventory kept: " + joinNames(kept, kMostNames));
    } catch (const inventory::Error&) {
      // There is no inventory, or it cannot be read.
    }
  }

  // Runs on the signal thread. The other threads may wait for ever for a reader of their output.
  [[noreturn]] void end(int signalNumber) {
    publisher_.stop();
    // Publishing has stopped, so the results no longer change.
    os::runWithTimeout([this] {
      progress_.stop();
      const std::lock_guard lock(mutex_);
      if (options_.dryRun) return printError("ended by a signal; nothing was written");
      std::vector<std::string> unchanged = namesOf(PublishState::kOpen);
      std::ranges::move(namesOf(PublishState::kFailed), std::back_inserter(unchanged));
      const std::vector<std::string> unknown = namesOf(PublishState::kUnknown);
      printError("ended by a signal; published: " + joinNames(namesOf(PublishState::kPublished), kMostNames) +
                 "; not published: " + joinNames(unchanged, kMostNames) +
                 (unknown.empty() ? "" : "; outcome unknown: " + joinNames(unknown, kMostNames)));
    });
    folder_.remove();
    os::endBySignal(signalNumber);
  }

  const CollectOptions& options_;
  const std::vector<Server> servers_;
  const std::vector<std::string> notes_;
  const std::vector<std::string> findings_;  // sources that could not be read
  Output& output_;
  const std::unique_ptr<inventory::Inventory> inventory_;
  const LastCollected lastCollected_;  // of a dry run
  os::TerminationSignals& signals_;
  os::PrivateFolder folder_;
  ProgressLine progress_;
  Publisher publisher_;

  std::atomic<std::chrono::milliseconds> logWait_;
  std::atomic<std::size_t> next_ = 0;
  bool outputFailed_ = false;
  std::mutex mutex_;  // guards the results while there are several threads
  RunResults results_;
};

}  // namespace

int collect(const CollectOptions& options, Output& output) {
  Sources sources = findSources(options.metabases, options.maxSize);
  if (options.listOnly) return listSources(sources, Format::kTable, output);
  requireLogDirectory(options.logDirectory);
  os::useLargePages();
  platform::metabase::registerMoniker();
  platform::wmi::registerMoniker();
  platform::store::registerStore();
  platform::desktop::registerDesktop();
  DllRegisterServer();
  countTriedRecords();
  std::error_code error;
  // A dry run does not create a database.
  const bool isForReading = options.dryRun && (inventory::isOnServer(options.database) ||
                                               std::filesystem::exists(options.database, error));
  auto inventory = isForReading ? inventory::openForReading(options.database, options.access)
                                : inventory::openForPublishing(options.database, options.access);
  LastCollected lastCollected;
  try {
    if (isForReading) lastCollected = readLastCollected(*inventory);
  } catch (const inventory::NoInventory&) {
    inventory = inventory::openForPublishing(options.database, options.access);
  }
  os::TerminationSignals signals;
  return Collection(options, std::move(sources), output, std::move(inventory), std::move(lastCollected),
                    signals)
      .run();
}

}  // namespace host
