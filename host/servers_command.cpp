// The commands about whole servers: "servers", "remove" and "rename".

#include <CLI/CLI.hpp>
#include <map>

#include "host/commands.h"
#include "host/listing.h"
#include "host/problem_groups.h"
#include "host/servers.h"
#include "host/terminal_text.h"
#include "inventory/names.h"
#include "inventory/records.h"

namespace host {
namespace {

constexpr const char* kServersFooter =
    "Collected and File tell of the last collection, in UTC; the numbers of all that\n"
    "stands for a server.\n"
    "\n"
    "Examples:\n"
    "  iisinventory servers -d inventory.db\n"
    "  iisinventory servers -d inventory.db --format csv";

constexpr const char* kRemoveFooter =
    "All of them are removed, or none. The logs stay. Exit status: 0 done, 2 nothing\n"
    "was removed.\n"
    "\n"
    "Example:\n"
    "  iisinventory remove WEB01 WEB02 -d inventory.db";

constexpr const char* kRenameFooter =
    "The rows, the paths that begin with the name, the collections and the problems\n"
    "get the new one; accounts and other values stay as they were read, and so do the\n"
    "logs. A server of the new name must not be there. Exit status: 0 done, 2 nothing\n"
    "was renamed.\n"
    "\n"
    "Example:\n"
    "  iisinventory rename WEB1 WEB01 -d inventory.db";

struct Raw {
  RawDatabase database;
  std::string format;
  std::vector<std::string> servers;
  std::string former;
  std::string next;
};

// What stands for a server.
struct Standing {
  std::string collected;
  std::string file;
  std::int64_t rows = 0;
  std::int64_t problems = 0;
  std::int64_t notes = 0;
};

// For people to the minute.
Value timeFor(Format format, const std::string& time) {
  if (time.empty()) return {};
  return format == Format::kTable && time.size() >= 16 ? time.substr(0, 10) + " " + time.substr(11, 5) : time;
}

Listing listServers(const std::string& database, const inventory::Access& access, Format format) {
  const auto inventory = inventory::openForReading(database, access);
  const auto snapshot = inventory->snapshot();
  const std::vector<std::string> servers = chosenServers(*snapshot, {});
  std::map<std::string, Standing> standings;
  for (const inventory::Table* const table : inventory::everyTable()) {
    const auto rows = snapshot->rowsOf(std::string(table->name), servers);
    const auto text = [&](std::string_view column) {
      return std::string(rows->cell(inventory::columnIndex(*table, column)).value_or(""));
    };
    while (rows->next()) {
      Standing& standing = standings[rows->server()];
      if (table->name == inventory::kCollections) {
        standing.collected = text("Published");
        standing.file = text("File");
      } else if (table->name == inventory::kProblems) {
        ++(text("Kind") == "note" ? standing.notes : standing.problems);
      } else {
        ++standing.rows;
      }
    }
  }
  std::vector<Row> list;
  for (const std::string& name : servers) {
    const Standing& each = standings[inventory::folded(name)];
    list.push_back({name, timeFor(format, each.collected), std::to_string(each.rows),
                    std::to_string(each.problems), std::to_string(each.notes),
                    each.file.empty() ? Value() : Value(each.file)});
  }
  Listing listing{
      {{"Server"}, {"Collected"}, {"Rows", true}, {"Problems", true, false, true}, {"Notes", true}, {"File"}},
      {}};
  listing.forEachRow = [rows = std::move(list)](const std::function<void(const Row&)>& each) {
    for (const Row& row : rows) each(row);
  };
  return listing;
}

// The servers that are meant, as the database spells them.
std::vector<std::string> meant(const std::string& database, const inventory::Access& access,
                               const std::vector<std::string>& names) {
  const auto inventory = inventory::openForReading(database, access);
  return chosenServers(*inventory->snapshot(), names);
}

// Once more, as a whole, where the server of the database is lost.
template <typename Task>
decltype(auto) twice(const Task& task) {
  try {
    return task();
  } catch (const inventory::Unreachable&) {
    return task();
  }
}

// Tells of what is done, and stays so whether anybody takes it or not.
int tell(Output& output, const std::string& done) {
  try {
    output.write(done + "\n");
    output.flush();
  } catch (const OutputClosed&) {
    // Nobody wants to know.
  } catch (const std::runtime_error& error) {
    complain(error.what());
  }
  return 0;
}

}  // namespace

void addServers(CLI::App& program, Work& work) {
  const auto raw = std::make_shared<Raw>();
  CLI::App& command = *program.add_subcommand("servers", "List the servers in a database");
  addDatabase(command, raw->database);
  addFormat(command, raw->format);
  command.footer(kServersFooter);
  command.callback([raw, &work] {
    work = [format = formatOf(raw->format), database = raw->database.name(),
            access = raw->database.access()](Output& output) {
      print(twice([&] { return listServers(database, access, format); }), {format}, output);
      output.flush();
      return 0;
    };
  });
}

void addRemove(CLI::App& program, Work& work) {
  const auto raw = std::make_shared<Raw>();
  CLI::App& command = *program.add_subcommand("remove", "Remove servers from a database");
  command.add_option("SERVER", raw->servers, "Servers to remove")->required()->type_name("");
  addDatabase(command, raw->database);
  command.footer(kRemoveFooter);
  command.callback([raw, &work] {
    refuseEmpty("SERVER", raw->servers);
    work = [names = raw->servers, database = raw->database.name(),
            access = raw->database.access()](Output& output) {
      const std::vector<std::string> servers = twice([&] { return meant(database, access, names); });
      const std::int64_t rows = inventory::openForPublishing(database, access)->remove(servers);
      return tell(output, "removed " +
                              (servers.size() == 1 ? harmless(servers.front())
                                                   : counted(static_cast<std::int64_t>(servers.size()),
                                                             "server", "servers")) +
                              " from " + harmless(inventory::shownName(database)) + ": " +
                              counted(rows, "row", "rows"));
    };
  });
}

void addRename(CLI::App& program, Work& work) {
  const auto raw = std::make_shared<Raw>();
  CLI::App& command = *program.add_subcommand("rename", "Give a server in a database another name");
  command.add_option("OLD", raw->former, "Server to rename")->required()->type_name("");
  command.add_option("NEW", raw->next, "Its new name")->required()->type_name("");
  addDatabase(command, raw->database);
  command.footer(kRenameFooter);
  command.callback([raw, &work] {
    if (const auto why = whyNoName(raw->next))
      throw UsageError("NEW '" + raw->next + "' can't be a server's name, " + *why);
    work = [former = raw->former, next = raw->next, database = raw->database.name(),
            access = raw->database.access()](Output& output) {
      const std::string server = twice([&] { return meant(database, access, {former}); }).front();
      inventory::openForPublishing(database, access)->rename(server, next);
      return tell(output, "renamed " + harmless(server) + " to " + harmless(next) + " in " +
                              harmless(inventory::shownName(database)));
    };
  });
}

}  // namespace host
