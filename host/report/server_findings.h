// The findings on one server, by rule.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/query/findings.h"
#include "host/report/items.h"

namespace host::page {

struct Reference {
  std::string name;
  std::string address;  // empty unless it is a link

  void visit(auto& add) const { add("name", name)("address", address); }
};

struct FindingRow {
  std::string subject;
  std::vector<TableCell> cells;
  std::string ignored;  // why; empty unless it is ignored

  void visit(auto& add) const { add("subject", subject)("cells", cells)("ignored", ignored); }
};

// A rule with findings.
struct RuleFindings {
  std::string title, why, fix, severity;
  std::int64_t count = 0;  // without ignored ones
  std::vector<std::string> columns;
  std::vector<Reference> references;
  std::vector<FindingRow> rows;

  void visit(auto& add) const {
    add("title", title)("why", why)("fix", fix)("severity", severity)("count", count)("columns", columns)(
        "references", references)("rows", rows);
  }
};

// A rule that could not be evaluated for an object.
struct Unevaluated {
  std::string title;
  std::string reason;

  void visit(auto& add) const { add("title", title)("reason", reason); }
};

struct UnevaluatedRules {
  std::vector<Unevaluated> entries;

  void visit(auto& add) const { add("unevaluated", entries)("count", entries.size()); }
};

struct ServerFindings {
  std::vector<RuleFindings> rules;
  UnevaluatedRules unevaluated;
  std::vector<Counts> counts;                     // by rule
  std::unordered_map<std::int64_t, Marks> marks;  // by object
  std::string summary;                            // how many rules passed, failed and so on
};

// `index`: of the server in the findings; nothing for a server that was collected again after the evaluation.
ServerFindings serverFindings(Findings& findings, std::optional<std::size_t> index);

}  // namespace host::page
