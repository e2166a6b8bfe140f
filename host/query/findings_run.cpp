#include "host/query/findings_run.h"

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "host/console/text.h"
#include "host/query/retry.h"
#include "host/query/rule_set.h"
#include "host/query/servers.h"
#include "inventory/names.h"
#include "os/new_file.h"
#include "os/termination_signals.h"

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

// Writes the previous content and the findings that it does not ignore, or a new file with all findings.
void writeIgnoreFile(Findings& findings, const std::string& previous, Output& output) {
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

// The output files, opened before the evaluation. A signal removes them.
class OutputFiles {
 public:
  explicit OutputFiles(const FindingsRequest& request) : request_(request) {
    for (const std::filesystem::path& path : request.outputs)
      files_.push_back(std::make_unique<OutputFile>(path));
    if (!request.writeIgnore.empty()) {
      files_.push_back(std::make_unique<OutputFile>(request.writeIgnore));
      std::error_code error;
      if (std::filesystem::exists(request.writeIgnore, error))
        previousIgnores_ = readTextFile(request.writeIgnore);
    }
    if (files_.empty()) return;
    signals_.emplace();
    signals_->await([this](int signalNumber) {
      for (const auto& each : files_) each->file.remove();
      os::endBySignal(signalNumber);
    });
  }

  void write(Findings& findings) {
    for (std::size_t at = 0; at < request_.outputs.size(); ++at) {
      const std::string extension = request_.outputs[at].extension().string();
      writeFindings(findings, findingsFormatOf(extension), request_.showSuppressed, files_[at]->output,
                    false);
    }
    if (!request_.writeIgnore.empty()) {
      if (!findings.failures().empty())
        throw std::runtime_error("cannot write '" + request_.writeIgnore.string() + "': a rule failed");
      writeIgnoreFile(findings, previousIgnores_, files_.back()->output);
    }
    if (signals_) signals_->ignore();
    for (const auto& each : files_) {
      each->output.flush();
      each->file.finish();
    }
  }

 private:
  struct OutputFile {
    explicit OutputFile(const std::filesystem::path& path)
        : file(path), output(file.descriptor(), "'" + path.string() + "'") {}
    os::NewFile file;
    Output output;
  };

  const FindingsRequest& request_;
  std::vector<std::unique_ptr<OutputFile>> files_;
  std::string previousIgnores_;
  std::optional<os::TerminationSignals> signals_;
};

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

int runFindings(const FindingsRequest& request, Output& output) {
  OutputFiles files(request);
  auto evaluated = retryOnDisconnect([&] {
    const auto inventory = inventory::openForReading(request.database, request.access);
    inventory::Reader reader = inventory->read(reportSuccessor);
    return evaluateRules(reader, chosenServers(reader, request.servers, request.at), request.rules,
                         request.options);
  });
  Findings& findings = *evaluated;
  for (const std::string& failure : findings.failures()) printError(failure);
  reportEntries(findings, request.isComplete);
  files.write(findings);
  const int status = findings.failures().empty() ? statusOf(findings, request.failOn, request.strict) : 2;
  return printed(output, status, [&] {
    if (request.printedFormat)
      writeFindings(findings, *request.printedFormat, request.showSuppressed, output, true);
  });
}

}  // namespace host
