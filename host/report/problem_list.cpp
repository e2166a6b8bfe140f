#include "host/report/problem_list.h"

#include <fmt/core.h>

#include <algorithm>

#include "host/console/terminal_text.h"

namespace host::page {
namespace {

constexpr std::size_t kMaxRows = 2000;

ProblemRow rowOf(const inventory::Problem& problem) {
  const std::string item =
      problem.item.empty() ? "" : fmt::format("{} {}", wordFor(problem.itemKind), problem.item);
  return {escapeForTerminal(problem.node.empty() ? item : problem.node),
          escapeForTerminal(problem.table),
          escapeForTerminal(problem.property),
          problem.number ? fmt::format("0x{:X}", static_cast<unsigned>(*problem.number)) : "",
          escapeForTerminal(problem.message),
          problem.isNote};
}

}  // namespace

ProblemList problemList(const ServerData& server) {
  ProblemList list;
  const auto problems = server.problems();
  for (const inventory::Problem& problem : problems.first(std::min(problems.size(), kMaxRows)))
    list.rows.push_back(rowOf(problem));
  if (problems.size() > kMaxRows) {
    list.more =
        fmt::format("The first {} of {}; list all: iisinventory show Problems.", kMaxRows, problems.size());
  }
  return list;
}

}  // namespace host::page
