#include "host/report/server_section.h"

#include <fmt/core.h>

#include <utility>

#include "host/console/terminal_text.h"
#include "host/report/problem_list.h"
#include "host/report/relations.h"
#include "host/report/render.h"
#include "host/report/report_parts.h"
#include "host/report/server_findings.h"

namespace host::page {
namespace {

void writeFindings(const ServerFindings& findings, const SectionHead& head, StoredPart& output) {
  output.write(render(head));
  for (const RuleFindings& rule : findings.rules) output.write(render(rule));
  if (!findings.unevaluated.entries.empty()) output.write(render(findings.unevaluated));
}

void writeDrawing(const Drawing& drawing, const char* caption, StoredPart& output) {
  if (!drawing.empty()) output.write(render(drawing.view(caption)));
}

TableSection tableSection(const ServerData& server, const char* title, std::size_t table, ObjectKind kind) {
  const std::size_t count = server.rowCount(table);
  return {title, count, count == 0 ? missingReason(server, table, kind, 0) : "", {}};
}

}  // namespace

ServerSummary writeSection(const ServerData& server, Findings& allFindings,
                           std::optional<std::size_t> findingsIndex, const std::string& anchor,
                           StoredPart& output) {
  ServerFindings findings = serverFindings(allFindings, findingsIndex);
  writeFindings(findings, {anchor, escapeForTerminal(server.server()), findings.summary}, output);
  writeDrawing(drawPools(server), "Application pools and their applications (network shares are coloured)",
               output);
  writeDrawing(drawContent(server),
               "FTP sites and the drives and shares of their directories (red lines: writable)", output);

  const Items items(server);
  output.write(render(tableSection(server, "FTP sites", kSites, ObjectKind::kSite)));
  std::size_t number = 0;
  forEachRow(server, kSites, [&](const DataRow& row) {
    output.write(
        render(items.site(row, fmt::format("{}-site-{}", anchor, ++number), findings.marks[row.objectId()])));
  });
  output.write(render(tableSection(server, "Application pools", kPools, ObjectKind::kPool)));
  number = 0;
  forEachRow(server, kPools, [&](const DataRow& row) {
    output.write(
        render(items.pool(row, fmt::format("{}-pool-{}", anchor, ++number), findings.marks[row.objectId()])));
  });
  TableSection extensions =
      tableSection(server, "Web service extensions", kExtensions, ObjectKind::kExtension);
  extensions.extensions = items.extensions();
  output.write(render(extensions));
  for (const bool notes : {false, true}) {
    if (const ProblemList list = problemList(server, notes); list.count > 0) output.write(render(list));
  }
  output.write(parts::section_end);
  return {std::move(findings.counts), static_cast<std::int64_t>(server.rowCount(kSites)),
          static_cast<std::int64_t>(server.rowCount(kPools))};
}

}  // namespace host::page
