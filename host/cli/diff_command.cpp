
#include "host/cli/command_options.h"
#include "host/query/diff.h"

namespace host {
namespace {

constexpr const char* kFooter =
    "A site is identified by its identifier, a pool and an extension by their names,\n"
    "a directory by its path. The order of rows does not matter; nor do the servers'\n"
    "names at the beginning of paths and accounts, and the accounts IUSR_ and IWAM_\n"
    "with the server's name.\n"
    "\n"
    "With one database, each server's current collection is compared with the one\n"
    "before it, or with --since with the one that was current then.\n"
    "\n"
    "What is unknown on one side is listed, but is no difference.\n"
    "\n"
    "Exit status: 0 alike, 1 different, 2 on errors.\n"
    "\n"
    "Examples:\n"
    "  iisinventory diff before.db after.db\n"
    "  iisinventory diff inventory.db --since 2026-01-31\n"
    "  iisinventory diff inventory.db --server WEB01 --against WEB02\n"
    "  iisinventory diff before.db after.db --ignore State --format csv";

struct Raw {
  DatabaseArguments database;
  std::vector<std::string> databases;
  std::string format;
  DiffOptions options;
};

DiffOptions optionsOf(const Raw& raw) {
  DiffOptions options = raw.options;
  if (!options.against.empty() && options.server.empty()) throw UsageError("--against needs --server");
  if (!options.against.empty() && !options.since.empty())
    throw UsageError("--since and --against exclude each other");
  const std::size_t count = raw.databases.size();
  if (count > 1 && !options.against.empty())
    throw UsageError("--against compares two servers of one database");
  if (count > 1 && !options.since.empty()) throw UsageError("--since compares two states of one database");
  if (count > 2) throw UsageError("give one or two databases");
  options.old = databaseName("DATABASE", raw.databases.front());
  if (count == 2) options.other = databaseName("DATABASE", raw.databases.back());
  options.since = timeOf("--since", options.since);
  options.access = raw.database.access();
  options.format = formatOf(raw.format);
  return options;
}

}  // namespace

void addDiff(Program& program, CommandAction& action) {
  const auto raw = std::make_shared<Raw>();
  Command command = program.add("diff", "Compare two inventories, states or servers");
  command.argument("DATABASE", raw->databases, "OLD and NEW, or one: files or servers' addresses",
                   Presence::kRequired);
  command.option("--server", raw->options.server, "NAME", "Only this server");
  command.option("--against", raw->options.against, "NAME", "Another server of the same database");
  command.option("--since", raw->options.since, "TIME", "Compare with the state at this time, in UTC");
  command.list("--ignore", raw->options.ignored, "COLUMN", "Leave this column out (repeatable)");
  addFormat(command, raw->format);
  addSchema(command, raw->database);
  addWait(command, raw->database);
  command.footer(kFooter);
  command.onParsed([raw, &action] {
    action = [options = optionsOf(*raw)](Output& output) { return diff(options, output); };
  });
}

}  // namespace host
