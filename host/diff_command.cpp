#include <CLI/CLI.hpp>

#include "host/commands.h"
#include "host/diff.h"

namespace host {
namespace {

constexpr const char* kFooter =
    "A site is known by its identifier, a pool and an extension by their names, a\n"
    "directory by its path. The order of rows counts nowhere; nor do the servers'\n"
    "names, what of a path or an account begins with them, and the accounts IUSR_\n"
    "and IWAM_ with the server's name.\n"
    "\n"
    "What isn't known on one side is told and is no difference.\n"
    "\n"
    "Exit status: 0 alike, 1 different, 2 trouble.\n"
    "\n"
    "Examples:\n"
    "  iisinventory diff before.db after.db\n"
    "  iisinventory diff inventory.db --server WEB01 --against WEB02\n"
    "  iisinventory diff before.db after.db --ignore State --format csv";

struct Raw {
  RawDatabase database;
  std::vector<std::string> databases;
  std::string format;
  DiffOptions options;
};

DiffOptions optionsOf(const Raw& raw) {
  DiffOptions options = raw.options;
  const bool inOne = !options.against.empty();
  if (inOne && options.server.empty()) throw UsageError("--against needs --server");
  if (raw.databases.size() != (inOne ? 1U : 2U)) {
    throw UsageError(inOne ? "--against compares two servers of one database"
                           : "two databases are to be named, or one and --server and --against");
  }
  options.old = databaseName("DATABASE", raw.databases.front());
  options.other = databaseName("DATABASE", raw.databases.back());
  options.access = raw.database.access();
  options.format = formatOf(raw.format);
  return options;
}

}  // namespace

void addDiff(CLI::App& program, Work& work) {
  const auto raw = std::make_shared<Raw>();
  CLI::App& command = *program.add_subcommand("diff", "Tell what two inventories or servers differ in");
  command.add_option("DATABASE", raw->databases, "OLD and NEW: files or servers' addresses")
      ->required()
      ->type_name("");
  command.add_option("--server", raw->options.server, "Only this server")->type_name("NAME");
  command.add_option("--against", raw->options.against, "Another server of the same database")
      ->type_name("NAME");
  addList(command, "--ignore", raw->options.ignored, "COLUMN", "Leave this column out (repeatable)");
  addFormat(command, raw->format);
  addSchema(command, raw->database);
  addWait(command, raw->database);
  command.footer(kFooter);
  command.callback(
      [raw, &work] { work = [options = optionsOf(*raw)](Output& output) { return diff(options, output); }; });
}

}  // namespace host
