#include "host/query/findings_run.h"

#include <fmt/core.h>

#include <algorithm>
#include <stdexcept>

#include "host/console/output_files.h"
#include "host/console/text.h"
#include "host/query/pattern.h"
#include "host/query/retry.h"
#include "host/query/rule_set.h"
#include "host/query/servers.h"
#include "inventory/names.h"

namespace host {

bool FailOn::matches(const Rule& rule) const {
  if (severity) return rule.severity >= *severity;
  return inventory::sameName(text, kAny) || matchesPattern(rule.id, text);
}

namespace {

// Reports entries that have expired and, if all servers and rules were evaluated, those that match nothing. A
// fingerprint may refer to any rule.
void reportEntries(const Findings& findings, bool isComplete) {
  const auto isEvaluated = [&](const IgnoreFile::Entry& entry) {
    return std::ranges::any_of(findings.rules(), [&](const Rule& rule) {
      return !entry.fingerprint.empty() || matchesPattern(rule.id, entry.rule);
    });
  };
  for (const IgnoreFile::Entry& entry : findings.ignoreFile().entries()) {
    const std::string place = fmt::format("'{}' line {}", findings.ignoreFile().name(), entry.line);
    if (entry.isExpired) {
      printError(fmt::format("{} expired on {}: {}", place, entry.until, entry.reason));
    } else if (!entry.hasMatched && isComplete && findings.failures().empty() && isEvaluated(entry)) {
      printError(fmt::format("{} matches no finding of these rules: {}", place, entry.reason));
    }
  }
}

// Writes the file's previous content and the findings that it does not ignore, or a new file with all.
void writeIgnoreFile(Findings& findings, const std::filesystem::path& path, Output& output) {
  if (!findings.failures().empty())
    throw std::runtime_error("cannot write '" + path.string() + "': a rule failed");
  std::error_code error;
  const std::string previous = std::filesystem::exists(path, error) ? readTextFile(path) : "";
  output.write(
      !previous.empty()
          ? previous
          : "# Ignored findings: FINGERPRINT | UNTIL | REASON, or RULE: SERVER/KIND/KEY | UNTIL | REASON.\n");
  if (!previous.empty() && previous.back() != '\n') output.write("\n");
  findings.forEach([&](const Result& result) {
    if (!result.isFinding() || (result.ignored != nullptr && !previous.empty())) return;
    const std::string fingerprint = result.data["fingerprint"], object = result.data["object_path"];
    output.write(result.ignored != nullptr
                     ? ignoreLine(fingerprint, result.ignored->until, result.ignored->reason)
                     : ignoreLine(fingerprint, "", findings.rules()[result.rule].id + ": " + object));
  });
}

int statusOf(const Findings& findings, const FindingsRequest& request) {
  int status = 0;
  for (std::size_t at = 0; at < findings.rules().size(); ++at) {
    const Rule& rule = findings.rules()[at];
    const Counts& counts = findings.counts()[at];
    if (std::ranges::none_of(request.failOn, [&](const FailOn& each) { return each.matches(rule); }))
      continue;
    const std::int64_t notCollected = request.strict ? counts.notCollected : 0;
    if (counts.findings + counts.unknown + notCollected > 0) status = 1;
    if (counts.unknown > 0)
      printError(fmt::format("could not evaluate {} for {}", rule.id,
                             pluralize(counts.unknown, "object", "objects")));
    if (notCollected > 0)
      printError(fmt::format("not collected for {}: {}", rule.id,
                             pluralize(notCollected, "server or object", "servers and objects")));
  }
  return status;
}

}  // namespace

bool FindingsRequest::writes(FindingsFormat format) const {
  return printedFormat == format || std::ranges::any_of(outputs, [&](const std::filesystem::path& path) {
           return findingsFormatOf(path.extension().string()) == format;
         });
}

int runFindings(const FindingsRequest& request, Output& output) {
  std::vector<std::filesystem::path> paths = request.outputs;
  if (!request.writeIgnore.empty()) paths.push_back(request.writeIgnore);
  OutputFiles files(paths);
  auto evaluated = retryOnDisconnect([&] {
    const auto inventory = inventory::openForReading(request.database, request.access);
    inventory::Reader reader = inventory->read(reportSuccessor);
    return evaluateRules(reader, chosenServers(reader, request.servers, request.at), request.rules,
                         request.options);
  });
  Findings& findings = *evaluated;
  for (const std::string& failure : findings.failures()) printError(failure);
  reportEntries(findings, request.isComplete);
  for (std::size_t at = 0; at < request.outputs.size(); ++at) {
    writeFindings(findings, findingsFormatOf(request.outputs[at].extension().string()),
                  request.showSuppressed, request.forExcel, files[at]);
  }
  if (!request.writeIgnore.empty()) writeIgnoreFile(findings, request.writeIgnore, files[paths.size() - 1]);
  files.finish();
  const int status = findings.failures().empty() ? statusOf(findings, request) : 2;
  return printed(output, status, [&] {
    if (request.printedFormat)
      writeFindings(findings, *request.printedFormat, request.showSuppressed, request.forExcel, output);
  });
}

}  // namespace host
