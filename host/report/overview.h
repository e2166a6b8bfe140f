// The findings of all servers of a page, by rule.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/query/findings.h"

namespace host::page {

// A server with findings.
struct ServerLink {
  std::string address;
  std::string name;
  std::int64_t count = 0;

  void visit(auto& add) const { add("address", address)("name", name)("count", count); }
};

struct OverviewRow {
  std::string group;  // the severity, if it begins here
  std::string title, why;
  std::int64_t count = 0;
  std::int64_t bar = 0;  // its length, of 160
  std::string barLabel;  // empty for no bar
  std::vector<ServerLink> servers;
  std::string more;         // servers that are not listed
  std::string unevaluated;  // servers for which the rule could not be evaluated

  void visit(auto& add) const {
    add("group", group)("title", title)("why", why)("count", count)("isNone", count == 0)("bar", bar)(
        "barLabel", barLabel)("servers", servers)("more", more)("unevaluated", unevaluated);
  }
};

struct OverviewView {
  std::string selection;
  std::string summary;
  std::string barTitle;
  std::vector<OverviewRow> rules;

  void visit(auto& add) const {
    add("selection", selection)("summary", summary)("barTitle", barTitle)("rules", rules);
  }
};

class Overview {
 public:
  // `profile`: of the rules; empty if they were named.
  Overview(const std::vector<Rule>& rules, std::string profile);

  // Adds a server's counts by rule. Returns the number of its findings.
  std::int64_t add(const std::string& server, const std::string& address, const std::vector<Counts>& counts);

  OverviewView view() const;

 private:
  struct RuleSummary {
    std::int64_t findings = 0;
    std::int64_t servers = 0;  // with findings
    std::int64_t unevaluated = 0;
    std::vector<ServerLink> links;
  };

  static OverviewRow row(const Rule& rule, const RuleSummary& summary, std::int64_t most);

  const std::vector<Rule>& rules_;
  const std::string profile_;
  std::vector<RuleSummary> summaries_;  // by rule
  std::size_t servers_ = 0;
};

}  // namespace host::page
