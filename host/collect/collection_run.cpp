#include "host/collect/collection_run.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include <fmt/core.h>

#include "automation/failure.h"
#include "host/collect/server_collection.h"
#include "host/console/terminal_text.h"
#include "host/console/text.h"
#include "inventory/clock.h"
#include "os/process.h"

namespace host {
namespace {

// Open files of a thread (the server's file, two logs and a record being written, a database's temporary
// file) and of the rest of the program.
constexpr std::size_t kDescriptorsOfJob = 8;
constexpr std::size_t kDescriptorsOfAll = 24;

}  // namespace

CollectionRun::CollectionRun(const CollectOptions& options, const Sources& sources, Output& output,
                             inventory::Inventory& inventory, LastCollected lastCollected,
                             os::TerminationSignals& signals)
    : options_(options),
      sources_(sources),
      servers_(sources.servers),
      inventory_(inventory),
      lastCollected_(std::move(lastCollected)),
      signals_(signals),
      console_(options.quiet, !options.quiet && !options.json, sources.servers.size(), output),
      publisher_(inventory, options.jobs, {options.replace}, *this),
      userLogs_(options.logDirectory, options.access.wait),
      results_(sources.servers.size()) {}

int CollectionRun::run() {
  signals_.await([this](int signalNumber) { end(signalNumber); });
  for (const std::string& text : sources_.notes) console_.note(text);
  for (const std::string& text : sources_.problems) console_.error(text);
  collectAll();
  publisher_.finish();
  finishPublishing();
  reportUnprocessed();
  reportUnknown(options_.selection.sites, results_.foundSites, "FTP site");
  reportUnknown(options_.selection.pools, results_.foundPools, "application pool");
  return summarize();
}

// A failure only makes later commands slower.
void CollectionRun::finishPublishing() {
  try {
    inventory_.finishPublishing();
  } catch (const inventory::Error& error) {
    console_.note(error.what());
  }
  if (const std::string text = inventory_.driver().takeNotice(); !text.empty()) console_.note(text);
}

void CollectionRun::fail(const std::string& text) {
  {
    const std::lock_guard lock(mutex_);
    results_.errors.push_back(text);
  }
  console_.error(text);
}

void CollectionRun::failServer(std::size_t place, const std::string& why) {
  {
    const std::lock_guard lock(mutex_);
    results_.servers[place].errors.push_back(why);
  }
  console_.error(fmt::format("{}: {}", servers_[place].name, why));
}

std::size_t CollectionRun::jobs() {
  const std::size_t count = std::min<std::size_t>(options_.jobs, servers_.size());
  const std::optional<std::size_t> limit = os::openFileLimit();
  if (!limit) return count;
  const std::size_t spare = *limit > kDescriptorsOfAll ? *limit - kDescriptorsOfAll : 0;
  const auto most = std::max<std::size_t>(1, spare / kDescriptorsOfJob);
  if (count <= most) return count;
  console_.note(fmt::format("collecting {} servers in parallel instead of {}: at most {} files may be open",
                            most, count, *limit));
  return most;
}

void CollectionRun::collectAll() {
  std::vector<std::jthread> others;
  const std::size_t count = jobs();
  try {
    for (std::size_t at = 1; at < count; ++at) {
      others.emplace_back([this, at] { work(at); });
    }
  } catch (const std::system_error& error) {
    console_.note(
        fmt::format("collecting {} servers in parallel instead of {}: cannot start more threads: {}",
                    others.size() + 1, count, error.what()));
  }
  work(0);
}

// Run by every thread: collects one server after another until none is left.
void CollectionRun::work(std::size_t number) {
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

void CollectionRun::collectOne(std::size_t place, PrivateLogs& logs,
                               std::unique_ptr<StagingDatabase>& staging) {
  const Server& server = servers_[place];
  const auto lane = console_.progress().begin(server.name, place + 1);
  auto finished = std::make_unique<CollectedServer>();
  finished->place = place;
  const bool isWhole = tryCollect(server, logs, lane, staging, *finished);
  console_.progress().end(lane);
  if (!options_.dryRun) keepLogs(place, logs, isWhole ? &finished->outcome.collected : nullptr);
  if (isWhole) return submit(std::move(finished));
  setState(place, PublishState::kFailed);
}

// Returns whether the server was collected and can be published, or else reports why not.
bool CollectionRun::tryCollect(const Server& server, PrivateLogs& logs,
                               const std::shared_ptr<ProgressLine::Lane>& lane,
                               std::unique_ptr<StagingDatabase>& staging, CollectedServer& finished) {
  std::string why;
  try {
    logs.application.clear();
    logs.server.clear();
    if (staging == nullptr)
      staging = std::make_unique<StagingDatabase>(inventory::shownName(options_.database));
    finished.outcome = collectServer(server, options_.maxSize, options_.selection, *staging, logs,
                                     console_.progress().updaters(lane));
    finished.rowCounts = staging->rowCounts();
    if (!options_.dryRun) finished.rows = StagingDatabase::takeRows(staging);
    return true;
  } catch (const automation::Failure& failure) {
    failServer(finished.place, automation::toUtf8(failure.description()));
    return false;
  } catch (const std::bad_alloc&) {
    why = "out of memory";
  } catch (const std::exception& error) {
    // A failure of the staging database is the cause of later ones.
    if (staging != nullptr) why = staging->database().fatalError();
    if (why.empty()) why = error.what();
  }
  failServer(finished.place, "incomplete and not published: " + why);
  return false;
}

// Appends the component's records to the user's logs, whether the rows are published or not.
void CollectionRun::keepLogs(std::size_t place, const PrivateLogs& logs, inventory::Collected* collected) {
  for (const std::string& why : userLogs_.append(servers_[place].name, logs)) {
    failServer(place, why);
    if (collected == nullptr) continue;
    inventory::Problem problem;
    problem.message = why;
    problem.time = inventory::utcNow();
    collected->problems.push_back(std::move(problem));
  }
}

void CollectionRun::submit(std::unique_ptr<CollectedServer> finished) {
  const std::size_t place = finished->place;
  {
    const std::lock_guard lock(mutex_);
    results_.add(place, servers_[place].name, finished->outcome, finished->rowCounts, options_.selection);
  }
  if (inventory::sumOf(finished->rowCounts) == 0) {
    setState(place, PublishState::kFailed);
    failServer(place, "not published: the file contains nothing to inventory");
  } else if (options_.dryRun) {
    setState(place, PublishState::kPublished);
  } else {
    publisher_.add(std::move(finished));
  }
}

void CollectionRun::onCommitted(const CollectedServer& finished,
                                const inventory::Published& published) noexcept {
  const std::lock_guard lock(mutex_);
  ServerResult& server = results_.servers[finished.place];
  server.state = PublishState::kPublished;
  server.replacedRows = inventory::sumOf(published.replaced);
}

void CollectionRun::onPublished(const CollectedServer& finished,
                                const inventory::Published& published) noexcept {
  const std::string& name = servers_[finished.place].name;
  try {
    std::string line;
    {
      const std::lock_guard lock(mutex_);
      ServerResult& server = results_.servers[finished.place];
      for (const inventory::Problem& problem : published.problems) server.groups.add(name, problem);
      line = escapeForTerminal(name) + ": " + pluralize(inventory::sumOf(published.added), "row", "rows");
      if (server.replacedRows > 0) line += fmt::format(" (replaced {})", server.replacedRows);
      if (server.groups.problems() > 0) line += ", " + countedProblems(server.groups.problems());
    }
    if (options_.verbose) console_.print([&](Output& output) { output.write(line + "\n"); });
  } catch (const std::bad_alloc&) {
    // It is published nevertheless.
  }
}

void CollectionRun::onUnknown(Servers servers) noexcept {
  for (const auto& server : servers) setState(server->place, PublishState::kUnknown);
}

void CollectionRun::onFailed(Servers servers, const char* why) noexcept {
  try {
    std::vector<std::string> names;
    bool isUnknown = false;
    for (const auto& server : servers) {
      const std::lock_guard lock(mutex_);
      ServerResult& result = results_.servers[server->place];
      if (result.state != PublishState::kUnknown) result.state = PublishState::kFailed;
      isUnknown = isUnknown || result.state == PublishState::kUnknown;
      result.errors.emplace_back(why);
      names.push_back(servers_[server->place].name);
    }
    // The message about an unknown outcome names a single server already.
    const std::string who = isUnknown && names.size() == 1 ? "" : joinNames(names, kMostNames) + ": ";
    console_.error(who + (isUnknown ? "" : "not published: ") + why);
  } catch (const std::bad_alloc&) {
    printError(why);
  }
}

void CollectionRun::setState(std::size_t place, PublishState state) noexcept {
  const std::lock_guard lock(mutex_);
  results_.servers[place].state = state;
}

// Reports servers that no thread has collected.
void CollectionRun::reportUnprocessed() {
  const std::vector<std::string> names = results_.namesOf(PublishState::kOpen, servers_);
  if (names.empty()) return;
  const std::string why =
      "not collected: " +
      (publisher_.hasGivenUp() ? "the database cannot be published into" : results_.workerError);
  {
    const std::lock_guard lock(mutex_);
    for (ServerResult& server : results_.servers) {
      if (server.state != PublishState::kOpen) continue;
      server.state = PublishState::kFailed;
      server.errors.push_back(why);
    }
  }
  console_.error(joinNames(names, kMostNames) + ": " + why);
}

void CollectionRun::reportUnknown(const std::vector<std::string>& wanted, const std::set<std::string>& found,
                                  const char* what) {
  const std::size_t collected = results_.collectedCount();
  if (collected == 0) return;
  for (const std::string& item : std::set<std::string>(wanted.begin(), wanted.end())) {
    if (found.contains(item)) continue;
    fail(fmt::format("no {} '{}'{}", what, item, collected == 1 ? "" : " on any of the servers"));
  }
}

int CollectionRun::summarize() {
  if (!options_.dryRun) reportKept();
  if (options_.json) {
    console_.print([&](Output& output) {
      output.write(summary().json(false));
      isSummarized_ = true;
    });
  } else if (!options_.quiet) {
    console_.print([&](Output& output) { summary().print(output); });
  } else if (const std::string problems = summary().problems(); !problems.empty()) {
    console_.remark(problems);
  }
  const int status = summary().status();
  return console_.hasLostOutput() ? std::max(1, status) : status;
}

RunSummary CollectionRun::summary() const {
  return {options_, sources_, results_, lastCollected_, console_.errorCount()};
}

// Reports the previous collections of servers that were not published.
void CollectionRun::reportKept() {
  const std::vector<std::string> names = results_.namesOf(PublishState::kFailed, servers_);
  if (names.empty()) return;
  std::error_code error;
  if (!inventory::isOnServer(options_.database) && !std::filesystem::exists(options_.database, error)) return;
  try {
    // Reading would only wait again.
    if (publisher_.hasGivenUp()) {
      return console_.remark(
          results_.count(PublishState::kUnknown) == 0
              ? "what was published before is unchanged"
              : "what was published before is unchanged, but for servers of unknown outcome");
    }
    inventory::Reader reader = inventory_.read();
    std::vector<std::string> kept;
    for (const inventory::CollectionInfo& collection : reader.collections({names, ""}))
      kept.push_back(fmt::format("{} ({})", collection.server, pluralize(collection.rows, "row", "rows")));
    if (!kept.empty()) console_.remark("previous inventory kept: " + joinNames(kept, kMostNames));
  } catch (const inventory::Error&) {
    // There is no inventory, or it cannot be read.
  }
}

// Runs on the signal thread. The other threads may wait for ever for a reader of their output.
void CollectionRun::end(int signalNumber) {
  console_.close();
  publisher_.stop();
  // Publishing has stopped, so the results no longer change.
  os::runWithTimeout([this] {
    const std::lock_guard lock(mutex_);
    printError(resultAtEnd());
    if (options_.json && !isSummarized_)
      console_.printLast([&](Output& output) { output.write(summary().json(true)); });
  });
  folder_.remove();
  os::endBySignal(signalNumber);
}

std::string CollectionRun::resultAtEnd() const {
  if (options_.dryRun) return "ended by a signal; nothing was written";
  std::vector<std::string> unchanged = results_.namesOf(PublishState::kOpen, servers_);
  std::ranges::move(results_.namesOf(PublishState::kFailed, servers_), std::back_inserter(unchanged));
  const std::vector<std::string> unknown = results_.namesOf(PublishState::kUnknown, servers_);
  return fmt::format("ended by a signal; published: {}; not published: {}{}",
                     joinNames(results_.namesOf(PublishState::kPublished, servers_), kMostNames),
                     joinNames(unchanged, kMostNames),
                     unknown.empty() ? "" : "; outcome unknown: " + joinNames(unknown, kMostNames));
}

}  // namespace host
