#include "host/cli/command_options.h"

#include "host/query/copy.h"

namespace host {
namespace {

constexpr const char* kCopyFooter =
    "Copies every kept collection of the servers, replacing those in TO; all\n"
    "servers or none. Exit status: 0 all, 1 a server is missing, 2 nothing\n"
    "was copied, or the outcome is unknown.\n"
    "\n"
    "Examples:\n"
    "  iisinventory copy --from inventory.db --to postgresql://iis@db1/inventory\n"
    "  iisinventory copy --from service=fleet --to extract.db --server WEB01";

struct Raw {
  DatabaseArguments database;
  std::string from;
  std::string to;
  std::vector<std::string> servers;
};

CopyOptions optionsOf(const Raw& raw) {
  refuseEmpty("--server", raw.servers);
  CopyOptions options{databaseName("--from", raw.from), databaseName("--to", raw.to), raw.servers,
                      raw.database.access()};
  if (options.from == options.to) throw UsageError("--from and --to name the same database");
  return options;
}

}  // namespace

void addCopy(Program& program, CommandAction& action) {
  const auto raw = std::make_shared<Raw>();
  Command command = program.add("copy", "Copy servers from one database to another");
  command.option("--from", raw->from, "DATABASE", "Database to copy from: file or address",
                 Presence::kRequired);
  command.option("--to", raw->to, "DATABASE", "Database to copy to", Presence::kRequired);
  command.list("--server", raw->servers, "NAME", "Copy only this server (repeatable)");
  addSchema(command, raw->database);
  addWait(command, raw->database);
  addForce(command, raw->database);
  command.footer(kCopyFooter);
  command.onParsed([raw, &action] {
    action = [options = optionsOf(*raw)](Output& output) { return copy(options, output); };
  });
}

}  // namespace host
