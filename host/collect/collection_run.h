// One run of the command "collect": collects servers in several threads and publishes them.
#pragma once

#include <atomic>
#include <filesystem>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "host/collect/collect.h"
#include "host/collect/publisher.h"
#include "host/collect/run_console.h"
#include "host/collect/run_results.h"
#include "host/collect/run_summary.h"
#include "host/collect/user_logs.h"
#include "os/private_folder.h"
#include "os/termination_signals.h"

namespace host {

class CollectionRun : private Publisher::Listener {
 public:
  // Signals end it from run() on. The references must outlive it.
  CollectionRun(const CollectOptions& options, const Sources& sources, Output& output,
                inventory::Inventory& inventory, LastCollected lastCollected,
                os::TerminationSignals& signals);
  ~CollectionRun() override { signals_.ignore(); }

  // Prints the results. Returns the exit status.
  int run();

 private:
  using Servers = std::span<const std::unique_ptr<CollectedServer>>;

  std::size_t jobs();
  void collectAll();
  void work(std::size_t number);
  void collectOne(std::size_t place, PrivateLogs& logs, std::unique_ptr<StagingDatabase>& staging);
  bool tryCollect(const Server& server, PrivateLogs& logs, const std::shared_ptr<ProgressLine::Lane>& lane,
                  std::unique_ptr<StagingDatabase>& staging, CollectedServer& finished);
  void keepLogs(std::size_t place, const PrivateLogs& logs, inventory::Collected* collected);
  void submit(std::unique_ptr<CollectedServer> finished);

  void onCommitted(const CollectedServer& finished, const inventory::Published& published) noexcept override;
  void onPublished(const CollectedServer& finished, const inventory::Published& published) noexcept override;
  void onUnknown(Servers servers) noexcept override;
  void onFailed(Servers servers, const char* why) noexcept override;
  void setState(std::size_t place, PublishState state) noexcept;

  void fail(const std::string& text);
  void failServer(std::size_t place, const std::string& why);
  void finishPublishing();
  void reportUnprocessed();
  void reportUnknown(const std::vector<std::string>& wanted, const std::set<std::string>& found,
                     const char* what);
  void reportKept();
  int summarize();
  RunSummary summary() const;
  [[noreturn]] void end(int signalNumber);
  std::string resultAtEnd() const;

  const CollectOptions& options_;
  const Sources& sources_;
  const std::span<const Server> servers_;
  inventory::Inventory& inventory_;
  const LastCollected lastCollected_;
  os::TerminationSignals& signals_;
  os::PrivateFolder folder_;
  RunConsole console_;
  Publisher publisher_;
  UserLogs userLogs_;
  std::atomic<std::size_t> next_ = 0;
  std::mutex mutex_;  // guards the results while there are several threads
  RunResults results_;
  std::atomic<bool> isSummarized_ = false;
};

}  // namespace host
