#include "host/cli/command_options.h"

#include "host/collect/collect.h"
#include "host/console/terminal_text.h"
#include "host/sections.h"

namespace host {
namespace {

constexpr int kMostJobs = 256;

// A text as lines below a heading of the help.
std::string inLines(const std::string& text) {
  constexpr std::size_t kColumns = 75;
  std::string lines;
  for (const std::string& line : wrapToWidth(text, kColumns)) {
    lines += (lines.empty() ? "  " : "    ") + line + "\n";
  }
  return lines;
}

const std::string kCollectFooter =
    "Without NAME= a file called MetaBase.xml is the server that its folder is named\n"
    "after, any other file the one that it is named after itself.\n"
    "\n"
    "--list only finds the files; --dry-run also reads them and shows of each\n"
    "server how many sites, pools, rows and problems there are, and when it was last\n"
    "collected into the database.\n"
    "\n"
    "With --site and without --pool only FTP sites are collected, with --pool and\n"
    "without --site only application pools, unless --only names something else.\n"
    "\n"
    "Tabs: General (of sites and pools);\n" +
    inLines("of FTP sites: " + sectionNames(Side::kFtp) + ";") +
    inLines("of pools: " + sectionNames(Side::kPools) + ".") +
    "\n"
    "A collection that covers less than the one it would replace needs --replace.\n"
    "\n"
    "In a folder or an archive every metabase is found, at any depth; a server is\n"
    "named after the nearest folder that is not a usual location (inetsrv,\n"
    "system32, windows, History, MetaBack, C$ and the like), or after the file if\n"
    "there are others. Of MetaBase.xml and its history copies the newest is used.\n"
    "\n"
    "A database is an SQLite file, or one on a PostgreSQL server:\n"
    "postgresql://USER@HOST:PORT/NAME, service=NAME or 'host=HOST dbname=NAME'. Its\n"
    "password comes from PGPASSWORD, ~/.pgpass or a service file; the logs go to the\n"
    "current directory.\n"
    "\n"
    "Exit status: 0 everything was published without problems, 1 problems, or a\n"
    "server was not published, 2 nothing was published. With --fail-on unpublished,\n"
    "1 only if a server was not published or a source cannot be read.\n"
    "\n"
    "Examples:\n"
    "  iisinventory collect WEB01/MetaBase.xml WEB02/MetaBase.xml --database all.db\n"
    "  iisinventory collect backups/ --database all.db --dry-run\n"
    "  iisinventory collect OLD=backup/2006.xml --database old.db --log-dir logs\n"
    "  iisinventory collect WEB01/MetaBase.xml -d all.db --only Message --site 3\n"
    "  iisinventory collect */MetaBase.xml --database all.db --jobs 4 --quiet\n"
    "  iisinventory collect fleet.zip --database postgresql://iis@db1/inventory";

struct Raw {
  DatabaseArguments database;
  std::vector<std::string> metabases;
  std::vector<std::string> only;
  std::vector<std::string> sites;
  std::vector<std::string> pools;
  std::string logDirectory;
  std::uint64_t maxSize = 0;
  int jobs = 1;
  bool replace = false;
  bool list = false;
  bool dryRun = false;
  bool quiet = false;
  bool verbose = false;
  std::string format = "table";
  std::string failOn = "problems";
};

CollectOptions optionsOf(const Raw& raw) {
  refuseEmpty("--site", raw.sites);
  refuseEmpty("--pool", raw.pools);
  if (raw.quiet && raw.verbose) throw UsageError("--quiet and --verbose exclude each other");
  if (raw.list && raw.dryRun) throw UsageError("--list and --dry-run exclude each other");
  const bool isJson = raw.format == "json";
  if (isJson && raw.list) throw UsageError("--list and --format json exclude each other (use --dry-run)");
  if (isJson && raw.verbose) throw UsageError("--verbose and --format json exclude each other");
  CollectOptions options;
  options.metabases = raw.metabases;
  options.maxSize = raw.maxSize;
  options.listOnly = raw.list;
  if (options.listOnly) return options;
  options.database = raw.database.name();
  options.access = raw.database.access();
  options.logDirectory = !raw.logDirectory.empty() ? wholePath("--log-dir", raw.logDirectory)
                         : inventory::isOnServer(options.database)
                             ? std::filesystem::current_path()
                             : std::filesystem::path(options.database).parent_path();
  options.selection = select(raw.only, raw.sites, raw.pools);
  options.replace = raw.replace;
  options.jobs = static_cast<unsigned>(raw.jobs);
  options.quiet = raw.quiet;
  options.verbose = raw.verbose;
  options.dryRun = raw.dryRun;
  options.json = isJson;
  options.failOnUnpublished = raw.failOn == "unpublished";
  return options;
}

}  // namespace

void addCollect(Program& program, CommandAction& action) {
  const auto raw = std::make_shared<Raw>();
  Command command = program.add("collect", "Collect servers into a database");
  command.argument("METABASE", raw->metabases, "[NAME=]FILE, FOLDER or ARCHIVE; NAME=- for stdin",
                   Presence::kRequired);
  addDatabase(command, raw->database);
  command.flag("--list", raw->list, "Only list all files and what becomes of them");
  command.flag("-n,--dry-run", raw->dryRun, "Show what would be collected; write nothing");
  addMaxSize(command, raw->maxSize);
  command.list("-o,--only", raw->only, "TAB", "Collect only this tab (repeatable)");
  command.list("--site", raw->sites, "ID", "Collect only this FTP site (repeatable)");
  command.list("--pool", raw->pools, "NAME", "Collect only this application pool (repeatable)");
  command.flag("--replace", raw->replace, "Also replace a collection that covers more");
  command.option("--log-dir", raw->logDirectory, "DIR", "Directory of the logs (default: the file's or .)");
  command.number("--jobs", raw->jobs, 1, kMostJobs, "N", "Servers to collect in parallel (default: 1)");
  addForce(command, raw->database);
  command.flag("-q,--quiet", raw->quiet, "No progress and no summary, problems only");
  command.flag("-v,--verbose", raw->verbose, "A line for each server, too");
  command.choice("-f,--format", raw->format, {"table", "json"}, "FORMAT",
                 "Summary: table or json (default: table)");
  command.choice("--fail-on", raw->failOn, {"problems", "unpublished"}, "WHAT",
                 "Status 1: problems (default) or unpublished");
  command.footer(kCollectFooter);
  command.onParsed([raw, &action] {
    action = [options = optionsOf(*raw)](Output& output) { return collect(options, output); };
  });
}

}  // namespace host
