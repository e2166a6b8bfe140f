#include "host/collect.h"

#include <malloc.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "automation/failure.h"
#include "automation/text.h"
#include "host/listing.h"
#include "host/private_folder.h"
#include "host/problem_groups.h"
#include "host/progress.h"
#include "host/publisher.h"
#include "host/server_collection.h"
#include "host/signals.h"
#include "host/terminal_text.h"
#include "host/user_log.h"
#include "inventory/clock.h"
#include "inventory/names.h"
#include "platform/desktop/desktop.h"
#include "platform/metabase/servers.h"
#include "platform/store/store.h"
#include "platform/wmi/wmi.h"
#include "server/portable/server.h"

namespace host {
namespace {

using automation::Failure;

enum Status { kAllWell = 0, kWithProblems = 1, kNothing = 2 };

// What a thread holds open at most: a server's file, two logs and a record on its way, a database's temporary
// file; and what the program holds besides.
constexpr rlim_t kDescriptorsOfJob = 8;
constexpr rlim_t kDescriptorsOfAll = 24;

// Of servers that are told in one line.
constexpr std::size_t kMostNames = 20;

// Has the heap grow in large pages: with small ones a large collection takes tens of thousands of page
// faults. Without them nothing but speed is lost.
void useLargePages() noexcept {
#if defined(__GLIBC__) && defined(MADV_HUGEPAGE)
  constexpr int kHeap = 96 << 20;
  ::mallopt(M_TOP_PAD, kHeap);
  ::mallopt(M_TRIM_THRESHOLD, 2 * kHeap);
  ::mallopt(M_MMAP_THRESHOLD, 1 << 30);
  // More than the heap has left, so that it grows now.
  const std::unique_ptr<char[]> more(new (std::nothrow) char[1 << 20]);
  char* const end = static_cast<char*>(::sbrk(0));
  const std::uintptr_t used = reinterpret_cast<std::uintptr_t>(more.get()) & ~std::uintptr_t{0xFFF};
  const std::uintptr_t begin = std::max(used, reinterpret_cast<std::uintptr_t>(end) - kHeap);
  if (more != nullptr && used < reinterpret_cast<std::uintptr_t>(end))
    ::madvise(reinterpret_cast<void*>(begin), reinterpret_cast<std::uintptr_t>(end) - begin, MADV_HUGEPAGE);
#endif
}

void requireLogDirectory(const std::filesystem::path& directory) {
  const auto refuse = [&](const char* why) {
    throw UsageError("the logs can't go to the directory '" + directory.string() + "': " + why);
  };
  std::error_code error;
  if (!std::filesystem::exists(directory, error)) refuse("it doesn't exist");
  if (!std::filesystem::is_directory(directory, error)) refuse("it is not a directory");
}

// When the servers of a database were last collected, by their folded names.
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
  // The signals end it from run() on; what it makes before is removed with it.
  Collection(const CollectOptions& options, Sources sources, Output& output,
             std::unique_ptr<inventory::Inventory> inventory, LastCollected lastCollected,
             EndingSignals& signals)
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
        rows_(inventory::tables().size(), 0),
        states_(servers_.size(), PublishState::kOpen) {}

  ~Collection() override { signals_.ignore(); }

  int run() {
    signals_.await([this](int signalNumber) { end(signalNumber); });
    for (const std::string& text : notes_) note(text);
    for (const std::string& text : findings_) fail(text);
    collectAll();
    publisher_.finish();
    finishPublishing();
    reportUnprocessed();
    reportUnknown(options_.selection.sites, foundSites_, "FTP site");
    reportUnknown(options_.selection.pools, foundPools_, "application pool");
    return summarize();
  }

 private:
  using Servers = std::span<const std::unique_ptr<CollectedServer>>;

  // What has become of a server, or would have.
  enum class PublishState : char { kOpen, kPublished, kFailed, kUnknown };

  // Statistics only make later commands faster.
  void finishPublishing() {
    try {
      inventory_->finishPublishing();
    } catch (const inventory::Error& error) {
      note(error.what());
    }
    if (const std::string text = inventory_->driver().takeNotice(); !text.empty()) note(text);
  }

  // A line on the standard error output, which counts as a problem.
  void fail(const std::string& text) {
    progress_.aside([&] { complain(text); });
    const std::lock_guard lock(mutex_);
    ++errorCount_;
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
      ++errorCount_;
    }
  }

  std::size_t jobs() {
    std::size_t count = std::min<std::size_t>(options_.jobs, servers_.size());
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return count;
    const rlim_t spare = limit.rlim_cur > kDescriptorsOfAll ? limit.rlim_cur - kDescriptorsOfAll : 0;
    const auto most = std::max<std::size_t>(1, spare / kDescriptorsOfJob);
    if (count > most) {
      note("at most " + std::to_string(limit.rlim_cur) + " files may be open here, so " +
           std::to_string(most) + " servers are collected side by side and not " + std::to_string(count));
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
      note("no more threads can be started, so the servers collected side by side are " +
           std::to_string(others.size() + 1) + " and not " + std::to_string(count) + ": " + error.what());
    }
    work(0);
  }

  // What each thread does, the first one included: a server after the other, until none is left.
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
      // Others may have better luck with what is left.
      const std::lock_guard lock(mutex_);
      if (workerError_.empty()) workerError_ = error.what();
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

  // Collects a server, whose logs are kept in any case. Tells why where it gives nothing to publish.
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
      // Where the private database has failed that is the cause of what followed.
      const std::string why = staging != nullptr ? staging->database().fatalError() : "";
      fail(server.name + ": incomplete and not published: " + (why.empty() ? error.what() : why));
    }
    progress_.end(lane);
    if (!options_.dryRun) keepLogs(server, logs, isWhole ? &finished.outcome.collected : nullptr);
    return isWhole;
  }

  // Appends what the component has logged to the user's logs, whatever becomes of the rows.
  void keepLogs(const Server& server, const PrivateLogs& logs, inventory::Collected* collected) {
    const auto keep = [&](const std::filesystem::path& file, const std::string& records) {
      try {
        appendToLog(file, records, logWait_);
      } catch (const std::runtime_error& error) {
        // Once in vain is enough.
        if (dynamic_cast<const LogLocked*>(&error) != nullptr) logWait_ = std::chrono::milliseconds(0);
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
      for (const std::string& remark : outcome.remarks) remarks_[remark].push_back(server);
      foundSites_.insert(outcome.foundSites.begin(), outcome.foundSites.end());
      foundPools_.insert(outcome.foundPools.begin(), outcome.foundPools.end());
      ++collectedCount_;
      for (const inventory::Problem& problem : outcome.collected.problems) groups_.add(server, problem);
    }
    if (inventory::sumOf(finished->rowCounts) > 0)
      return options_.dryRun ? addDryRunRow(*finished) : publisher_.add(std::move(finished));
    setState(finished->place, PublishState::kFailed);
    fail(server + ": not published: the file contains nothing to inventory");
  }

  // What would be published, in a dry run.
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
      const auto& problems = groups_.problemsByServer();
      if (const auto found = problems.find(server.name); found != problems.end())
        row[4] = std::to_string(found->second);
      dryRunRows_.emplace(finished.place, std::move(row));
      for (std::size_t at = 0; at < rows_.size(); ++at) rows_[at] += counts[at];
    }
    setState(finished.place, PublishState::kPublished);
  }

  void onCommitted(const CollectedServer& finished, const inventory::Published& published) noexcept override {
    const std::lock_guard lock(mutex_);
    states_[finished.place] = PublishState::kPublished;
    for (std::size_t at = 0; at < rows_.size(); ++at) rows_[at] += published.added[at];
  }

  void onPublished(const CollectedServer& finished, const inventory::Published& published) noexcept override {
    const std::string& server = servers_[finished.place].name;
    const std::int64_t replaced = inventory::sumOf(published.replaced);
    try {
      std::int64_t problems = 0;
      {
        const std::lock_guard lock(mutex_);
        for (const inventory::Problem& problem : published.problems) groups_.add(server, problem);
        if (const auto found = groups_.problemsByServer().find(server);
            found != groups_.problemsByServer().end()) {
          problems = found->second;
        }
        replacedRows_ += replaced;
        if (replaced > 0) replaced_.push_back(server);
      }
      if (!options_.verbose) return;
      progress_.aside([&] {
        print([&] {
          output_.write(harmless(server) + ": " + counted(inventory::sumOf(published.added), "row", "rows") +
                        (replaced > 0 ? " (replaced " + std::to_string(replaced) + ")" : "") +
                        (problems > 0 ? ", " + countedProblems(problems) : "") + "\n");
        });
      });
    } catch (const std::bad_alloc&) {
      // It is there all the same.
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
      // An unknown outcome names a single server itself.
      const std::string who = isUnknown && names.size() == 1 ? "" : listed(names, kMostNames) + ": ";
      fail(who + (isUnknown ? "" : "not published: ") + why);
    } catch (const std::bad_alloc&) {
      complain(why);
    }
  }

  // Unless its outcome is unknown. Gives the state.
  PublishState markFailed(std::size_t place) noexcept {
    const std::lock_guard lock(mutex_);
    if (states_[place] != PublishState::kUnknown) states_[place] = PublishState::kFailed;
    return states_[place];
  }

  void setState(std::size_t place, PublishState state) noexcept {
    const std::lock_guard lock(mutex_);
    states_[place] = state;
  }

  std::vector<std::string> namesOf(PublishState state) const {
    std::vector<std::string> names;
    for (std::size_t at = 0; at < servers_.size(); ++at) {
      if (states_[at] == state) names.push_back(servers_[at].name);
    }
    return names;
  }

  // Servers that no thread has collected.
  void reportUnprocessed() {
    const std::vector<std::string> names = namesOf(PublishState::kOpen);
    if (names.empty()) return;
    for (PublishState& state : states_) {
      if (state == PublishState::kOpen) state = PublishState::kFailed;
    }
    fail(listed(names, kMostNames) + ": not collected: " +
         (publisher_.hasGivenUp() ? "the database cannot be published into" : workerError_));
  }

  void reportUnknown(const std::vector<std::string>& wanted, const std::set<std::string>& found,
                     const char* what) {
    if (collectedCount_ == 0) return;
    for (const std::string& item : std::set<std::string>(wanted.begin(), wanted.end())) {
      if (found.contains(item)) continue;
      complain(std::string("there is no ") + what + " '" + item + "'" +
               (collectedCount_ == 1 ? "" : " on any of the servers"));
      ++errorCount_;
    }
  }

  int summarize() {
    if (!options_.dryRun) reportKept();
    const std::int64_t problems = groups_.problems();
    const std::size_t published = namesOf(PublishState::kPublished).size();
    if (!options_.quiet) {
      print([&] {
        if (published > 0 && options_.dryRun) printDryRun();
        printRemarks();
        if (published > 0) printRows(published);
        const std::size_t width = ::isatty(STDOUT_FILENO) != 0 ? terminalColumns(STDOUT_FILENO) : 100;
        groups_.print(output_, width);
        printServersWithProblems(width);
        if (problems == 0 && errorCount_ == 0) output_.write("no problems\n");
        if (options_.dryRun) {
          output_.write("nothing was written\n");
        } else if (problems + groups_.notes() > 0) {
          output_.write("list them: " + harmless(problemsHint(published)) + "\n");
        }
      });
    } else if (problems > 0) {
      complain(counted(problems, "problem", "problems") +
               (options_.dryRun ? "" : "; list them: " + problemsHint(published)));
    }
    if (published == 0) return kNothing;
    return problems + errorCount_ > 0 || published < servers_.size() ? kWithProblems : kAllWell;
  }

  std::string problemsHint(std::size_t published) const {
    return (published > 0 ? "'iisinventory show Problems', or see the logs in " : "see the logs in ") +
           options_.logDirectory.string();
  }

  // Previous collections of the servers that weren't published.
  void reportKept() {
    const std::vector<std::string> names = namesOf(PublishState::kFailed);
    if (names.empty()) return;
    std::error_code error;
    if (!inventory::isOnServer(options_.database) && !std::filesystem::exists(options_.database, error))
      return;
    try {
      // Asking once more would only mean waiting once more.
      if (publisher_.hasGivenUp()) {
        return complain(namesOf(PublishState::kUnknown).empty()
                            ? "what was published before is unchanged"
                            : "what was published before is unchanged, but for servers of unknown outcome");
      }
      inventory::Reader reader = inventory_->read();
      std::vector<std::string> kept;
      for (const inventory::CollectionInfo& collection : reader.collections({names, ""}))
        kept.push_back(collection.server + " (" + counted(collection.rows, "row", "rows") + ")");
      if (!kept.empty()) complain("previous inventory kept: " + listed(kept, kMostNames));
    } catch (const inventory::Error&) {
      // There is no inventory, or it can't be read.
    }
  }

  void printDryRun() {
    const Listing listing{{{"Server"},
                           {"FTP sites", true},
                           {"Pools", true},
                           {"Rows", true},
                           {"Problems", true, false, true},
                           {"Collected (UTC)"},
                           {"File"}},
                          [this](const std::function<void(const Row&)>& each) {
                            for (const auto& [place, row] : dryRunRows_) each(row);
                          }};
    host::print(listing, {}, output_);
    output_.write("\n");
  }

  void printRemarks() {
    for (const auto& [remark, servers] : remarks_) {
      output_.write(
          harmless(listed(servers, kMostNames) + (servers.size() == 1 ? " has " : " have ") + remark) + "\n");
    }
    if (replacedRows_ == 0) return;
    const std::string whose = replaced_.size() == 1
                                  ? harmless(replaced_.front()) + " from an earlier run"
                                  : std::to_string(replaced_.size()) + " servers from earlier runs";
    output_.write("replaced " + counted(replacedRows_, "row", "rows") + " of " + whose + "\n");
  }

  // Which of several, those with the most of them first.
  void printServersWithProblems(std::size_t width) {
    if (servers_.size() == 1 || groups_.problems() == 0) return;
    std::vector<std::pair<std::int64_t, std::string>> counts;
    for (const auto& [server, count] : groups_.problemsByServer()) counts.emplace_back(-count, server);
    std::sort(counts.begin(), counts.end());
    std::vector<std::string> names;
    for (const auto& [count, server] : counts) names.push_back(server + " (" + std::to_string(-count) + ")");
    const std::string text = "on " + counted(static_cast<std::int64_t>(names.size()), "server", "servers") +
                             ": " + listed(names, kMostNames);
    for (const std::string& line : wrapToWidth(harmless(text), width - 2)) output_.write("  " + line + "\n");
  }

  void printRows(std::size_t published) {
    const std::int64_t total = inventory::sumOf(rows_);
    std::size_t nameWidth = 0;
    std::size_t countWidth = 0;
    for (std::size_t at = 0; at < rows_.size(); ++at) {
      nameWidth = std::max(nameWidth, inventory::tables()[at].name.size());
      countWidth = std::max(countWidth, std::to_string(rows_[at]).size());
    }
    output_.write((options_.dryRun ? "would collect " : "collected ") +
                  counted(static_cast<std::int64_t>(published), "server", "servers") +
                  (published < servers_.size() ? " of " + std::to_string(servers_.size()) : "") + " into " +
                  harmless(inventory::shownName(options_.database)) + ": " + counted(total, "row", "rows") +
                  "\n");
    for (std::size_t at = 0; at < rows_.size(); ++at) {
      if (rows_[at] == 0 || options_.dryRun) continue;
      const std::string name(inventory::tables()[at].name);
      const std::string count = std::to_string(rows_[at]);
      output_.write("  " + name + std::string(nameWidth - name.size() + 2 + countWidth - count.size(), ' ') +
                    count + "\n");
    }
  }

  // On the thread that waits for signals, while the others go on with what is lost already. They may be
  // waiting for a reader of their output.
  [[noreturn]] void end(int signalNumber) {
    publisher_.stop();
    // Publishing has stopped, so nothing is added any more.
    tryForAMoment([this] {
      progress_.stop();
      const std::lock_guard lock(mutex_);
      if (options_.dryRun) return complain("ended by a signal; nothing was written");
      std::vector<std::string> unchanged = namesOf(PublishState::kOpen);
      std::ranges::move(namesOf(PublishState::kFailed), std::back_inserter(unchanged));
      const std::vector<std::string> unknown = namesOf(PublishState::kUnknown);
      complain("ended by a signal; published: " + listed(namesOf(PublishState::kPublished), kMostNames) +
               "; not published: " + listed(unchanged, kMostNames) +
               (unknown.empty() ? "" : "; outcome unknown: " + listed(unknown, kMostNames)));
    });
    folder_.remove();
    endBySignal(signalNumber);
  }

  const CollectOptions& options_;
  const std::vector<Server> servers_;
  const std::vector<std::string> notes_;
  const std::vector<std::string> findings_;  // what couldn't be looked into
  Output& output_;
  const std::unique_ptr<inventory::Inventory> inventory_;
  const LastCollected lastCollected_;  // of a dry run
  EndingSignals& signals_;
  PrivateFolder folder_;
  ProgressLine progress_;
  Publisher publisher_;

  std::atomic<std::chrono::milliseconds> logWait_;
  std::atomic<std::size_t> next_ = 0;
  bool outputFailed_ = false;
  std::mutex mutex_;  // guards the members below, while there are several threads
  std::int64_t collectedCount_ = 0;
  std::int64_t errorCount_ = 0;
  ProblemGroups groups_;
  inventory::RowCounts rows_;
  std::map<std::string, std::vector<std::string>> remarks_;  // with the servers
  std::map<std::size_t, Row> dryRunRows_;                    // by the server's place
  std::int64_t replacedRows_ = 0;
  std::vector<std::string> replaced_;  // servers that had some
  std::vector<PublishState> states_;   // by the server's place
  std::string workerError_;            // why a thread ended
  std::set<std::string> foundSites_;
  std::set<std::string> foundPools_;
};

// What would be collected, under which name.
int list(const Sources& sources, Output& output) {
  std::size_t width = 0;
  for (const Server& server : sources.servers) width = std::max(width, displayWidth(harmless(server.name)));
  for (const Server& server : sources.servers) {
    const std::string name = harmless(server.name);
    output.write(name + std::string(width - displayWidth(name) + 2, ' ') + harmless(server.source.shown()) +
                 "\n");
  }
  for (const std::string& text : sources.notes) output.write(harmless(text) + "\n");
  output.flush();
  for (const std::string& text : sources.problems) complain(text);
  if (sources.servers.empty()) return kNothing;
  return sources.problems.empty() ? kAllWell : kWithProblems;
}

}  // namespace

int collect(const CollectOptions& options, Output& output) {
  Sources sources = findSources(options.metabases, options.maxSize);
  if (options.listOnly) return list(sources, output);
  requireLogDirectory(options.logDirectory);
  useLargePages();
  platform::metabase::registerMoniker();
  platform::wmi::registerMoniker();
  platform::store::registerStore();
  platform::desktop::registerDesktop();
  DllRegisterServer();
  countTriedRecords();
  std::error_code error;
  // A database that isn't there is only made where something is published.
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
  EndingSignals signals;
  return Collection(options, std::move(sources), output, std::move(inventory), std::move(lastCollected),
                    signals)
      .run();
}

}  // namespace host
