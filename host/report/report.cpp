#include "host/report/report.h"

#include <fmt/core.h>

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <unordered_map>
#include <utility>

#include "host/console/output_files.h"
#include "host/query/retry.h"
#include "host/query/servers.h"
#include "host/report/page.h"
#include "host/report/page_folder.h"
#include "host/report/server_section.h"
#include "host/usage_error.h"
#include "inventory/inventory.h"
#include "os/termination_signals.h"

namespace host {
namespace {

using inventory::CollectionInfo;
using inventory::ServerData;

// A server with its findings.
struct Subject {
  const ServerData& server;
  Findings& findings;
  std::optional<std::size_t>
      index;  // in the findings; nothing if it was collected again after the evaluation

  page::ServerSummary writeSection(const std::string& anchor, page::Page& page) const {
    return page::writeSection(server, findings, index, anchor, page.sections());
  }
};

// Evaluates the rules, calls `begin`, and passes the servers in order; again from the start if the connection
// is lost.
void forEachServer(const ReportOptions& options, const std::function<void()>& begin,
                   const std::function<void(const Subject&)>& each) {
  retryOnDisconnect([&] {
    const auto inventory = inventory::openForReading(options.database, options.access);
    inventory::Reader reader = inventory->read(reportSuccessor);
    const std::vector<CollectionInfo> collections = chosenServers(reader, options.servers, options.at);
    const auto findings = evaluateRules(reader, collections, options.rules, options.findings);
    if (!findings->failures().empty()) throw RuleError(findings->failures().front());
    std::unordered_map<std::int64_t, std::size_t> indexes;  // by collection
    for (std::size_t at = 0; at < findings->servers().size(); ++at) indexes[findings->servers()[at].id] = at;
    begin();
    reader.forEach(collections, [&](std::unique_ptr<ServerData> server) {
      const auto found = indexes.find(server->info().id);
      each({*server, *findings, found == indexes.end() ? std::nullopt : std::optional(found->second)});
    });
  });
}

void checkNotDatabase(const ReportOptions& options, const std::filesystem::path& file) {
  std::error_code ignored;
  if (!inventory::isOnServer(options.database) &&
      std::filesystem::equivalent(file, options.database, ignored))
    throw UsageError(fmt::format("--output '{}': it is the database", file.string()));
}

void writePage(const ReportOptions& options, Output& output) {
  checkNotDatabase(options, options.output);
  std::vector<std::filesystem::path> paths;
  if (!options.output.empty()) paths.push_back(options.output);
  OutputFiles files(paths);
  std::optional<page::Page> page;
  std::size_t count = 0;
  const auto begin = [&] {
    page.emplace(options.rules, options.profile);
    count = 0;
  };
  forEachServer(options, begin, [&](const Subject& subject) {
    const std::string anchor = fmt::format("server-{}", ++count);
    page->add(subject.server.info(), "#" + anchor, subject.writeSection(anchor, *page));
    if (page->size() > options.maxBytes) {
      throw std::runtime_error(
          fmt::format("cannot write the page: it is larger than {} MB (write a page for each server with "
                      "--output DIRECTORY/, or select servers with --server)",
                      options.maxBytes / 1'000'000));
    }
  });
  page->write(paths.empty() ? output : files[0]);
  files.finish();
  output.flush();
}

// The index comes last, so that it links to complete pages only.
void writeFolder(const ReportOptions& options) {
  checkNotDatabase(options, options.output / page::kIndexName);
  page::PageFolder folder(options.output);
  os::TerminationSignals signals;
  signals.await([&](int signalNumber) {
    folder.discard();
    os::endBySignal(signalNumber);
  });
  std::optional<page::Page> index;
  const auto begin = [&] { index.emplace(options.rules, options.profile); };
  forEachServer(options, begin, [&](const Subject& subject) {
    const CollectionInfo& info = subject.server.info();
    const std::string name = page::pageNameOf(info.server);
    checkNotDatabase(options, options.output / name);
    page::Page page(options.rules, options.profile, page::kIndexName);
    const page::ServerSummary summary = subject.writeSection("server-1", page);
    page.add(info, "#server-1", summary);
    folder.write(name, page);
    index->add(info, name, summary);
  });
  folder.write(page::kIndexName, *index);
  folder.removeOldPages();
  signals.ignore();
}

}  // namespace

void report(const ReportOptions& options, Output& output) {
  if (options.isDirectory) {
    writeFolder(options);
  } else {
    writePage(options, output);
  }
}

}  // namespace host
