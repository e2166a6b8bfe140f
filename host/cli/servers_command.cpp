// The commands about whole servers: "servers", "remove" and "rename".

#include "host/cli/command_options.h"
#include "host/query/server_commands.h"
#include "host/sources/server_name.h"

namespace host {
namespace {

using Strings = std::vector<std::string>;

constexpr int kMaxKeep = 1000;

constexpr const char* kServersFooter =
    "Times are UTC. A database keeps the latest N collections of each server, 1 by\n"
    "default; older ones are deleted when the server is next published.\n"
    "\n"
    "Examples:\n"
    "  iisinventory servers -d inventory.db\n"
    "  iisinventory servers -d inventory.db --format csv\n"
    "  iisinventory servers -d inventory.db --history --server WEB01\n"
    "  iisinventory servers -d inventory.db --set-keep 12";

constexpr const char* kRemoveFooter =
    "Removes all of the servers, or none; with --before only their collections that\n"
    "were published earlier, except the current ones. Logs are kept. Exit status:\n"
    "0 done, 2 nothing was removed, or the outcome is unknown. An argument that is a\n"
    "file or a server's address is the database.\n"
    "\n"
    "Examples:\n"
    "  iisinventory remove WEB01 WEB02 -d inventory.db\n"
    "  iisinventory remove WEB01 -d inventory.db --before 2026-01-31";

constexpr const char* kRenameFooter =
    "The rows, the paths that begin with the name, the collections and the problems\n"
    "get the new one. Accounts and other values are not changed, nor are the logs.\n"
    "Fails if there is a server of the new name. Exit status: 0 done, 2 nothing was\n"
    "renamed, or the outcome is unknown.\n"
    "\n"
    "Example:\n"
    "  iisinventory rename WEB1 WEB01 -d inventory.db";

struct Raw {
  DatabaseArguments database;
  std::string format;
  Strings servers;
  bool history = false;
  int keep = 0;  // 0 if not given
  std::string before;
  std::string oldName;
  std::string newName;
};

ServersRequest requestOf(const Raw& raw, const char* serverOption) {
  refuseEmpty(serverOption, raw.servers);
  return {raw.database.name(), raw.database.access(), formatOf(raw.format), raw.servers, raw.history};
}

}  // namespace

void addServers(Program& program, CommandAction& action) {
  const auto raw = std::make_shared<Raw>();
  Command command = program.add("servers", "List the servers in a database");
  addDatabaseOrArgument(command, raw->database);
  command.list("--server", raw->servers, "NAME", "Only this server, with * and ? (repeatable)");
  command.flag("--history", raw->history, "List every collection that is kept");
  addFormat(command, raw->format);
  command.number("--set-keep", raw->keep, 1, kMaxKeep, "N", "Collections to keep of each server");
  command.footer(kServersFooter);
  command.onParsed([raw, &action] {
    if (raw->keep > 0 && (raw->history || !raw->servers.empty()))
      throw UsageError("--set-keep excludes --history and --server");
    action = [request = requestOf(*raw, "--server"), keep = raw->keep](Output& output) {
      return keep > 0 ? setKeep(request, keep, output) : listServers(request, output);
    };
  });
}

void addRemove(Program& program, CommandAction& action) {
  const auto raw = std::make_shared<Raw>();
  Command command = program.add("remove", "Remove servers from a database");
  command.argument("SERVER", raw->servers, "Servers to remove, with * and ?", Presence::kRequired);
  addDatabase(command, raw->database);
  command.option("--before", raw->before, "TIME", "Only collections published before it, in UTC");
  command.footer(kRemoveFooter);
  command.onParsed([raw, &action] {
    raw->database.takeFrom(raw->servers);
    action = [request = requestOf(*raw, "SERVER"), before = timeOf("--before", raw->before)](Output& output) {
      return removeServers(request, before, output);
    };
  });
}

void addRename(Program& program, CommandAction& action) {
  const auto raw = std::make_shared<Raw>();
  Command command = program.add("rename", "Give a server in a database another name");
  command.argument("OLD", raw->oldName, "Server to rename", Presence::kRequired);
  command.argument("NEW", raw->newName, "Its new name", Presence::kRequired);
  addDatabase(command, raw->database);
  command.footer(kRenameFooter);
  command.onParsed([raw, &action] {
    if (const auto why = serverNameError(raw->newName))
      throw UsageError("NEW '" + raw->newName + "' cannot be a server's name: " + *why);
    raw->servers = {raw->oldName};
    action = [request = requestOf(*raw, "OLD"), name = raw->newName](Output& output) {
      return renameServer(request, name, output);
    };
  });
}

}  // namespace host
