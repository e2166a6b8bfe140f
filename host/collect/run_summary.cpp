#include "host/collect/run_summary.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <utility>

#include <fmt/core.h>

#include "host/collect/run_document.h"
#include "host/console/listing.h"
#include "host/console/terminal_text.h"
#include "host/console/text.h"
#include "inventory/names.h"
#include "os/terminal.h"

namespace host {
namespace {

Value countOf(const std::optional<std::int64_t>& count) {
  return count ? Value(std::to_string(*count)) : Value();
}

}  // namespace

RunSummary::RunSummary(const CollectOptions& options, const Sources& sources, const RunResults& results,
                       const LastCollected& lastCollected, std::int64_t errors)
    : options_(options),
      sources_(sources),
      servers_(sources.servers),
      results_(results),
      lastCollected_(lastCollected),
      errors_(errors),
      groups_(results.groups(servers_)),
      published_(results.count(PublishState::kPublished)) {}

void RunSummary::print(Output& output) const {
  if (published_ > 0 && options_.dryRun) printDryRun(output);
  printRemarks(output);
  if (published_ > 0) printRows(output);
  const std::size_t width =
      os::isTerminal(os::kStandardOutput) ? os::terminalColumns(os::kStandardOutput) : 100;
  groups_.print(output, width);
  printServersWithProblems(output, width);
  if (groups_.problems() == 0 && errors_ == 0) output.write("no problems\n");
  printHint(output);
}

std::string RunSummary::problems() const {
  if (groups_.problems() == 0) return {};
  if (options_.dryRun) return groups_.counted();
  const std::string logs = fmt::format("{}; see the logs in {}", groups_.counted(), logDirectory());
  return published_ == 0 ? logs : fmt::format("{}; list them: {}", logs, problemsCommand(options_));
}

int RunSummary::status() const {
  if (published_ == 0) return 2;
  const bool isUnpublished = published_ < servers_.size() || !sources_.problems.empty();
  return isUnpublished || (!options_.failOnUnpublished && groups_.problems() + errors_ > 0) ? 1 : 0;
}

std::string RunSummary::json(bool isInterrupted) const {
  RunDocument document("collect");
  for (std::size_t at = 0; at < servers_.size(); ++at)
    document.add(servers_[at], results_.servers[at], options_.dryRun);
  document.addSources(sources_.notes, sources_.problems);
  for (const std::string& error : results_.errors) document.addError(error);
  return document.text(isInterrupted ? std::nullopt : std::optional(status()),
                       inventory::shownName(options_.database), options_.dryRun);
}

std::string RunSummary::logDirectory() const {
  return options_.logDirectory.string();
}

void RunSummary::printHint(Output& output) const {
  if (options_.dryRun) return output.write("nothing was written\n");
  if (groups_.problems() + groups_.notes() == 0) return;
  if (published_ > 0)
    output.write(fmt::format("list them: {}\n", escapeForTerminal(problemsCommand(options_))));
  output.write(fmt::format("see the logs in {}\n", escapeForTerminal(logDirectory())));
}

void RunSummary::printDryRun(Output& output) const {
  const auto forEachRow = [this](const std::function<void(const Row&)>& each) {
    for (std::size_t at = 0; at < servers_.size(); ++at) {
      const ServerResult& result = results_.servers[at];
      if (result.state != PublishState::kPublished) continue;
      const auto last = lastCollected_.find(inventory::folded(servers_[at].name));
      each({servers_[at].name, countOf(result.sites), countOf(result.pools),
            std::to_string(inventory::sumOf(result.rows)), std::to_string(result.groups.problems()),
            last == lastCollected_.end() ? "never" : last->second, servers_[at].source.shown()});
    }
  };
  const Listing listing{{{"Server"},
                         {"FTP sites", true},
                         {"Pools", true},
                         {"Rows", true},
                         {"Problems", true, false, true},
                         {"Collected (UTC)"},
                         {"File"}},
                        forEachRow};
  host::print(listing, {}, output);
  output.write("\n");
}

void RunSummary::printRemarks(Output& output) const {
  std::map<std::string, std::vector<std::string>> remarks;  // with the servers
  std::vector<std::string> replaced;
  std::int64_t replacedRows = 0;
  for (std::size_t at = 0; at < servers_.size(); ++at) {
    const ServerResult& result = results_.servers[at];
    for (const std::string& remark : result.remarks) remarks[remark].push_back(servers_[at].name);
    if (result.replacedRows > 0) replaced.push_back(servers_[at].name);
    replacedRows += result.replacedRows;
  }
  for (const auto& [remark, names] : remarks) {
    output.write(escapeForTerminal(fmt::format("{} {} {}", joinNames(names, kMostNames),
                                               names.size() == 1 ? "has" : "have", remark)) +
                 "\n");
  }
  if (replacedRows == 0) return;
  const std::string whose = replaced.size() == 1
                                ? escapeForTerminal(replaced.front()) + " from an earlier run"
                                : fmt::format("{} servers from earlier runs", replaced.size());
  output.write(fmt::format("replaced {} of {}\n", pluralize(replacedRows, "row", "rows"), whose));
}

// The servers with problems, in descending order of their number.
void RunSummary::printServersWithProblems(Output& output, std::size_t width) const {
  if (servers_.size() == 1 || groups_.problems() == 0) return;
  std::vector<std::pair<std::int64_t, std::string>> counts;
  for (const auto& [server, count] : groups_.problemsByServer()) counts.emplace_back(-count, server);
  std::ranges::sort(counts);
  std::vector<std::string> names;
  for (const auto& [count, server] : counts) names.push_back(fmt::format("{} ({})", server, -count));
  const std::string text =
      fmt::format("on {}: {}", pluralize(static_cast<std::int64_t>(names.size()), "server", "servers"),
                  joinNames(names, kMostNames));
  for (const std::string& line : wrapToWidth(escapeForTerminal(text), width - 2))
    output.write("  " + line + "\n");
}

void RunSummary::printRows(Output& output) const {
  const inventory::RowCounts rows = results_.rows();
  std::size_t nameWidth = 0;
  for (const inventory::Table& table : inventory::tables())
    nameWidth = std::max(nameWidth, table.name.size());
  const std::size_t countWidth = std::to_string(*std::ranges::max_element(rows)).size();
  output.write(fmt::format("{} {}{} into {}: {}\n", options_.dryRun ? "would collect" : "collected",
                           pluralize(static_cast<std::int64_t>(published_), "server", "servers"),
                           published_ < servers_.size() ? fmt::format(" of {}", servers_.size()) : "",
                           escapeForTerminal(inventory::shownName(options_.database)),
                           pluralize(inventory::sumOf(rows), "row", "rows")));
  for (std::size_t at = 0; at < rows.size(); ++at) {
    if (rows[at] == 0 || options_.dryRun) continue;
    output.write(
        fmt::format("  {:<{}}  {:>{}}\n", inventory::tables()[at].name, nameWidth, rows[at], countWidth));
  }
}

std::string problemsCommand(const CollectOptions& options) {
  std::string database = inventory::shownName(options.database);
  if (!inventory::isOnServer(options.database)) {
    // Shorter, if it is below the current directory.
    const std::filesystem::path relative =
        std::filesystem::path(database).lexically_proximate(std::filesystem::current_path());
    const std::string text = relative.string();
    if (!text.starts_with("..") && !text.starts_with('-') && !inventory::isOnServer(text)) database = text;
  }
  std::string command = "iisinventory show Problems -d " + shellQuoted(database);
  if (options.access.schema != inventory::Access().schema)
    command += " --schema " + shellQuoted(options.access.schema);
  return command;
}

}  // namespace host
