#include "host/report/server_findings.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

#include "host/console/terminal_text.h"
#include "host/console/text.h"
#include "host/query/findings_output.h"

namespace host::page {
namespace {

RuleFindings ruleFindings(const Rule& rule) {
  RuleFindings result{rule.title, rule.why, rule.fix, std::string(wordFor(rule.severity)), 0, {}, {}, {}};
  for (const Rule::EvidenceColumn& column : rule.columns) {
    std::ranges::replace(result.columns.emplace_back(column.name), '_', ' ');
  }
  for (const Rule::Reference& each : rule.references) {
    result.references.push_back({each.name + (each.id.empty() ? "" : " " + each.id),
                                 each.address.starts_with("http") ? each.address : ""});
  }
  return result;
}

FindingRow findingRow(const Result& result, const std::vector<std::string>& columns) {
  FindingRow row{escapeForTerminal(result.objectText()), {}, {}};
  for (const auto& value : result.data["evidence"])
    row.cells.push_back({columns.at(row.cells.size()), {escapeForTerminal(evidenceValue(value))}});
  if (result.ignored != nullptr) {
    const std::string& until = result.ignored->until;
    row.ignored = escapeForTerminal(result.ignored->reason + (until.empty() ? "" : " (until " + until + ")"));
  }
  return row;
}

Unevaluated unevaluated(const Rule& rule, const Result& result) {
  const char* const state = result.state == Result::State::kUnknown ? "not known" : "not collected";
  return {rule.title, escapeForTerminal(
                          result.objectId == 0 ? state : fmt::format("{}: {}", result.objectText(), state))};
}

// Each rule counts once.
std::string summaryOf(const std::vector<Counts>& rules) {
  std::int64_t passed = 0, failed = 0, suppressed = 0, unknown = 0, notCollected = 0;
  for (const Counts& counts : rules) {
    ++(counts.findings > 0       ? failed
       : counts.suppressed > 0   ? suppressed
       : counts.unknown > 0      ? unknown
       : counts.notCollected > 0 ? notCollected
                                 : passed);
  }
  std::string text =
      fmt::format("Of {} {} passed, {} failed",
                  pluralize(static_cast<std::int64_t>(rules.size()), "rule", "rules"), passed, failed);
  if (suppressed > 0) text += fmt::format(", {} suppressed", suppressed);
  if (unknown > 0) text += fmt::format(", {} could not be evaluated", unknown);
  if (notCollected > 0) text += fmt::format(", {} not collected", notCollected);
  return text + ".";
}

}  // namespace

ServerFindings serverFindings(Findings& findings, std::optional<std::size_t> index) {
  ServerFindings all;
  all.counts.resize(findings.rules().size());
  all.summary = "Not evaluated: collected again while the report was written.";
  if (!index) return all;
  std::optional<std::size_t> last;  // the rule of all.rules.back()
  findings.forEachOf(*index, [&](const Result& result) {
    const Rule& rule = findings.rules()[result.rule];
    all.counts[result.rule].add(result);
    if (!result.isFinding()) {
      all.unevaluated.entries.push_back(unevaluated(rule, result));
      return;
    }
    if (std::exchange(last, result.rule) != result.rule) all.rules.push_back(ruleFindings(rule));
    RuleFindings& current = all.rules.back();
    current.rows.push_back(findingRow(result, current.columns));
    if (result.ignored != nullptr) return;
    ++current.count;
    all.marks[result.objectId].push_back(&rule);
  });
  all.summary = summaryOf(all.counts);
  return all;
}

}  // namespace host::page
