#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <sstream>

#include "host/color.h"
#include "host/commands.h"
#include "host/findings.h"
#include "host/listing.h"
#include "host/nearest.h"
#include "host/problem_groups.h"
#include "host/retry.h"
#include "host/servers.h"
#include "host/spool.h"
#include "host/terminal_text.h"
#include "inventory/names.h"

namespace host {
namespace {

constexpr const char* kFooter =
    "A rule that needs tabs that weren't collected, or values that aren't known, is\n"
    "reported as one that could not be evaluated.\n"
    "\n"
    "Exit status: 0; with --fail-on, 1 if such a rule has a finding or could not be\n"
    "evaluated; 2 on errors. 'any' means every rule.\n"
    "\n"
    "Examples:\n"
    "  iisinventory findings -d inventory.db\n"
    "  iisinventory findings -d inventory.db --server WEB01 --format csv\n"
    "  iisinventory findings -d inventory.db --fail-on anonymous-write\n"
    "  iisinventory findings --rules";

constexpr std::string_view kAny = "any";
constexpr const char* kCouldNotEvaluate = "Could not evaluate";

struct Raw {
  RawDatabase database;
  std::vector<std::string> servers;
  std::vector<std::string> failOn;
  std::string at;
  std::string format;
  bool listRules = false;
};

// Columns of the spooled rows. A row without a rule says that there is nothing about a server.
enum Field : std::size_t { kServer, kRule, kTitle, kKind, kName, kEvidence, kNotEvaluated, kFieldCount };

constexpr char kBetweenEvidence = '\0';  // no value has one

// Evaluates the rules for each server and keeps the results as rows.
Spool evaluateAll(const Raw& raw, const std::string& database, const inventory::Access& access,
                  const std::string& at) {
  const auto inventory = inventory::openForReading(database, access);
  inventory::Reader reader = inventory->read(reportSuccessor);
  Spool rows;
  reader.forEach(chosenServers(reader, raw.servers, at), [&](std::unique_ptr<inventory::ServerData> data) {
    const std::string& server = data->server();
    std::vector<Unevaluated> notEvaluated;
    bool isEmpty = true;
    const auto found = [&](const Finding& finding) {
      std::string evidence;
      for (const std::string& text : finding.evidence) {
        if (!evidence.empty()) evidence += kBetweenEvidence;
        evidence += text;
      }
      isEmpty = false;
      rows.add(std::array<inventory::Cell, kFieldCount>{
          server, finding.rule->name, finding.rule->title, finding.kind, finding.name, evidence, {}});
    };
    evaluateRules(*data, {found, [&](Unevaluated each) { notEvaluated.push_back(std::move(each)); }});
    for (const Unevaluated& each : notEvaluated) {
      rows.add(std::array<inventory::Cell, kFieldCount>{
          server, each.rule->name, each.rule->title, {}, {}, {}, each.reason});
    }
    if (isEmpty && notEvaluated.empty()) rows.add(std::array<inventory::Cell, kFieldCount>{server});
  });
  return rows;
}

void writeWrapped(const std::string& start, const std::string& text, Output& output) {
  const std::size_t width = std::max<std::size_t>(40, terminalColumns(STDOUT_FILENO));
  std::string lead = start;
  for (const std::string& line : wrapToWidth(harmless(text), width - displayWidth(start))) {
    output.write(lead + line + "\n");
    lead = std::string(displayWidth(start), ' ');
  }
}

const Rule& ruleOf(const Row& row) {
  return *std::ranges::find(rules(), *row[kRule], &Rule::name);
}

void printForPeople(Spool& rows, Output& output) {
  std::int64_t count = 0;
  std::string server;
  Value title;  // of the part of the server's output
  rows.forEach(kFieldCount, [&](const Row& row) {
    if (*row[kServer] != server) {
      output.write((server.empty() ? "" : "\n") + harmless(*row[kServer]) + "\n");
      server = *row[kServer];
      title.reset();
    }
    if (!row[kRule]) return output.write("  nothing\n");
    if (row[kNotEvaluated]) {
      if (title != kCouldNotEvaluate)
        output.write("\n  " + colored(kCouldNotEvaluate, Ink::kNotice, STDOUT_FILENO) + "\n");
      title = kCouldNotEvaluate;
      return writeWrapped("    ", *row[kRule] + ": " + *row[kNotEvaluated], output);
    }
    ++count;
    if (title != row[kTitle]) {
      title = row[kTitle];
      output.write("\n  " + colored(*title, Ink::kProblem, STDOUT_FILENO) + " [" + *row[kRule] + "]\n");
      writeWrapped("  ", std::string(ruleOf(row).why), output);
    }
    writeWrapped("    ", *row[kKind] + " " + *row[kName], output);
    std::istringstream evidence(*row[kEvidence]);
    for (std::string line; std::getline(evidence, line, kBetweenEvidence);)
      writeWrapped("      ", line, output);
  });
  output.write("\n" + counted(count, "finding", "findings") + "\n");
}

void printForPrograms(Spool& rows, Format format, Output& output) {
  Listing listing{{{"Server"}, {"Rule"}, {"Title"}, {"Object"}, {"Name"}, {"Evidence"}, {kCouldNotEvaluate}},
                  {}};
  listing.forEachRow = [&](const std::function<void(const Row&)>& each) {
    rows.forEach(kFieldCount, [&](const Row& row) {
      if (!row[kRule]) return;
      Row shown = row;
      if (shown[kEvidence]) {
        for (std::size_t at = 0; (at = shown[kEvidence]->find(kBetweenEvidence, at)) != std::string::npos;)
          shown[kEvidence]->replace(at, 1, "; ");
      }
      each(shown);
    });
  };
  print(listing, {format}, output);
}

void printRules(Format format, Output& output) {
  if (format == Format::kTable) {
    for (const Rule& rule : rules()) {
      output.write(std::string(rule.name) + "\n");
      writeWrapped("    ", std::string(rule.title) + ". " + std::string(rule.why), output);
      if (!rule.source.empty()) output.write("    " + std::string(rule.source) + "\n");
    }
    return;
  }
  Listing listing{{{"Rule"}, {"Title"}, {"Why"}, {"Source"}}, {}};
  listing.forEachRow = [](const std::function<void(const Row&)>& each) {
    for (const Rule& rule : rules()) {
      each(
          {std::string(rule.name), std::string(rule.title), std::string(rule.why), std::string(rule.source)});
    }
  };
  print(listing, {format}, output);
}

// 1 if a rule of --fail-on has a finding or could not be evaluated.
int statusOf(const Raw& raw, Spool& rows) {
  int status = 0;
  rows.forEach(kFieldCount, [&](const Row& row) {
    const auto isMeant = [&](const std::string& name) {
      return inventory::sameName(name, kAny) || inventory::sameName(name, *row[kRule]);
    };
    if (!row[kRule] || std::ranges::none_of(raw.failOn, isMeant)) return;
    status = 1;
    if (row[kNotEvaluated])
      complain("could not evaluate " + *row[kRule] + " for " + *row[kServer] + ": " + *row[kNotEvaluated]);
  });
  return status;
}

void requireRules(const std::vector<std::string>& names) {
  std::vector<std::string> known{std::string(kAny)};
  for (const Rule& rule : rules()) known.emplace_back(rule.name);
  for (const std::string& name : names) {
    if (std::ranges::any_of(known, [&](const std::string& rule) { return inventory::sameName(rule, name); }))
      continue;
    const std::string meant = didYouMean(name, known);
    throw UsageError("--fail-on: no rule '" + name + "'" + (meant.empty() ? "; --rules lists them" : meant));
  }
}

}  // namespace

void addFindings(CLI::App& program, Work& work) {
  const auto raw = std::make_shared<Raw>();
  CLI::App& command = *program.add_subcommand("findings", "Evaluate rules about servers");
  addDatabase(command, raw->database);
  addList(command, "--server", raw->servers, "NAME", "Only this server (repeatable)");
  addAt(command, raw->at);
  addFormat(command, raw->format);
  addList(command, "--fail-on", raw->failOn, "RULE", "Status 1 if it has a finding (repeatable)");
  command.add_flag("--rules", raw->listRules, "List the rules, and stop");
  command.footer(kFooter);
  command.callback([raw, &work] {
    const Format format = formatOf(raw->format);
    requireRules(raw->failOn);
    if (raw->listRules) {
      work = [format](Output& output) {
        printRules(format, output);
        output.flush();
        return 0;
      };
      return;
    }
    refuseEmpty("--server", raw->servers);
    work = [raw, format, database = raw->database.name(), access = raw->database.access(),
            at = timeOf("--at", raw->at)](Output& output) {
      Spool rows = retryOnDisconnect([&] { return evaluateAll(*raw, database, access, at); });
      return printed(output, statusOf(*raw, rows), [&] {
        if (format == Format::kTable) {
          printForPeople(rows, output);
        } else {
          printForPrograms(rows, format, output);
        }
      });
    };
  });
}

}  // namespace host
