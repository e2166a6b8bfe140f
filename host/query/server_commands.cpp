#include "host/query/server_commands.h"

#include <fmt/core.h>

#include <functional>
#include <utility>

#include "host/console/terminal_text.h"
#include "host/console/text.h"
#include "host/query/retry.h"
#include "host/query/servers.h"
#include "host/usage_error.h"
#include "inventory/names.h"

namespace host {
namespace {

using Collections = std::vector<inventory::CollectionInfo>;
using Strings = std::vector<std::string>;

// A time, in a table without seconds.
Value timeFor(Format format, const std::string& time) {
  if (time.empty()) return {};
  return format == Format::kTable && time.size() >= 16 ? time.substr(0, 10) + " " + time.substr(11, 5) : time;
}

struct Kept {
  Collections collections;
  int keep = 1;
};

Kept readCollections(const ServersRequest& request) {
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

Listing listCollections(const ServersRequest& request, const Collections& collections) {
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

std::string shownDatabase(const ServersRequest& request) {
  return escapeForTerminal(inventory::shownName(request.database));
}

// The named servers, as the database spells them.
Strings namesOf(const ServersRequest& request) {
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

int reportChange(Output& output, const std::string& done, int status) {
  try {
    return printed(output, status, [&] { output.write(done + "\n"); });
  } catch (const std::runtime_error& error) {
    printError(fmt::format("{} ({})", done, error.what()));
  }
  return status;
}

int listServers(const ServersRequest& request, Output& output) {
  const Kept kept = retryOnDisconnect([&] { return readCollections(request); });
  print(listCollections(request, kept.collections), {request.format}, output);
  if (kept.keep != 1 && request.format == Format::kTable) {
    output.write(fmt::format("\nkeeps the latest {} collections of each server{}\n", kept.keep,
                             request.history ? "" : " (see --history)"));
  }
  output.flush();
  return 0;
}

int setKeep(const ServersRequest& request, int count, Output& output) {
  const int before =
      retryOnDisconnect([&] { return inventory::openForReading(request.database, request.access)->keep(); });
  inventory::openForPublishing(request.database, request.access)->setKeep(count);
  const std::string keeps = fmt::format("{} keeps {} of each server", shownDatabase(request),
                                        pluralize(count, "collection", "collections"));
  if (count == before) return reportChange(output, keeps + " already");
  return reportChange(output, fmt::format("{} (before: {}){}", keeps, before,
                                          count < before ? "; others are deleted when their server is next "
                                                           "published"
                                                         : ""));
}

int removeServers(const ServersRequest& request, const std::string& before, Output& output) {
  const Strings servers = namesOf(request);
  const std::int64_t rows =
      inventory::openForPublishing(request.database, request.access)->remove(servers, before);
  constexpr std::size_t kMaxNames = 20;
  const std::string names = escapeForTerminal(joinNames(servers, kMaxNames));
  const std::string what =
      servers.size() == 1 ? names : fmt::format("{} servers ({})", servers.size(), names);
  return reportChange(
      output, fmt::format("removed {} from {}: {}",
                          before.empty() ? what : fmt::format("collections of {} before {}", what, before),
                          shownDatabase(request), pluralize(rows, "row", "rows")));
}

int renameServer(const ServersRequest& request, const std::string& name, Output& output) {
  const std::string server = namesOf(request).front(), &wanted = request.servers.front();
  if (!inventory::sameName(server, wanted))
    throw UsageError(fmt::format("OLD '{}': give a server's full name", wanted));
  inventory::openForPublishing(request.database, request.access)->rename(server, name);
  return reportChange(output, fmt::format("renamed {} to {} in {}", escapeForTerminal(server),
                                          escapeForTerminal(name), shownDatabase(request)));
}

}  // namespace host
