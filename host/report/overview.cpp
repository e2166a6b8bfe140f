#include "host/report/overview.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

#include "host/console/terminal_text.h"
#include "host/console/text.h"

namespace host::page {
namespace {

constexpr std::int64_t kMaxLinks = 40;  // per rule
constexpr std::int64_t kBarLength = 160;

}  // namespace

Overview::Overview(const std::vector<Rule>& rules, std::string profile)
    : rules_(rules), profile_(std::move(profile)), summaries_(rules.size()) {}

std::int64_t Overview::add(const std::string& server, const std::string& address,
                           const std::vector<Counts>& counts) {
  ++servers_;
  std::int64_t findings = 0;
  for (std::size_t at = 0; at < summaries_.size(); ++at) {
    RuleSummary& rule = summaries_[at];
    findings += counts[at].findings;
    rule.findings += counts[at].findings;
    if (counts[at].unknown + counts[at].notCollected > 0) ++rule.unevaluated;
    if (counts[at].findings > 0 && ++rule.servers <= kMaxLinks)
      rule.links.push_back({address, escapeForTerminal(server), counts[at].findings});
  }
  return findings;
}

OverviewView Overview::view() const {
  OverviewView view;
  std::int64_t most = 1, all = 0;
  bool isComplete = true;
  for (const RuleSummary& rule : summaries_) {
    most = std::max(most, rule.findings);
    all += rule.findings;
    isComplete = isComplete && rule.unevaluated == 0;
  }
  for (std::size_t at = 0; at < rules_.size(); ++at) {
    view.rules.push_back(row(rules_[at], summaries_[at], most));
    if (at == 0 || rules_[at].severity != rules_[at - 1].severity)
      view.rules.back().group = wordFor(rules_[at].severity);
  }
  view.selection = profile_.empty() ? "selected by options" : "profile " + escapeForTerminal(profile_);
  view.summary = all > 0      ? "Matches per rule; evidence is under each server."
                 : isComplete ? "No findings."
                              : "No findings in what could be evaluated.";
  view.barTitle = servers_ == 1 ? "Server" : "Servers";
  return view;
}

OverviewRow Overview::row(const Rule& rule, const RuleSummary& summary, std::int64_t most) {
  OverviewRow row;
  row.title = rule.title;
  row.why = rule.why;
  row.count = summary.findings;
  if (summary.findings > 0) {
    row.bar = std::max<std::int64_t>(2, kBarLength * summary.findings / most);
    row.barLabel = pluralize(summary.findings, "finding", "findings");
  }
  row.servers = summary.links;
  if (summary.servers > kMaxLinks) row.more = fmt::format("and {} more", summary.servers - kMaxLinks);
  if (summary.unevaluated > 0) row.unevaluated = pluralize(summary.unevaluated, "server", "servers");
  return row;
}

}  // namespace host::page
