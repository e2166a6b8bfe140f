#include "host/collect/check.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <string>

#include <fmt/core.h>

#include "automation/failure.h"
#include "host/collect/component_driver.h"
#include "host/collect/run_document.h"
#include "host/collect/server_collection.h"
#include "host/console/terminal_text.h"
#include "host/console/text.h"
#include "os/private_folder.h"
#include "os/terminal.h"

namespace host {
namespace {

constexpr int kProblems = 1;
constexpr int kFailed = 2;

class Check {
 public:
  Check(const CheckOptions& options, Output& output)
      : options_(options),
        output_(output),
        sources_(findSources(options.metabases, options.maxSize, Sources::Names::kAny)),
        logs_(folder_.path()) {}

  int run() {
    RunDocument document("check");
    document.addSources(sources_.notes, sources_.problems);
    if (sources_.servers.empty() || !sources_.problems.empty()) status_ = kFailed;
    for (const std::string& problem : sources_.problems) printError(problem);
    for (const Server& server : sources_.servers) {
      const ServerResult result = checkOne(server);
      if (options_.json) document.add(server, result, true);
    }
    if (options_.json) print(document.text(status_, "", true));
    flush();
    return status_;
  }

 private:
  ServerResult checkOne(const Server& server) {
    RunResults results(1);
    ServerResult& result = results.servers.front();
    try {
      logs_.application.clear();
      logs_.server.clear();
      if (staging_ == nullptr) staging_ = std::make_unique<StagingDatabase>("check");
      const Outcome outcome = collectServer(server, options_.maxSize, selection_, *staging_, logs_, {});
      results.add(0, server.name, outcome, staging_->rowCounts(), selection_);
      result.state = PublishState::kPublished;
      if (result.groups.problems() > 0) status_ = std::max(status_, kProblems);
      if (!options_.json) printResult(server, outcome, result);
    } catch (const automation::Failure& failure) {
      fail(result, automation::toUtf8(failure.description()));
    } catch (const std::exception& error) {
      fail(result, fmt::format("{}: {}", server.name, error.what()));
    }
    StagingDatabase::recycle(staging_);
    return std::move(result);
  }

  void printResult(const Server& server, const Outcome& outcome, const ServerResult& result) {
    const bool isClean = result.groups.problems() + result.groups.notes() == 0;
    print(fmt::format("{}: a metabase of {}{}\n", escapeForTerminal(server.source.shown()),
                      pluralize(static_cast<std::int64_t>(outcome.nodeCount), "node", "nodes"),
                      isClean ? ", no problems" : ""));
    for (const std::string& remark : result.remarks)
      print(fmt::format("{} has {}\n", escapeForTerminal(server.name), escapeForTerminal(remark)));
    const std::size_t width =
        os::isTerminal(os::kStandardOutput) ? os::terminalColumns(os::kStandardOutput) : 100;
    ifOpen([&] { result.groups.print(output_, width); });
  }

  void fail(ServerResult& result, const std::string& why) {
    flush();
    result.errors.push_back(why);
    printError(why);
    status_ = kFailed;
  }

  // The status is returned even if the output is closed.
  template <typename Print>
  void ifOpen(const Print& prints) {
    if (!isOpen_) return;
    try {
      prints();
    } catch (const OutputClosed&) {
      isOpen_ = false;
    }
  }
  void print(const std::string& text) {
    ifOpen([&] { output_.write(text); });
  }
  void flush() {
    ifOpen([&] { output_.flush(); });
  }

  const CheckOptions& options_;
  Output& output_;
  const Sources sources_;
  const Selection selection_ = select({}, {}, {});
  const os::PrivateFolder folder_;
  PrivateLogs logs_;
  std::unique_ptr<StagingDatabase> staging_;
  bool isOpen_ = true;
  int status_ = 0;
};

}  // namespace

int check(const CheckOptions& options, Output& output) {
  const auto run = [&] {
    registerComponent();
    return Check(options, output).run();
  };
  return options.json ? withFailureDocument("check", output, run) : run();
}

}  // namespace host
