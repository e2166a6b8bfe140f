#include "host/collect/run_summary.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "host/console/terminal_text.h"
#include "host/console/text.h"
#include "os/terminal.h"

namespace host {

RunSummary::RunSummary(const CollectOptions& options, std::span<const Server> servers,
                       const RunResults& results)
    : options_(options),
      servers_(servers),
      results_(results),
      published_(results.namesOf(PublishState::kPublished, servers).size()) {}

void RunSummary::print(Output& output) const {
  if (published_ > 0 && options_.dryRun) printDryRun(output);
  printRemarks(output);
  if (published_ > 0) printRows(output);
  const std::size_t width =
      os::isTerminal(os::kStandardOutput) ? os::terminalColumns(os::kStandardOutput) : 100;
  results_.groups.print(output, width);
  printServersWithProblems(output, width);
  if (results_.groups.problems() == 0 && results_.errorCount == 0) output.write("no problems\n");
  if (options_.dryRun) {
    output.write("nothing was written\n");
  } else if (results_.groups.problems() + results_.groups.notes() > 0) {
    output.write("list them: " + escapeForTerminal(problemsHint()) + "\n");
  }
}

std::string RunSummary::problems() const {
  if (results_.groups.problems() == 0) return {};
  return pluralize(results_.groups.problems(), "problem", "problems") +
         (options_.dryRun ? "" : "; list them: " + problemsHint());
}

int RunSummary::status() const {
  if (published_ == 0) return 2;
  return results_.groups.problems() + results_.errorCount > 0 || published_ < servers_.size() ? 1 : 0;
}

std::string RunSummary::problemsHint() const {
  return (published_ > 0 ? "'iisinventory show Problems', or see the logs in " : "see the logs in ") +
         options_.logDirectory.string();
}

void RunSummary::printDryRun(Output& output) const {
  const Listing listing{{{"Server"},
                         {"FTP sites", true},
                         {"Pools", true},
                         {"Rows", true},
                         {"Problems", true, false, true},
                         {"Collected (UTC)"},
                         {"File"}},
                        [this](const std::function<void(const Row&)>& each) {
                          for (const auto& [place, row] : results_.dryRunRows) each(row);
                        }};
  host::print(listing, {}, output);
  output.write("\n");
}

void RunSummary::printRemarks(Output& output) const {
  for (const auto& [remark, servers] : results_.remarks) {
    output.write(escapeForTerminal(joinNames(servers, kMostNames) +
                                   (servers.size() == 1 ? " has " : " have ") + remark) +
                 "\n");
  }
  if (results_.replacedRows == 0) return;
  const std::string whose = results_.replaced.size() == 1
                                ? escapeForTerminal(results_.replaced.front()) + " from an earlier run"
                                : std::to_string(results_.replaced.size()) + " servers from earlier runs";
  output.write("replaced " + pluralize(results_.replacedRows, "row", "rows") + " of " + whose + "\n");
}

// The servers with problems, in descending order of their number.
void RunSummary::printServersWithProblems(Output& output, std::size_t width) const {
  if (servers_.size() == 1 || results_.groups.problems() == 0) return;
  std::vector<std::pair<std::int64_t, std::string>> counts;
  for (const auto& [server, count] : results_.groups.problemsByServer()) counts.emplace_back(-count, server);
  std::sort(counts.begin(), counts.end());
  std::vector<std::string> names;
  for (const auto& [count, server] : counts) names.push_back(server + " (" + std::to_string(-count) + ")");
  const std::string text = "on " + pluralize(static_cast<std::int64_t>(names.size()), "server", "servers") +
                           ": " + joinNames(names, kMostNames);
  for (const std::string& line : wrapToWidth(escapeForTerminal(text), width - 2))
    output.write("  " + line + "\n");
}

void RunSummary::printRows(Output& output) const {
  const std::int64_t total = inventory::sumOf(results_.rows);
  std::size_t nameWidth = 0;
  std::size_t countWidth = 0;
  for (std::size_t at = 0; at < results_.rows.size(); ++at) {
    nameWidth = std::max(nameWidth, inventory::tables()[at].name.size());
    countWidth = std::max(countWidth, std::to_string(results_.rows[at]).size());
  }
  output.write((options_.dryRun ? "would collect " : "collected ") +
               pluralize(static_cast<std::int64_t>(published_), "server", "servers") +
               (published_ < servers_.size() ? " of " + std::to_string(servers_.size()) : "") + " into " +
               escapeForTerminal(inventory::shownName(options_.database)) + ": " +
               pluralize(total, "row", "rows") + "\n");
  for (std::size_t at = 0; at < results_.rows.size(); ++at) {
    if (results_.rows[at] == 0 || options_.dryRun) continue;
    const std::string name(inventory::tables()[at].name);
    const std::string count = std::to_string(results_.rows[at]);
    output.write("  " + name + std::string(nameWidth - name.size() + 2 + countWidth - count.size(), ' ') +
                 count + "\n");
  }
}

}  // namespace host
