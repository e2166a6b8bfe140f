#include <CLI/CLI.hpp>
#include <algorithm>

#include "host/color.h"
#include "host/commands.h"
#include "host/findings.h"
#include "host/listing.h"
#include "host/nearest.h"
#include "host/problem_groups.h"
#include "host/servers.h"
#include "host/terminal_text.h"
#include "inventory/names.h"

namespace host {
namespace {

constexpr const char* kFooter =
    "A rule whose tabs weren't collected, or that needs what isn't known, says so.\n"
    "\n"
    "Exit status: 0; with --fail-on, 1 where such a rule has a finding or couldn't\n"
    "be judged; 2 trouble. 'any' stands for every rule.\n"
    "\n"
    "Examples:\n"
    "  iisinventory findings -d inventory.db\n"
    "  iisinventory findings -d inventory.db --server WEB01 --format csv\n"
    "  iisinventory findings -d inventory.db --fail-on anonymous-write\n"
    "  iisinventory findings --rules";

constexpr std::string_view kAny = "any";

struct Raw {
  RawDatabase database;
  std::vector<std::string> servers;
  std::vector<std::string> failOn;
  std::string format;
  bool listRules = false;
};

struct OfServer {
  std::string server;
  std::vector<Finding> findings;
  std::vector<Unjudged> unjudged;
};

std::vector<OfServer> judgeAll(const Raw& raw, const std::string& database, const inventory::Access& access) {
  const auto inventory = inventory::openForReading(database, access);
  const auto snapshot = inventory->snapshot();
  const std::vector<std::string> servers = chosenServers(*snapshot, raw.servers);
  const inventory::NotKnown notKnown = inventory::readNotKnown(*snapshot, servers);
  const inventory::Coverage coverage = inventory::Coverage::read(*snapshot, servers);
  std::vector<OfServer> all;
  for (const std::string& server : servers) {
    OfServer& of = all.emplace_back(OfServer{server, {}, {}});
    judge(*snapshot, server, notKnown, coverage,
          {[&](Finding finding) { of.findings.push_back(std::move(finding)); },
           [&](Unjudged unjudged) { of.unjudged.push_back(std::move(unjudged)); }});
  }
  return all;
}

void writeWrapped(const std::string& start, const std::string& text, Output& output) {
  const std::size_t width = std::max<std::size_t>(40, terminalColumns(STDOUT_FILENO));
  std::string lead = start;
  for (const std::string& line : wrapToWidth(harmless(text), width - displayWidth(start))) {
    output.write(lead + line + "\n");
    lead = std::string(displayWidth(start), ' ');
  }
}

void printForPeople(const std::vector<OfServer>& all, Output& output) {
  std::int64_t count = 0;
  for (const OfServer& each : all) {
    if (&each != &all.front()) output.write("\n");
    output.write(harmless(each.server) + "\n");
    if (each.findings.empty() && each.unjudged.empty()) output.write("  nothing\n");
    const Rule* rule = nullptr;
    for (const Finding& finding : each.findings) {
      ++count;
      if (finding.rule != rule) {
        rule = finding.rule;
        output.write("\n  " + colored(rule->title, Ink::kProblem, STDOUT_FILENO) + " [" +
                     std::string(rule->name) + "]\n");
        writeWrapped("  ", std::string(rule->why), output);
      }
      writeWrapped("    ", std::string(finding.thing) + " " + finding.name, output);
      for (const std::string& row : finding.rows) writeWrapped("      ", row, output);
    }
    if (!each.unjudged.empty()) {
      output.write("\n  " + colored("Not judged", Ink::kNotice, STDOUT_FILENO) + "\n");
      for (const Unjudged& unjudged : each.unjudged) {
        writeWrapped("    ", std::string(unjudged.rule->name) + ": " + unjudged.reason, output);
      }
    }
  }
  output.write("\n" + counted(count, "finding", "findings") + "\n");
}

void printForPrograms(const std::vector<OfServer>& all, Format format, Output& output) {
  Listing listing{{{"Server"}, {"Rule"}, {"Title"}, {"Thing"}, {"Name"}, {"Rests on"}, {"Not judged"}}, {}};
  listing.forEachRow = [&](const std::function<void(const Row&)>& each) {
    for (const OfServer& of : all) {
      for (const Finding& finding : of.findings) {
        std::string rows;
        for (const std::string& row : finding.rows) rows += (rows.empty() ? "" : "; ") + row;
        each({of.server, std::string(finding.rule->name), std::string(finding.rule->title),
              std::string(finding.thing), finding.name, rows, Value()});
      }
      for (const Unjudged& unjudged : of.unjudged) {
        each({of.server, std::string(unjudged.rule->name), std::string(unjudged.rule->title), Value(),
              Value(), Value(), unjudged.reason});
      }
    }
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

// 1 where a rule that is to fail has a finding, or nobody can say.
int statusOf(const Raw& raw, const std::vector<OfServer>& all) {
  const auto isMeant = [&](const Rule* rule) {
    return std::ranges::any_of(raw.failOn, [&](const std::string& name) {
      return inventory::sameName(name, kAny) || inventory::sameName(name, rule->name);
    });
  };
  int status = 0;
  if (all.empty() && !raw.failOn.empty()) {
    complain("there is no server that could be judged");
    status = 1;
  }
  for (const OfServer& each : all) {
    if (std::ranges::any_of(each.findings, isMeant, &Finding::rule)) status = 1;
    for (const Unjudged& unjudged : each.unjudged) {
      if (!isMeant(unjudged.rule)) continue;
      complain(each.server + ": " + std::string(unjudged.rule->name) + " couldn't be judged, " +
               unjudged.reason);
      status = 1;
    }
  }
  return status;
}

void requireRules(const std::vector<std::string>& names) {
  std::vector<std::string> known{std::string(kAny)};
  for (const Rule& rule : rules()) known.emplace_back(rule.name);
  for (const std::string& name : names) {
    if (std::ranges::any_of(known, [&](const std::string& rule) { return inventory::sameName(rule, name); }))
      continue;
    const std::string meant = didYouMean(name, known);
    throw UsageError("--fail-on: there is no rule '" + name + "'" +
                     (meant.empty() ? "; --rules lists them" : meant));
  }
}

}  // namespace

void addFindings(CLI::App& program, Work& work) {
  const auto raw = std::make_shared<Raw>();
  CLI::App& command = *program.add_subcommand("findings", "Tell what is worth a look");
  addDatabase(command, raw->database);
  addList(command, "--server", raw->servers, "NAME", "Only this server (repeatable)");
  addFormat(command, raw->format);
  addList(command, "--fail-on", raw->failOn, "RULE", "Status 1 where it has a finding (repeatable)");
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
    work = [raw, format, database = raw->database.name(), access = raw->database.access()](Output& output) {
      const std::vector<OfServer> all = [&] {
        try {
          return judgeAll(*raw, database, access);
        } catch (const inventory::Unreachable&) {
          // Once more, as a whole.
          return judgeAll(*raw, database, access);
        }
      }();
      return printed(output, statusOf(*raw, all), [&] {
        if (format == Format::kTable) {
          printForPeople(all, output);
        } else {
          printForPrograms(all, format, output);
        }
      });
    };
  });
}

}  // namespace host
