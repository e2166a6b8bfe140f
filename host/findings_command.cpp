#include <CLI/CLI.hpp>
#include <algorithm>

#include "host/commands.h"
#include "host/nearest.h"
#include "host/new_file.h"
#include "host/problem_groups.h"
#include "host/query/findings_output.h"
#include "host/query/rule_options.h"
#include "host/retry.h"
#include "host/servers.h"
#include "inventory/names.h"

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
  RawDatabase database;
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
  bool isComplete = false;  // neither servers nor rules are left out
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
  for (const std::string& text : commaSeparated(raw.failOn)) {
    const FailOn condition{text, severityOf(text)};
    const bool isKnown =
        condition.severity || inventory::sameName(text, kAny) ||
        std::ranges::any_of(rules, [&](const Rule& rule) { return condition.matches(rule); });
    if (!isKnown)
      throw UsageError("--fail-on: no rule '" + text + "' is evaluated" + didYouMean(text, known));
    all.push_back(condition);
  }
  return all;
}

void reportEntries(const Findings& findings, bool isComplete) {
  for (const IgnoreFile::Entry& entry : findings.ignoreFile().entries()) {
    const std::string place = "'" + findings.ignoreFile().name() + "' line " + std::to_string(entry.line);
    if (entry.isExpired) {
      complain(place + " expired on " + entry.until + ": " + entry.reason);
    } else if (!entry.hasMatched && isComplete) {
      complain(place + " matches no finding: " + entry.reason);
    }
  }
}

void writeIgnoreFile(Findings& findings, const std::filesystem::path& path) {
  NewFile file(path);
  file.output().write(
      "# Ignored findings: FINGERPRINT | UNTIL | REASON, or RULE: SERVER/KIND/KEY | UNTIL | REASON.\n");
  findings.forEach([&](const Result& result) {
    if (!result.isFinding()) return;
    const std::string fingerprint = result.data["fingerprint"], object = result.data["object_path"];
    file.output().write(result.ignored != nullptr
                            ? ignoreLine(fingerprint, result.ignored->until, result.ignored->reason)
                            : ignoreLine(fingerprint, "", findings.rules()[result.rule].id + ": " + object));
  });
  file.finish();
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
      complain("could not evaluate " + rule.id + " for " + counted(counts.unknown, "object", "objects"));
    }
    if (strict && counts.notCollected > 0) {
      status = 1;
      complain("not collected for " + rule.id + ": " +
               counted(counts.notCollected, "server or object", "servers and objects"));
    }
  }
  return status;
}

int run(const Raw& raw, const Request& request, const std::vector<FailOn>& failOn, Output& output) {
  auto evaluated = retryOnDisconnect([&] {
    const auto inventory = inventory::openForReading(request.database, request.access);
    inventory::Reader reader = inventory->read(reportSuccessor);
    return evaluateRules(reader, chosenServers(reader, request.servers, request.at), request.rules,
                         request.options);
  });
  Findings& findings = *evaluated;
  for (const std::string& failure : findings.failures()) complain(failure);
  reportEntries(findings, request.isComplete);
  for (const std::string& name : raw.outputs) {
    NewFile file(wholePath("--output", name));
    writeFindings(findings, findingsFormatOf(std::filesystem::path(name).extension().string()),
                  raw.showSuppressed, file.output());
    file.finish();
  }
  if (!raw.writeIgnore.empty()) writeIgnoreFile(findings, wholePath("--write-ignore", raw.writeIgnore));
  const int status = findings.failures().empty() ? statusOf(findings, failOn, raw.strict) : 2;
  return printed(output, status, [&] {
    if (raw.outputs.empty() || !raw.format.empty())
      writeFindings(findings, raw.format.empty() ? FindingsFormat::kTable : findingsFormatOf(raw.format),
                    raw.showSuppressed, output);
  });
}

}  // namespace

void addFindings(CLI::App& program, Work& work) {
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
  command.add_option("--write-ignore", raw->writeIgnore, "Write an ignore file with all findings")
      ->type_name("FILE");
  command.add_flag("--show-suppressed", raw->showSuppressed, "List ignored findings too");
  addList(command, "--fail-on", raw->failOn, "SEVERITY|RULE", "Status 1 if a finding matches (repeatable)");
  command.add_flag("--strict", raw->strict, "Let --fail-on count what was not collected");
  command.footer(kFooter);
  command.callback([raw, &work] {
    refuseEmpty("--server", raw->servers);
    refuseEmpty("--output", raw->outputs);
    if (!raw->format.empty()) findingsFormatOf(raw->format);
    for (const std::string& name : raw->outputs)
      findingsFormatOf(std::filesystem::path(name).extension().string());
    Request request{
        raw->database.name(), raw->database.access(), raw->servers, timeOf("--at", raw->at), {}, {}, false};
    const RuleOptions options = ruleOptionsOf(raw->rules);
    request.rules = chooseRules(options);
    request.options = findingsOptionsOf(raw->rules, request.database);
    request.isComplete = raw->servers.empty() && raw->at.empty() && isEverything(options);
    work = [raw, request, failOn = failOnOf(*raw, request.rules)](Output& output) {
      return run(*raw, request, failOn, output);
    };
  });
}

}  // namespace host
