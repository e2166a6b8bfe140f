#include "host/query/findings_run.h"

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

// Whether a rule that an entry refers to was evaluated. A fingerprint may refer to any rule.
bool isEvaluated(const Findings& findings, const IgnoreFile::Entry& entry) {
  const auto isMeant = [&](const Rule& rule) {
    return !entry.fingerprint.empty() || matchesPattern(rule.id, entry.rule);
  };
  return findings.failures().empty() && std::ranges::any_of(findings.rules(), isMeant);
}

void reportEntries(const Findings& findings, bool isComplete) {
  for (const IgnoreFile::Entry& entry : findings.ignoreFile().entries()) {
    const std::string place = "'" + findings.ignoreFile().name() + "' line " + std::to_string(entry.line);
    if (entry.isExpired) {
      printError(place + " expired on " + entry.until + ": " + entry.reason);
    } else if (!entry.hasMatched && isComplete && isEvaluated(findings, entry)) {
      printError(place + " matches no finding of these rules: " + entry.reason);
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

int statusOf(const Findings& findings, const std::vector<FailOn>& failOn, bool strict) {
  int status = 0;
  for (std::size_t at = 0; at < findings.rules().size(); ++at) {
    const Rule& rule = findings.rules()[at];
    const Counts& counts = findings.counts()[at];
    if (std::ranges::none_of(failOn, [&](const FailOn& each) { return each.matches(rule); })) continue;
    if (counts.findings > 0) status = 1;
    if (counts.unknown > 0) {
      status = 1;
      printError("could not evaluate " + rule.id + " for " + pluralize(counts.unknown, "object", "objects"));
    }
    if (strict && counts.notCollected > 0) {
      status = 1;
      printError("not collected for " + rule.id + ": " +
                 pluralize(counts.notCollected, "server or object", "servers and objects"));
    }
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
  const int status = findings.failures().empty() ? statusOf(findings, request.failOn, request.strict) : 2;
  return printed(output, status, [&] {
    if (request.printedFormat)
      writeFindings(findings, *request.printedFormat, request.showSuppressed, request.forExcel, output);
  });
}

}  // namespace host
