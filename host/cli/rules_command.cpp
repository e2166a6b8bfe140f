#include <algorithm>
#include <sstream>

#include "host/cli/command_options.h"
#include "host/cli/rule_options.h"
#include "host/collect/collect.h"
#include "host/console/listing.h"
#include "host/query/findings_output.h"
#include "host/sections.h"
#include "os/private_folder.h"

namespace host {
namespace {

namespace fs = std::filesystem;

constexpr const char* kFooter =
    "Without an action, lists the rules. 'show ID' prints a rule's file. 'test DIR'\n"
    "collects the metabase beside each rule of a folder, ID.xml for ID.sql, and\n"
    "compares what the rule gives for it with ID.expected.\n"
    "\n"
    "Examples:\n"
    "  iisinventory rules\n"
    "  iisinventory rules show anonymous-write > my-rule.sql\n"
    "  iisinventory rules --profile stig-iis6\n"
    "  iisinventory rules test my-rules";

struct Raw {
  RawRules rules;
  std::string action, target, format;
};

std::string parametersOf(const Rule& rule) {
  std::string text;
  for (const Rule::Parameter& each : rule.parameters)
    text += (text.empty() ? "" : ", ") + each.name + " = " + each.value;
  return text;
}

std::string referencesOf(const Rule& rule) {
  std::string text;
  for (const Rule::Reference& each : rule.references) {
    text += (text.empty() ? "" : "; ") + each.name + (each.id.empty() ? "" : " " + each.id) +
            (each.address.empty() ? "" : " " + each.address);
  }
  return text;
}

void listRules(const std::vector<Rule>& rules, Format format, Output& output) {
  Listing listing;
  listing.columns = {{"Rule"}, {"Severity"}, {"Category"}, {"Title"}};
  const bool isTable = format == Format::kTable;
  if (!isTable)
    listing.columns.insert(listing.columns.end(), {{"Parameters"}, {"Why"}, {"Fix"}, {"References"}});
  listing.forEachRow = [&](const std::function<void(const Row&)>& each) {
    for (const Rule& rule : rules) {
      Row row{rule.id, std::string(wordFor(rule.severity)), rule.category, rule.title};
      if (!isTable) row.insert(row.end(), {parametersOf(rule), rule.why, rule.fix, referencesOf(rule)});
      each(row);
    }
  };
  print(listing, {format}, output);
}

// The results of a rule for a metabase, one line each: "finding site 1: path = C:\Files".
std::vector<std::string> resultsFor(const Rule& rule, const fs::path& metabase) {
  const os::PrivateFolder folder;
  CollectOptions options;
  options.metabases = {"TEST=" + metabase.string()};
  options.maxSize = fs::file_size(metabase) + 1;
  options.database = (folder.path() / "inventory.db").string();
  options.logDirectory = folder.path();
  options.selection = select({}, {}, {});
  options.quiet = true;
  Output output;
  if (collect(options, output) > 1)
    throw RuleError(rule.file + ": '" + metabase.string() + "' cannot be collected");
  const auto inventory = inventory::openForReading(options.database, options.access);
  inventory::Reader reader = inventory->read();
  const std::vector<Rule> rules{rule};
  Findings findings(rules, {});
  findings.evaluate(reader, reader.collections(), {});
  if (!findings.failures().empty()) throw RuleError(findings.failures().front());
  std::vector<std::string> lines;
  findings.forEach([&](const Result& result) {
    const std::string evidence = evidenceText(result), object = result.objectText();
    lines.push_back(std::string(result.stateText()) + " " + object +
                    (result.isFinding() && !evidence.empty() ? ": " + evidence : ""));
  });
  std::ranges::sort(lines);
  return lines;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!line.empty()) lines.push_back(std::move(line));
  }
  std::ranges::sort(lines);
  return lines;
}

// Runs a rule's test. Returns whether it passed.
bool testRule(const Rule& rule, Output& output) {
  fs::path metabase = rule.file, expected = rule.file;
  metabase.replace_extension(".xml");
  expected.replace_extension(".expected");
  if (!fs::exists(metabase)) {
    output.write(rule.id + ": no fixture '" + metabase.string() + "'\n");
    return false;
  }
  const std::vector<std::string> given = resultsFor(rule, metabase);
  const std::vector<std::string> wanted =
      fs::exists(expected) ? linesOf(readTextFile(expected)) : std::vector<std::string>{};
  if (given == wanted && fs::exists(expected)) {
    output.write(rule.id + ": passed\n");
    return true;
  }
  output.write(rule.id + ": failed" +
               (fs::exists(expected) ? "" : ", there is no '" + expected.string() + "'") + "\n");
  std::vector<std::string> lines;
  std::ranges::set_difference(wanted, given, std::back_inserter(lines));
  for (const std::string& line : lines) output.write("  - " + line + "\n");
  lines.clear();
  std::ranges::set_difference(given, wanted, std::back_inserter(lines));
  for (const std::string& line : lines) output.write("  + " + line + "\n");
  return false;
}

int testRules(const std::vector<Rule>& rules, Output& output) {
  int status = 0;
  for (const Rule& rule : rules) {
    if (!testRule(rule, output)) status = 1;
  }
  output.flush();
  return status;
}

CommandAction workOf(const Raw& raw, Format format) {
  RawRules options = raw.rules;
  if (raw.action == "test") {
    options.files = {raw.target};
    options.noBuiltin = true;
    return [rules = chooseRules(ruleOptionsOf(options))](Output& output) { return testRules(rules, output); };
  }
  if (raw.action == "show") options.ids = {raw.target};
  std::vector<Rule> rules = chooseRules(ruleOptionsOf(options));
  return [rules = std::move(rules), format, isShown = raw.action == "show"](Output& output) {
    return printed(output, 0, [&] {
      if (!isShown) return listRules(rules, format, output);
      for (const Rule& rule : rules) output.write(rule.text);
    });
  };
}

}  // namespace

void addRules(Program& program, CommandAction& action) {
  const auto raw = std::make_shared<Raw>();
  Command command = program.add("rules", "List, print and test rules");
  command.choice("ACTION", raw->action, {"show", "test"}, "", "show or test; none for a list");
  command.argument("TARGET", raw->target, "The rule to show, the folder to test", Presence::kOptional);
  addRuleOptions(command, raw->rules);
  addFormat(command, raw->format);
  command.footer(kFooter);
  command.onParsed([raw, &action] {
    if (!raw->action.empty() && raw->target.empty())
      throw UsageError(raw->action == "show" ? "'rules show' needs a rule's id"
                                             : "'rules test' needs a folder");
    action = workOf(*raw, formatOf(raw->format));
  });
}

}  // namespace host
