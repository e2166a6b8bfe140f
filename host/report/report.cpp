#include "host/report/report.h"

#include <fmt/core.h>

#include <optional>
#include <system_error>
#include <unordered_map>
#include <utility>

#include "host/query/retry.h"
#include "host/query/servers.h"
#include "host/report/page.h"
#include "host/report/server_section.h"
#include "host/usage_error.h"
#include "inventory/inventory.h"
#include "os/new_file.h"
#include "os/termination_signals.h"

namespace host {
namespace {

using inventory::CollectionInfo;
using inventory::ServerData;

std::unordered_map<std::int64_t, std::size_t> indexesOf(const Findings& findings) {
  std::unordered_map<std::int64_t, std::size_t> indexes;
  for (std::size_t at = 0; at < findings.servers().size(); ++at) indexes[findings.servers()[at].id] = at;
  return indexes;
}

void checkOutput(const ReportOptions& options) {
  std::error_code ignored;
  if (!inventory::isOnServer(options.database) &&
      std::filesystem::equivalent(options.output, options.database, ignored))
    throw UsageError(fmt::format("--output '{}': it is the database", options.output.string()));
}

}  // namespace

void report(const ReportOptions& options, Output& output) {
  checkOutput(options);
  std::optional<os::NewFile> file;
  std::optional<Output> fileOutput;
  if (!options.output.empty()) {
    file.emplace(options.output);
    fileOutput.emplace(file->descriptor(), fmt::format("'{}'", options.output.string()));
  }
  os::TerminationSignals signals;
  signals.await([&](int signalNumber) {
    if (file) file->remove();
    os::endBySignal(signalNumber);
  });
  std::optional<page::Page> page;
  retryOnDisconnect([&] {
    const auto inventory = inventory::openForReading(options.database, options.access);
    inventory::Reader reader = inventory->read(reportSuccessor);
    const std::vector<CollectionInfo> collections = chosenServers(reader, options.servers, options.at);
    const auto findings = evaluateRules(reader, collections, options.rules, options.findings);
    if (!findings->failures().empty()) throw RuleError(findings->failures().front());
    const auto indexes = indexesOf(*findings);
    page.emplace(options.rules, options.profile);
    std::size_t number = 0;
    reader.forEach(collections, [&](std::unique_ptr<ServerData> server) {
      const std::string anchor = fmt::format("server-{}", ++number);
      const auto found = indexes.find(server->info().id);
      const auto index = found == indexes.end() ? std::nullopt : std::optional(found->second);
      page->add(server->info(), "#" + anchor,
                page::writeSection(*server, *findings, index, anchor, page->sections()));
    });
  });
  page->write(fileOutput ? *fileOutput : output);
  if (fileOutput) fileOutput->flush();
  signals.ignore();
  if (file) file->finish();
  output.flush();
}

}  // namespace host
