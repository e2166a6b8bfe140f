
#include "host/cli/command_options.h"
#include "host/cli/rule_options.h"
#include "host/report/report.h"

namespace host {
namespace {

constexpr const char* kFooter =
    "The page is self-contained: it needs no network and no other file. Without\n"
    "--output it is written to the standard output. A directory (a path that ends\n"
    "with '/', or an existing one) gets index.html and a page for each server.\n"
    "\n"
    "Examples:\n"
    "  iisinventory report -d inventory.db -o report.html\n"
    "  iisinventory report -d inventory.db --server WEB01 > web01.html\n"
    "  iisinventory report -d fleet.db -o fleet/";

struct Raw {
  DatabaseArguments database;
  std::vector<std::string> servers;
  std::string output;
  std::string at;
  RawRules rules;
};

}  // namespace

void addReport(Program& program, CommandAction& action) {
  const auto raw = std::make_shared<Raw>();
  Command command = program.add("report", "Write a page about servers, in HTML");
  addDatabaseOrArgument(command, raw->database);
  command.list("--server", raw->servers, "NAME", "Only this server, with * and ? (repeatable)");
  addAt(command, raw->at);
  command.option("-o,--output", raw->output, "FILE", "File or directory to write");
  addRuleOptions(command, raw->rules);
  addFindingsOptions(command, raw->rules);
  command.footer(kFooter);
  command.onParsed([raw, &action] {
    refuseEmpty("--server", raw->servers);
    ReportOptions options{raw->database.name(), raw->database.access(), raw->servers, {}};
    options.profile = raw->rules.profile.empty() && raw->rules.ids.empty() ? "default" : raw->rules.profile;
    options.rules = chooseRules(ruleOptionsOf(raw->rules));
    options.findings = findingsOptionsOf(raw->rules, options.database);
    options.at = timeOf("--at", raw->at);
    if (!raw->output.empty() && raw->output != "-") options.output = wholePath("--output", raw->output);
    std::error_code ignored;
    options.isDirectory =
        raw->output.ends_with('/') || std::filesystem::is_directory(options.output, ignored);
    action = [options](Output& output) {
      report(options, output);
      return 0;
    };
  });
}

}  // namespace host
