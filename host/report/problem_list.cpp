#include "host/report/problem_list.h"

#include <fmt/core.h>

#include "host/console/terminal_text.h"

namespace host::page {
namespace {

constexpr std::size_t kMaxRows = 2000;

ProblemRow rowOf(const inventory::Problem& problem) {
  const std::string item =
      problem.item.empty() ? "" : fmt::format("{} {}", wordFor(problem.itemKind), problem.item);
  return {escapeForTerminal(problem.node.empty() ? item : problem.node), escapeForTerminal(problem.table),
          escapeForTerminal(problem.property),
          problem.number ? fmt::format("0x{:X}", static_cast<unsigned>(*problem.number)) : "",
          escapeForTerminal(problem.message)};
}

}  // namespace

ProblemList problemList(const ServerData& server, bool notes) {
  ProblemList list{"Problems", "Data that could not be read. Affected values are marked above as not known."};
  if (notes) list = {"Notes", "Conditions that cannot be corrected. No value is missing because of them."};
  for (const inventory::Problem& problem : server.problems()) {
    if (problem.isNote == notes && ++list.count <= kMaxRows) list.rows.push_back(rowOf(problem));
  }
  if (list.count > kMaxRows)
    list.more =
        fmt::format("The first {} of {}; list all: iisinventory show Problems.", kMaxRows, list.count);
  return list;
}

}  // namespace host::page
