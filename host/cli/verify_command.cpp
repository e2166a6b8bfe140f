// The command "verify".

#include "host/cli/command_options.h"
#include "host/console/terminal_text.h"
#include "host/console/text.h"
#include "host/query/retry.h"

namespace host {
namespace {

constexpr const char* kFooter =
    "Checks the database's own structures, the row counts of every collection, and\n"
    "that nothing refers to a missing row. Exit status: 0 no problems found,\n"
    "1 problems, 2 on errors.\n"
    "\n"
    "Examples:\n"
    "  iisinventory verify inventory.db\n"
    "  iisinventory verify postgresql://iis@db1/inventory";

struct Verified {
  std::vector<std::string> problems;
  std::int64_t collections = 0;
  std::int64_t servers = 0;
};

Verified readVerified(const std::string& database, const inventory::Access& access) {
  const auto inventory = inventory::openForReading(database, access);
  Verified verified;
  verified.problems = inventory->verify();
  if (!verified.problems.empty()) return verified;
  for (const inventory::CollectionInfo& each : inventory->read().history()) {
    ++verified.collections;
    if (each.isCurrent) ++verified.servers;
  }
  return verified;
}

int verify(const std::string& database, const inventory::Access& access, Output& output) {
  const Verified verified = retryOnDisconnect([&] { return readVerified(database, access); });
  const int status = verified.problems.empty() ? 0 : 1;
  return printed(output, status, [&] {
    for (const std::string& problem : verified.problems) output.write(escapeForTerminal(problem) + "\n");
    if (status == 0) {
      output.write(escapeForTerminal(inventory::shownName(database)) + ": " +
                   pluralize(verified.collections, "collection", "collections") + " of " +
                   pluralize(verified.servers, "server", "servers") + ", no problems found\n");
    }
  });
}

}  // namespace

void addVerify(Program& program, CommandAction& action) {
  const auto raw = std::make_shared<DatabaseArguments>();
  Command command = program.add("verify", "Check a database for damage");
  addDatabaseOrArgument(command, *raw);
  command.footer(kFooter);
  command.onParsed([raw, &action] {
    action = [database = raw->name(), access = raw->access()](Output& output) {
      return verify(database, access, output);
    };
  });
}

}  // namespace host
