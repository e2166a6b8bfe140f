// The commands about whole servers: "servers", "remove" and "rename".

#include <CLI/CLI.hpp>

#include "host/cli/command_options.h"
#include "host/console/listing.h"
#include "host/console/terminal_text.h"
#include "host/console/text.h"
#include "host/query/retry.h"
#include "host/query/servers.h"
#include "host/sources/server_name.h"

namespace host {
namespace {

using Collections = std::vector<inventory::CollectionInfo>;
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
    "0 done, 2 nothing was removed, or the outcome is unknown.\n"
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

// The checked options of a command.
struct Request {
  std::string database;
  inventory::Access access;
  Format format = Format::kTable;
  Strings servers;
  bool history = false;
};

Request requestOf(const Raw& raw, const char* serverOption) {
  refuseEmpty(serverOption, raw.servers);
  return {raw.database.name(), raw.database.access(), formatOf(raw.format), raw.servers, raw.history};
}

// A time, in a table without seconds.
Value timeFor(Format format, const std::string& time) {
  if (time.empty()) return {};
  return format == Format::kTable && time.size() >= 16 ? time.substr(0, 10) + " " + time.substr(11, 5) : time;
}

struct Kept {
  Collections collections;
  int keep = 1;
};

Kept readCollections(const Request& request) {
  const auto inventory = inventory::openForReading(request.database, request.access);
  Kept kept;
  kept.keep = inventory->keep();
  inventory::Reader reader = inventory->read(reportSuccessor);
  kept.collections = request.servers.empty() ? reader.collections() : chosenServers(reader, request.servers);
  if (!request.history) return kept;
  Strings names;
  for (const inventory::CollectionInfo& each : kept.collections) names.push_back(each.server);
  kept.collections = reader.history(names);
  return kept;
}

Listing listCollections(const Request& request, const Collections& collections) {
  const auto value = [](const std::string& text) { return text.empty() ? Value() : Value(text); };
  std::vector<Row> list;
  for (const inventory::CollectionInfo& each : collections) {
    Row row{each.server, timeFor(request.format, each.published), std::to_string(each.rows),
            std::to_string(each.problems), std::to_string(each.notes)};
    if (request.history) {
      row.insert(row.end(), {each.isCurrent ? "yes" : "no", value(each.selection), value(each.collectedBy),
                             value(each.machine)});
    }
    row.push_back(value(each.file));
    list.push_back(std::move(row));
  }
  Listing listing{
      {{"Server"}, {"Collected"}, {"Rows", true}, {"Problems", true, false, true}, {"Notes", true}}, {}};
  if (request.history) {
    for (const char* const name : {"Current", "Selection", "Collected by", "Machine"})
      listing.columns.push_back({name});
  }
  listing.columns.push_back({"File"});
  listing.forEachRow = [rows = std::move(list)](const std::function<void(const Row&)>& each) {
    for (const Row& row : rows) each(row);
  };
  return listing;
}

int listServers(const Request& request, Output& output) {
  const Kept kept = retryOnDisconnect([&] { return readCollections(request); });
  print(listCollections(request, kept.collections), {request.format}, output);
  if (kept.keep != 1 && request.format == Format::kTable) {
    output.write("\nkeeps the latest " + std::to_string(kept.keep) + " collections of each server" +
                 (request.history ? "\n" : " (see --history)\n"));
  }
  output.flush();
  return 0;
}

// Prints what was done; the status is 0 even if that fails.
int reportDone(Output& output, const std::string& done) {
  try {
    return printed(output, 0, [&] { output.write(done + "\n"); });
  } catch (const std::runtime_error& error) {
    printError(error.what());
  }
  return 0;
}

int setKeep(const Request& request, int count, Output& output) {
  const int before =
      retryOnDisconnect([&] { return inventory::openForReading(request.database, request.access)->keep(); });
  inventory::openForPublishing(request.database, request.access)->setKeep(count);
  const std::string what = pluralize(count, "collection", "collections") + " of each server";
  const std::string name = escapeForTerminal(inventory::shownName(request.database));
  if (count == before) return reportDone(output, name + " keeps " + what + " already");
  return reportDone(output,
                    name + " keeps " + what + " (before: " + std::to_string(before) + ")" +
                        (count < before ? "; others are deleted when their server is next published" : ""));
}

// The named servers, as the database spells them.
Strings namesOf(const Request& request) {
  return retryOnDisconnect([&] {
    const auto inventory = inventory::openForReading(request.database, request.access);
    inventory::Reader reader = inventory->read();
    Strings names;
    for (inventory::CollectionInfo& each : chosenServers(reader, request.servers))
      names.push_back(std::move(each.server));
    return names;
  });
}

}  // namespace

void addServers(CLI::App& program, CommandAction& action) {
  const auto raw = std::make_shared<Raw>();
  CLI::App& command = *program.add_subcommand("servers", "List the servers in a database");
  addDatabase(command, raw->database);
  addList(command, "--server", raw->servers, "NAME", "Only this server (repeatable)");
  command.add_flag("--history", raw->history, "List every collection that is kept");
  addFormat(command, raw->format);
  command.add_option("--set-keep", raw->keep, "Collections to keep of each server")
      ->type_name("N")
      ->check(CLI::Range(1, kMaxKeep).description(""));
  command.footer(kServersFooter);
  command.callback([raw, &action] {
    if (raw->keep > 0 && (raw->history || !raw->servers.empty()))
      throw UsageError("--set-keep excludes --history and --server");
    action = [request = requestOf(*raw, "--server"), keep = raw->keep](Output& output) {
      return keep > 0 ? setKeep(request, keep, output) : listServers(request, output);
    };
  });
}

void addRemove(CLI::App& program, CommandAction& action) {
  const auto raw = std::make_shared<Raw>();
  CLI::App& command = *program.add_subcommand("remove", "Remove servers from a database");
  command.add_option("SERVER", raw->servers, "Servers to remove")->required()->type_name("");
  addDatabase(command, raw->database);
  command.add_option("--before", raw->before, "Only collections published before it, in UTC")
      ->type_name("TIME");
  command.footer(kRemoveFooter);
  command.callback([raw, &action] {
    action = [request = requestOf(*raw, "SERVER"), before = timeOf("--before", raw->before)](Output& output) {
      const Strings servers = namesOf(request);
      const std::int64_t rows =
          inventory::openForPublishing(request.database, request.access)->remove(servers, before);
      const std::string what =
          servers.size() == 1 ? escapeForTerminal(servers.front())
                              : pluralize(static_cast<std::int64_t>(servers.size()), "server", "servers");
      return reportDone(output, "removed " +
                                    (before.empty() ? what : "collections of " + what + " before " + before) +
                                    " from " + escapeForTerminal(inventory::shownName(request.database)) +
                                    ": " + pluralize(rows, "row", "rows"));
    };
  });
}

void addRename(CLI::App& program, CommandAction& action) {
  const auto raw = std::make_shared<Raw>();
  CLI::App& command = *program.add_subcommand("rename", "Give a server in a database another name");
  command.add_option("OLD", raw->oldName, "Server to rename")->required()->type_name("");
  command.add_option("NEW", raw->newName, "Its new name")->required()->type_name("");
  addDatabase(command, raw->database);
  command.footer(kRenameFooter);
  command.callback([raw, &action] {
    if (const auto why = serverNameError(raw->newName))
      throw UsageError("NEW '" + raw->newName + "' cannot be a server's name: " + *why);
    raw->servers = {raw->oldName};
    action = [request = requestOf(*raw, "OLD"), name = raw->newName](Output& output) {
      const std::string server = namesOf(request).front();
      inventory::openForPublishing(request.database, request.access)->rename(server, name);
      return reportDone(output, "renamed " + escapeForTerminal(server) + " to " + escapeForTerminal(name) +
                                    " in " + escapeForTerminal(inventory::shownName(request.database)));
    };
  });
}

}  // namespace host
