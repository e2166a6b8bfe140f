#include <algorithm>

#include "host/cli/command_options.h"
#include "host/cli/rule_options.h"
#include "host/console/suggestion.h"
#include "host/query/findings_run.h"
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

struct Raw {
  DatabaseArguments database;
  RawRules rules;
  std::vector<std::string> servers, failOn, outputs;
  std::string at, format, writeIgnore;
  bool showSuppressed = false;
  bool strict = false;
  bool forExcel = false;
};

std::vector<FailOn> failOnOf(const Raw& raw, const std::vector<Rule>& rules) {
  std::vector<FailOn> all;
  std::vector<std::string> known{std::string(FailOn::kAny)};
  known.insert(known.end(), kSeverities.begin(), kSeverities.end());
  for (const Rule& rule : rules) known.push_back(rule.id);
  const std::vector<std::string> texts = commaSeparated(raw.failOn);
  if (texts.empty() && !raw.failOn.empty()) throw UsageError("--fail-on: the value is empty");
  for (const std::string& text : texts) {
    const FailOn condition{text, severityOf(text)};
    const bool isKnown =
        condition.severity || inventory::sameName(text, FailOn::kAny) ||
        std::ranges::any_of(rules, [&](const Rule& rule) { return condition.matches(rule); });
    if (!isKnown)
      throw UsageError("--fail-on: no rule '" + text + "' is evaluated (see --profile and --rule)" +
                       didYouMean(text, known));
    all.push_back(condition);
  }
  return all;
}

}  // namespace

void addFindings(Program& program, CommandAction& action) {
  const auto raw = std::make_shared<Raw>();
  Command command = program.add("findings", "Evaluate rules about servers");
  addDatabaseOrArgument(command, raw->database);
  command.list("--server", raw->servers, "NAME", "Only this server, with * and ? (repeatable)");
  addAt(command, raw->at);
  command.option("-f,--format", raw->format, "FORMAT", "table, csv, json, jsonl or sarif (default: table)");
  command.list("-o,--output", raw->outputs, "FILE", "File to write (repeatable)");
  addExcel(command, raw->forExcel);
  addRuleOptions(command, raw->rules);
  addFindingsOptions(command, raw->rules);
  command.option("--write-ignore", raw->writeIgnore, "FILE", "Add the findings to an ignore file");
  command.flag("--show-suppressed", raw->showSuppressed, "List ignored findings too");
  command.list("--fail-on", raw->failOn, "SEVERITY|RULE", "Status 1 if a finding matches (repeatable)");
  command.flag("--strict", raw->strict, "Let --fail-on count what was not collected");
  command.footer(kFooter);
  command.onParsed([raw, &action] {
    refuseEmpty("--server", raw->servers);
    refuseEmpty("--output", raw->outputs);
    refuseEmpty("--fail-on", raw->failOn);
    FindingsRequest request;
    request.database = raw->database.name();
    request.access = raw->database.access();
    request.servers = raw->servers;
    request.at = timeOf("--at", raw->at);
    const RuleOptions options = ruleOptionsOf(raw->rules);
    request.rules = chooseRules(options);
    request.options = findingsOptionsOf(raw->rules, request.database);
    request.isComplete = raw->servers.empty() && raw->at.empty() && isEverything(options);
    request.failOn = failOnOf(*raw, request.rules);
    request.strict = raw->strict;
    request.showSuppressed = raw->showSuppressed;
    for (const std::string& name : raw->outputs) {
      request.outputs.push_back(fileToWrite("--output", name, request.database));
      findingsFormatOf(request.outputs.back().extension().string());
    }
    if (!raw->writeIgnore.empty())
      request.writeIgnore = fileToWrite("--write-ignore", raw->writeIgnore, request.database);
    if (raw->outputs.empty() || !raw->format.empty())
      request.printedFormat = raw->format.empty() ? FindingsFormat::kTable : findingsFormatOf(raw->format);
    request.forExcel = raw->forExcel;
    requireCsv(raw->forExcel, request.writes(FindingsFormat::kCsv));
    action = [request = std::move(request)](Output& output) { return runFindings(request, output); };
  });
}

}  // namespace host
