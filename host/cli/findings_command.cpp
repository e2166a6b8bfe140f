#include <CLI/CLI.hpp>
#include <algorithm>

#include "host/cli/command_options.h"
#include "host/cli/rule_options.h"
#include "host/console/suggestion.h"
#include "host/console/text.h"
#include "host/query/findings_output.h"
#include "host/query/retry.h"
#include "host/query/servers.h"
#include "inventory/names.h"
#include "os/new_file.h"
#include "os/termination_signals.h"

namespace host {
namespace {

constexpr const char* kFooter =
    "Evaluates the rules of a profile (default, stig-iis6, migration or a file) and\n"
    "of --rules; 'iisinventory rules' lists them. FILE's extension is its format:\n"
    ".txt, .csv, .json, .jsonl or .sarif. Ignored findings are those that the file\n"
    "of --ignore-file lists (default: DATABASE.ignore, if it exists).\n"
    "\n"
    "Exit status: 0; with --fail-on, 1 if a finding that is not ignored matches, or\n"
    "a matching rule could not be evaluated (with --strict: or was not collected);\n"
    "2 on errors. 'any' means every rule, a severity also the higher ones.\n"
    "\n"
    "Examples:\n"
    "  iisinventory findings -d inventory.db\n"
    "  iisinventory findings -d inventory.db --server WEB01 --format csv\n"
    "  iisinventory findings -d inventory.db --output out.sarif --fail-on high\n"
    "  iisinventory findings -d inventory.db --write-ignore inventory.db.ignore";

constexpr std::string_view kAny = "any";

struct Raw {
  DatabaseArguments database;
  RawRules rules;
  std::vector<std::string> servers, failOn, outputs;
  std::string at, format, writeIgnore;
  bool showSuppressed = false;
  bool strict = false;
};

struct Request {
  std::string database;
  inventory::Access access;
  std::vector<std::string> servers;
  std::string at;
  std::vector<Rule> rules;
  FindingsOptions options;
  bool isComplete = false;  // includes all servers and rules
};

// A condition of --fail-on: a severity, or a pattern of ids.
struct FailOn {
  std::string text;
  std::optional<Severity> severity;

  bool matches(const Rule& rule) const {
    if (severity) return rule.severity >= *severity;
    return inventory::sameName(text, kAny) || matchesPattern(rule.id, text);
  }
};

std::vector<FailOn> failOnOf(const Raw& raw, const std::vector<Rule>& rules) {
  std::vector<FailOn> all;
  std::vector<std::string> known{std::string(kAny)};
  known.insert(known.end(), kSeverities.begin(), kSeverities.end());
  for (const Rule& rule : rules) known.push_back(rule.id);
  const std::vector<std::string> texts = commaSeparated(raw.failOn);
  if (texts.empty() && !raw.failOn.empty()) throw UsageError("--fail-on: the value is empty");
  for (const std::string& text : texts) {
    const FailOn condition{text, severityOf(text)};
    const bool isKnown =
        condition.severity || inventory::sameName(text, kAny) ||
        std::ranges::any_of(rules, [&](const Rule& rule) { return condition.matches(rule); });
    if (!isKnown)
      throw UsageError("--fail-on: no rule '" + text + "' is evaluated (see --profile and --rule)" +
                       didYouMean(text, known));
    all.push_back(condition);
  }
  return all;
}

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
void writeIgnoreFile(Findings& findings, const std::string& former, Output& output) {
  output.write(
      !former.empty()
          ? former
          : "# Ignored findings: FINGERPRINT | UNTIL | REASON, or RULE: SERVER/KIND/KEY | UNTIL | REASON.\n");
  if (!former.empty() && former.back() != '\n') output.write("\n");
  findings.forEach([&](const Result& result) {
    if (!result.isFinding() || (result.ignored != nullptr && !former.empty())) return;
    const std::string fingerprint = result.data["fingerprint"], object = result.data["object_path"];
    output.write(result.ignored != nullptr
                     ? ignoreLine(fingerprint, result.ignored->until, result.ignored->reason)
                     : ignoreLine(fingerprint, "", findings.rules()[result.rule].id + ": " + object));
  });
}

// The output files, opened before the evaluation. A signal removes them.
class OutputFiles {
 public:
  OutputFiles(const Raw& raw, const std::string& database) {
    for (const std::string& name : raw.outputs) add("--output", name, database);
    if (!raw.writeIgnore.empty()) {
      const std::filesystem::path path = add("--write-ignore", raw.writeIgnore, database);
      std::error_code error;
      if (std::filesystem::exists(path, error)) formerIgnores_ = readTextFile(path);
    }
    if (files_.empty()) return;
    signals_.emplace();
    signals_->await([this](int signalNumber) {
      for (const auto& each : files_) each->file.remove();
      os::endBySignal(signalNumber);
    });
  }

  void write(const Raw& raw, Findings& findings) {
    for (std::size_t at = 0; at < raw.outputs.size(); ++at) {
      const std::string extension = std::filesystem::path(raw.outputs[at]).extension().string();
      writeFindings(findings, findingsFormatOf(extension), raw.showSuppressed, files_[at]->output, false);
    }
    if (!raw.writeIgnore.empty()) {
      if (!findings.failures().empty())
        throw std::runtime_error("cannot write '" + raw.writeIgnore + "': a rule failed");
      writeIgnoreFile(findings, formerIgnores_, files_.back()->output);
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

  std::filesystem::path add(const char* option, const std::string& name, const std::string& database) {
    const std::filesystem::path path = wholePath(option, name);
    std::error_code error;
    if (!inventory::isOnServer(database) && std::filesystem::equivalent(path, database, error))
      throw UsageError(std::string(option) + " '" + name + "': it is the database");
    files_.push_back(std::make_unique<OutputFile>(path));
    return path;
  }

  std::vector<std::unique_ptr<OutputFile>> files_;
  std::string formerIgnores_;
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

int run(const Raw& raw, const Request& request, const std::vector<FailOn>& failOn, Output& output) {
  OutputFiles files(raw, request.database);
  auto evaluated = retryOnDisconnect([&] {
    const auto inventory = inventory::openForReading(request.database, request.access);
    inventory::Reader reader = inventory->read(reportSuccessor);
    return evaluateRules(reader, chosenServers(reader, request.servers, request.at), request.rules,
                         request.options);
  });
  Findings& findings = *evaluated;
  for (const std::string& failure : findings.failures()) printError(failure);
  reportEntries(findings, request.isComplete);
  files.write(raw, findings);
  const int status = findings.failures().empty() ? statusOf(findings, failOn, raw.strict) : 2;
  return printed(output, status, [&] {
    if (raw.outputs.empty() || !raw.format.empty())
      writeFindings(findings, raw.format.empty() ? FindingsFormat::kTable : findingsFormatOf(raw.format),
                    raw.showSuppressed, output, true);
  });
}

}  // namespace

void addFindings(CLI::App& program, CommandAction& action) {
  const auto raw = std::make_shared<Raw>();
  CLI::App& command = *program.add_subcommand("findings", "Evaluate rules about servers");
  addDatabase(command, raw->database);
  addList(command, "--server", raw->servers, "NAME", "Only this server (repeatable)");
  addAt(command, raw->at);
  command.add_option("-f,--format", raw->format, "table, csv, json, jsonl or sarif (default: table)")
      ->type_name("FORMAT");
  addList(command, "-o,--output", raw->outputs, "FILE", "File to write (repeatable)");
  addRuleOptions(command, raw->rules);
  addFindingsOptions(command, raw->rules);
  command.add_option("--write-ignore", raw->writeIgnore, "Add the findings to an ignore file")
      ->type_name("FILE");
  command.add_flag("--show-suppressed", raw->showSuppressed, "List ignored findings too");
  addList(command, "--fail-on", raw->failOn, "SEVERITY|RULE", "Status 1 if a finding matches (repeatable)");
  command.add_flag("--strict", raw->strict, "Let --fail-on count what was not collected");
  command.footer(kFooter);
  command.callback([raw, &action] {
    refuseEmpty("--server", raw->servers);
    refuseEmpty("--output", raw->outputs);
    refuseEmpty("--fail-on", raw->failOn);
    if (!raw->format.empty()) findingsFormatOf(raw->format);
    for (const std::string& name : raw->outputs)
      findingsFormatOf(std::filesystem::path(name).extension().string());
    Request request{
        raw->database.name(), raw->database.access(), raw->servers, timeOf("--at", raw->at), {}, {}, false};
    const RuleOptions options = ruleOptionsOf(raw->rules);
    request.rules = chooseRules(options);
    request.options = findingsOptionsOf(raw->rules, request.database);
    request.isComplete = raw->servers.empty() && raw->at.empty() && isEverything(options);
    action = [raw, request, failOn = failOnOf(*raw, request.rules)](Output& output) {
      return run(*raw, request, failOn, output);
    };
  });
}

}  // namespace host
