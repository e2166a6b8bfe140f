#include "host/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <memory>
#include <string_view>

#include "automation/text.h"
#include "host/paths.h"
#include "host/sections.h"
#include "host/terminal_text.h"
#include "inventory/names.h"

namespace host {
namespace {

constexpr unsigned kMostJobs = 256;
constexpr double kLongestWait = 1e6;
constexpr std::uint64_t kUsualMaxSize = 1ULL << 30;

constexpr const char* kProgramFooter =
    "Examples:\n"
    "  iisinventory collect WEB01/MetaBase.xml --database inventory.db\n"
    "  iisinventory show --database inventory.db\n"
    "  iisinventory show tblGeneral --database inventory.db --format csv\n"
    "\n"
    "'iisinventory collect --help' and 'iisinventory show --help' tell more.";

// Lines of a help text below a heading.
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
    "With --site and without --pool only FTP sites are collected, with --pool and\n"
    "without --site only application pools, unless --only names something else.\n"
    "\n"
    "Tabs: General (of sites and pools);\n" +
    inLines("of FTP sites: " + sectionNames(Side::kFtp) + ";") +
    inLines("of pools: " + sectionNames(Side::kPools) + ".") +
    "\n"
    "In a folder or an archive every metabase is found, at any depth; a server is\n"
    "named after the nearest folder that is none of the file's usual homes (inetsrv,\n"
    "system32, windows, History, MetaBack, C$ and the like).\n"
    "\n"
    "A database is an SQLite file, or one on a PostgreSQL server:\n"
    "postgresql://USER@HOST:PORT/NAME or service=NAME. Its password comes from\n"
    "PGPASSWORD, ~/.pgpass or a service file; the logs go to the current directory.\n"
    "\n"
    "Exit status: 0 all of it and no problem, 1 problems, or a server that wasn't\n"
    "published while another was, 2 nothing was published.\n"
    "\n"
    "Examples:\n"
    "  iisinventory collect WEB01/MetaBase.xml WEB02/MetaBase.xml --database all.db\n"
    "  iisinventory collect OLD=backup/2006.xml --database old.db --log-dir logs\n"
    "  iisinventory collect WEB01/MetaBase.xml --database all.db --only Message --site 3\n"
    "  iisinventory collect */MetaBase.xml --database all.db --jobs 4 --quiet\n"
    "  iisinventory collect fleet.zip --database postgresql://iis@db1/inventory";

constexpr const char* kCopyFooter =
    "What stands for a server is replaced whole, all servers at once. Exit status:\n"
    "0 all of it, 1 a server isn't there, 2 nothing was copied.\n"
    "\n"
    "Examples:\n"
    "  iisinventory copy --from inventory.db --to postgresql://iis@db1/inventory\n"
    "  iisinventory copy --from service=fleet --to extract.db --server WEB01";

constexpr const char* kCheckFooter =
    "Exit status: 0 nothing odd, 1 odd places, 2 something that is no metabase.\n"
    "\n"
    "Example:\n"
    "  iisinventory check WEB01/MetaBase.xml";

constexpr const char* kShowFooter =
    "Examples:\n"
    "  iisinventory show --database inventory.db\n"
    "  iisinventory show tblHealth --database inventory.db\n"
    "  iisinventory show tblvirtualDirectory --database inventory.db --format json";

// What the command line says, before it is made sense of.
struct Raw {
  std::vector<std::string> metabases;
  std::vector<std::string> only;
  std::vector<std::string> sites;
  std::vector<std::string> pools;
  std::string database;
  std::string schema = inventory::Access().schema;
  std::string from;
  std::string to;
  std::vector<std::string> servers;
  std::string logDirectory;
  std::string table;
  std::string format = "table";
  unsigned jobs = 1;
  double wait = 5;
  bool force = false;
  bool list = false;
  std::uint64_t maxSize = kUsualMaxSize;
  bool quiet = false;
};

struct Parser {
  Raw raw;
  CLI::App app{"Takes stock of IIS 6 servers: from their MetaBase.xml files to one database.",
               "iisinventory"};
  CLI::App* collect = app.add_subcommand("collect", "Collect servers into a database");
  CLI::App* check = app.add_subcommand("check", "Say what is odd about metabase files");
  CLI::App* show = app.add_subcommand("show", "Show what a database holds");
  CLI::App* copy = app.add_subcommand("copy", "Copy servers from one database to another");

  Parser() {
    app.set_version_flag("--version", "iisinventory " IISINVENTORY_VERSION);
    app.require_subcommand(1);
    app.footer(kProgramFooter);

    collect->add_option("METABASE", raw.metabases, "[NAME=]FILE, FOLDER or ARCHIVE; NAME=- for stdin")
        ->required()
        ->type_name("");
    addDatabase(collect, "Database: a file or a server's address");
    collect->add_flag("--list", raw.list, "List what would be collected, and stop");
    addMaxSize(collect);
    collect->add_option("--only", raw.only, "Collect only this tab (repeatable)")
        ->type_name("TAB")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->allow_extra_args(false);
    collect->add_option("--site", raw.sites, "Collect only this FTP site (repeatable)")
        ->type_name("ID")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->allow_extra_args(false);
    collect->add_option("--pool", raw.pools, "Collect only this application pool (repeatable)")
        ->type_name("NAME")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->allow_extra_args(false);
    collect->add_option("--log-dir", raw.logDirectory, "Directory of the logs (default: the file's or .)")
        ->type_name("DIR");
    collect->add_option("--jobs", raw.jobs, "How many servers side by side (default: 1)")
        ->type_name("N")
        ->check(CLI::Range(1U, kMostJobs).description(""));
    addWait(collect);
    collect->add_flag("--force", raw.force, "Also beside tables of somebody else");
    collect->add_flag("--quiet", raw.quiet, "No progress and no summary, problems only");
    collect->footer(kCollectFooter);

    check->add_option("METABASE", raw.metabases, "Metabase file, folder or archive; - is standard input")
        ->required()
        ->type_name("");
    addMaxSize(check);
    check->footer(kCheckFooter);

    show->add_option("TABLE", raw.table, "Table to show; without it, the tables and their row counts")
        ->type_name("");
    addDatabase(show, "Database: a file or a server's address");
    show->add_option("--format", raw.format, "How to print it (default: table)")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"table", "csv", "json"}, CLI::ignore_case));
    addWait(show);
    show->footer(kShowFooter);

    copy->add_option("--from", raw.from, "Database to copy from: a file or a server's address")
        ->required()
        ->type_name("DATABASE");
    copy->add_option("--to", raw.to, "Database to copy to")->required()->type_name("DATABASE");
    copy->add_option("--server", raw.servers, "Copy only this server (repeatable)")
        ->type_name("NAME")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->allow_extra_args(false);
    addSchema(copy);
    addWait(copy);
    copy->add_flag("--force", raw.force, "Also beside tables of somebody else");
    copy->footer(kCopyFooter);
  }

  void addDatabase(CLI::App* command, const char* what) {
    command->add_option("--database", raw.database, what)->type_name("DATABASE");
    addSchema(command);
  }

  void addSchema(CLI::App* command) {
    command->add_option("--schema", raw.schema, "Schema of the tables on a server (iis_inventory)")
        ->type_name("NAME");
  }

  void addMaxSize(CLI::App* command) {
    const CLI::Validator positive(
        [](const std::string& size) {
          return size == "0" || size.starts_with('-') ? "it must be greater than 0" : std::string();
        },
        "");
    command->add_option("--max-size", raw.maxSize, "Largest from an archive or a pipe (default: 1GiB)")
        ->type_name("SIZE")
        ->transform(CLI::AsSizeValue(false).description(""))
        // The last one is asked first: the others would take "-1" for a very large number.
        ->transform(positive)
        ->check(positive);
  }

  void addWait(CLI::App* command) {
    command->add_option("--wait", raw.wait, "How long to wait for others (default: 5)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, kLongestWait).description(""));
  }
};

bool isUtf8(const std::string& text) {
  return automation::toUtf8(automation::fromUtf8(text)) == text;
}

// The component takes paths as text, so other paths would become those of other files.
std::filesystem::path wholePath(const char* option, const std::string& path) {
  if (path.empty()) throw UsageError(std::string(option) + ": the path is empty");
  if (!isUtf8(path)) throw UsageError(std::string(option) + " '" + path + "': the path is not UTF-8");
  return absolutePath(path);
}

// An address as it is, a file as its absolute path.
std::string databaseName(const char* option, const std::string& database) {
  if (!inventory::isOnServer(database)) return wholePath(option, database).string();
  if (!isUtf8(database)) throw UsageError(std::string(option) + ": the address is not UTF-8");
  static_cast<void>(inventory::shownName(database));
  return database;
}

std::string databaseName(const Raw& raw, const char* command) {
  if (raw.database.empty()) {
    throw UsageError(std::string("--database is required (see 'iisinventory ") + command + " --help')");
  }
  return databaseName("--database", raw.database);
}

std::chrono::milliseconds milliseconds(double seconds) {
  if (!(seconds >= 0)) throw UsageError("--wait: it is no number of seconds");
  return std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
}

inventory::Access access(const Raw& raw) {
  if (!isUtf8(raw.schema)) throw UsageError("--schema: the name is not UTF-8");
  return {milliseconds(raw.wait), raw.force, raw.schema};
}

void refuseEmpty(const char* option, const std::vector<std::string>& values) {
  for (const std::string& value : values) {
    if (value.empty()) throw UsageError(std::string(option) + ": the value is empty");
  }
}

CollectOptions collectOptions(const Raw& raw) {
  refuseEmpty("--site", raw.sites);
  refuseEmpty("--pool", raw.pools);
  CollectOptions options;
  options.metabases = raw.metabases;
  options.maxSize = raw.maxSize;
  options.listOnly = raw.list;
  if (options.listOnly) return options;
  options.database = databaseName(raw, "collect");
  options.access = access(raw);
  options.logDirectory = !raw.logDirectory.empty() ? wholePath("--log-dir", raw.logDirectory)
                         : inventory::isOnServer(options.database)
                             ? std::filesystem::current_path()
                             : std::filesystem::path(options.database).parent_path();
  options.selection = select(raw.only, raw.sites, raw.pools);
  options.jobs = raw.jobs;
  options.quiet = raw.quiet;
  return options;
}

ShowOptions showOptions(const Raw& raw) {
  ShowOptions options{raw.table, databaseName(raw, "show"), access(raw), Format::kTable};
  if (inventory::sameName(raw.format, "csv")) options.format = Format::kCsv;
  if (inventory::sameName(raw.format, "json")) options.format = Format::kJson;
  return options;
}

CopyOptions copyOptions(const Raw& raw) {
  refuseEmpty("--server", raw.servers);
  CopyOptions options{databaseName("--from", raw.from), databaseName("--to", raw.to), raw.servers,
                      access(raw)};
  if (options.from == options.to) throw UsageError("--from and --to name the same database");
  return options;
}

}  // namespace

Options parseCommandLine(int argumentCount, const char* const* arguments) {
  Parser parser;
  try {
    parser.app.parse(argumentCount, arguments);
  } catch (const CLI::CallForHelp&) {
    const CLI::App* asked = &parser.app;
    for (const CLI::App* subcommand : parser.app.get_subcommands()) asked = subcommand;
    return HelpOptions{asked == &parser.app ? asked->help() : asked->help(asked->get_parent()->get_name())};
  } catch (const CLI::CallForVersion&) {
    return HelpOptions{parser.app.version() + "\n"};
  } catch (const CLI::Error& error) {
    std::string command;
    for (const CLI::App* subcommand : parser.app.get_subcommands()) command = " " + subcommand->get_name();
    if (command.empty() && arguments[1][0] != '-') {
      throw UsageError(std::string("there is no command '") + arguments[1] +
                       "'; there are: collect, check, show, copy");
    }
    throw UsageError(std::string(error.what()) + " (see 'iisinventory" + command + " --help')");
  }
  if (parser.collect->parsed()) return collectOptions(parser.raw);
  if (parser.check->parsed()) return CheckOptions{parser.raw.metabases, parser.raw.maxSize};
  if (parser.copy->parsed()) return copyOptions(parser.raw);
  return showOptions(parser.raw);
}

std::string programHelp() {
  return Parser().app.help();
}

}  // namespace host
