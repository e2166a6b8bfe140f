#include "host/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <string_view>

#include "automation/text.h"

namespace host {
namespace {

constexpr std::string_view kMetabaseFile = "MetaBase.xml";
constexpr unsigned kMostJobs = 256;

constexpr const char* kProgramFooter =
    "Examples:\n"
    "  iisinventory collect WEB01/MetaBase.xml --database inventory.db\n"
    "  iisinventory show --database inventory.db\n"
    "  iisinventory show tblGeneral --database inventory.db --format csv\n"
    "\n"
    "'iisinventory collect --help' and 'iisinventory show --help' tell more.";

const std::string kCollectFooter =
    "Without NAME= a file called MetaBase.xml is the server that its folder is named\n"
    "after, any other file the one that it is named after itself.\n"
    "\n"
    "With --site and without --pool only FTP sites are collected, with --pool and\n"
    "without --site only application pools, unless --only names something else.\n"
    "\n"
    "Tabs: General (of sites and pools);\n"
    "  of FTP sites: Log File Settings, Extended Log Properties, Security Accounts,\n"
    "    Message, Home Directory, Directory Security, Virtual Directories;\n"
    "  of pools: Worker Process Recycling, Memory Recycling, Performance, Health,\n"
    "    Identity, Web Service Extensions, Applied Objects.\n"
    "\n"
    "Exit status: 0 all well, 1 collected with problems, 2 nothing could be collected.\n"
    "\n"
    "Examples:\n"
    "  iisinventory collect WEB01/MetaBase.xml WEB02/MetaBase.xml --database all.db\n"
    "  iisinventory collect OLD=backup/2006.xml --database old.db --log-dir logs\n"
    "  iisinventory collect WEB01/MetaBase.xml --database all.db --only Message --site 3\n"
    "  iisinventory collect */MetaBase.xml --database all.db --jobs 4 --quiet";

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
  std::string logDirectory;
  std::string table;
  std::string format = "table";
  unsigned jobs = 1;
  bool quiet = false;
};

struct Parser {
  Raw raw;
  CLI::App app{"Takes stock of IIS 6 servers: from their MetaBase.xml files to one database.",
               "iisinventory"};
  CLI::App* collect = app.add_subcommand("collect", "Collect servers into a database");
  CLI::App* show = app.add_subcommand("show", "Show what a database holds");

  Parser() {
    app.set_version_flag("--version", "iisinventory " IISINVENTORY_VERSION);
    app.require_subcommand(1);
    app.footer(kProgramFooter);

    collect->add_option("METABASE", raw.metabases, "Metabase file of a server, as [NAME=]METABASE")
        ->required()
        ->type_name("");
    collect->add_option("--database", raw.database, "Database file, made when it isn't there")
        ->required()
        ->type_name("FILE");
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
    collect->add_option("--log-dir", raw.logDirectory, "Directory of the logs (default: the database's)")
        ->type_name("DIR");
    collect->add_option("--jobs", raw.jobs, "How many servers are collected side by side (default: 1)")
        ->type_name("N")
        ->check(CLI::Range(1U, kMostJobs).description(""));
    collect->add_flag("--quiet", raw.quiet, "No progress and no summary, problems only");
    collect->footer(kCollectFooter);

    show->add_option("TABLE", raw.table, "Table to show; without it, the tables and their row counts")
        ->type_name("");
    show->add_option("--database", raw.database, "Database file")->required()->type_name("FILE");
    show->add_option("--format", raw.format, "How to print it (default: table)")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"table", "csv", "json"}, CLI::ignore_case));
    show->footer(kShowFooter);
  }
};

bool isUtf8(const std::string& text) {
  return automation::toUtf8(automation::fromUtf8(text)) == text;
}

// The component takes paths as text, so other paths would become those of other files.
std::filesystem::path wholePath(const char* option, const std::string& path) {
  if (path.empty()) throw UsageError(std::string(option) + ": the path is empty");
  if (!isUtf8(path)) throw UsageError(std::string(option) + " '" + path + "': the path is not UTF-8");
  return std::filesystem::absolute(path).lexically_normal();
}

bool sameName(std::string_view left, std::string_view right) {
  return automation::equalsIgnoringCase(automation::fromUtf8(left), automation::fromUtf8(right));
}

void requireServerName(const std::string& name, const std::string& argument) {
  const auto refuse = [&](const std::string& why) {
    throw UsageError("METABASE '" + argument + "': '" + name + "' can't be a server's name, " + why +
                     "; put a name and '=' before the path");
  };
  if (name.empty()) refuse("it is empty");
  if (!isUtf8(name)) refuse("it is not UTF-8");
  if (name.front() == ' ' || name.back() == ' ') refuse("it begins or ends in a blank");
  for (const char c : name) {
    if (c == '/' || c == '\\') refuse("it holds a slash");
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) refuse("it holds a control character");
  }
}

// [NAME=]METABASE. An equals sign behind a slash belongs to the path.
Server parseServer(const std::string& argument) {
  const std::size_t equals = argument.find('=');
  const bool named = equals != std::string::npos && equals < argument.find('/');
  const std::string path = named ? argument.substr(equals + 1) : argument;
  if (path.empty()) throw UsageError("METABASE '" + argument + "': the path is empty");

  Server server{named ? argument.substr(0, equals) : std::string(),
                std::filesystem::absolute(path).lexically_normal()};
  if (!named) {
    std::filesystem::path file = server.file;
    if (!file.has_filename()) file = file.parent_path();
    const bool usualName = sameName(file.filename().string(), kMetabaseFile);
    server.name = usualName ? file.parent_path().filename().string() : file.stem().string();
  }
  requireServerName(server.name, argument);
  return server;
}

std::vector<Server> parseServers(const std::vector<std::string>& arguments) {
  std::vector<Server> servers;
  for (const std::string& argument : arguments) {
    Server server = parseServer(argument);
    const auto twin = std::find_if(servers.begin(), servers.end(),
                                   [&](const Server& other) { return sameName(other.name, server.name); });
    if (twin != servers.end()) {
      throw UsageError("METABASE '" + argument + "': the server " + server.name + " is given already, as " +
                       twin->file.string());
    }
    servers.push_back(std::move(server));
  }
  return servers;
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
  options.servers = parseServers(raw.metabases);
  options.database = wholePath("--database", raw.database);
  options.logDirectory =
      raw.logDirectory.empty() ? options.database.parent_path() : wholePath("--log-dir", raw.logDirectory);
  options.selection = select(raw.only, raw.sites, raw.pools);
  options.jobs = raw.jobs;
  options.quiet = raw.quiet;
  return options;
}

ShowOptions showOptions(const Raw& raw) {
  ShowOptions options{raw.table, wholePath("--database", raw.database), Format::kTable};
  if (sameName(raw.format, "csv")) options.format = Format::kCsv;
  if (sameName(raw.format, "json")) options.format = Format::kJson;
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
    const bool known = parser.collect->parsed() || parser.show->parsed();
    if (!known && arguments[1][0] != '-') {
      throw UsageError(std::string("there is no command '") + arguments[1] + "'; there are: collect, show");
    }
    const std::string command = parser.collect->parsed() ? " collect" : parser.show->parsed() ? " show" : "";
    throw UsageError(std::string(error.what()) + " (see 'iisinventory" + command + " --help')");
  }
  if (parser.collect->parsed()) return collectOptions(parser.raw);
  return showOptions(parser.raw);
}

std::string programHelp() {
  return Parser().app.help();
}

}  // namespace host
