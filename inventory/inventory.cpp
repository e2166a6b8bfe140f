#include "inventory/inventory.h"

#include <fmt/core.h>

#include <optional>
#include <regex>

#include "inventory/copying.h"
#include "inventory/names.h"
#include "inventory/postgres/connection.h"
#include "inventory/publication.h"
#include "inventory/schema.h"
#include "inventory/verification.h"

namespace inventory {
namespace {

// Rows after which the statistics of tables are brought up to date.
constexpr std::int64_t kManyRows = 20000;

std::string subjectOf(const std::vector<std::string>& servers) {
  return servers.size() == 1 ? servers[0] : "one of these servers";
}

// After a lost connection: another process may have published one of the servers meanwhile.
void requireUnchanged(const KnownServers& before, const KnownServers& now) {
  for (const auto& [key, server] : now) {
    const auto former = before.find(key);
    if ((former == before.end() ? 0 : former->second.current) != server.current)
      throw ServerRefused(
          fmt::format("another process published {} while the connection was lost", server.name));
  }
}

std::vector<std::string> tableNames() {
  std::vector<std::string> names;
  for (const Table& table : declarations::kTables) names.emplace_back(table.name);
  return names;
}

}  // namespace

void Inventory::change(const std::vector<std::string>& servers, const std::string& subject,
                       const std::string& effect, const Work& work) {
  Change change;
  for (const std::string& server : servers) change.serverKeys.push_back(folded(server));
  change.subject = subject;
  change.effect = effect;
  change.prepare = [this](Session& session, bool mayChange) {
    return prepareSchema(session, shownName(), force_, mayChange);
  };
  std::optional<KnownServers> before;
  change.work = [&](Session& session) {
    KnownServers now = findServers(session, change.serverKeys);
    if (before) requireUnchanged(*before, now);
    before = std::move(now);
    work(session, *before);
  };
  driver_->change(change);
}

void Inventory::require(const std::string& server, const KnownServers& known) const {
  if (!known.contains(folded(server)))
    throw Error(fmt::format("the database '{}' has no server '{}'", shownName(), server));
}

void Inventory::checkWritable() {
  driver_->checkWritable(tableNames(),
                         [this](Session& session) { prepareSchema(session, shownName(), force_, false); });
}

std::vector<Published> Inventory::publish(std::span<const Collected> collected,
                                          const PublishOptions& options) {
  std::vector<std::string> servers;
  for (const Collected& each : collected) servers.push_back(each.origin.server);
  std::vector<Published> published;
  change(servers, subjectOf(servers), "have the new collection",
         [&](Session& session, const KnownServers&) { published = publishAll(session, collected, options); });
  for (const Published& each : published) addedRows_ += sumOf(each.added);
  return published;
}

Published Inventory::copyFrom(Inventory& source, const std::vector<std::string>& servers) {
  Published copied;
  change(servers, subjectOf(servers), "have been copied", [&](Session& session, const KnownServers&) {
    copied = copyServers(source.driver(), session, servers);
  });
  addedRows_ += sumOf(copied.added);
  return copied;
}

std::int64_t Inventory::remove(const std::vector<std::string>& servers, const std::string& before) {
  std::int64_t rows = 0;
  change(servers, subjectOf(servers), "have been removed", [&](Session& session, const KnownServers& known) {
    for (const std::string& server : servers) require(server, known);
    rows = removeServers(session, known, before);
  });
  return rows;
}

void Inventory::rename(const std::string& server, const std::string& name) {
  change({server, name}, server, "have been renamed", [&](Session& session, const KnownServers& known) {
    require(server, known);
    const auto other = known.find(folded(name));
    if (other != known.end() && !sameName(server, name)) {
      throw Error(
          fmt::format("cannot rename {}: the database '{}' already has a server '{}' (remove it first: "
                      "iisinventory remove)",
                      server, shownName(), other->second.name));
    }
    renameServer(session, known.at(folded(server)), name);
  });
}

int Inventory::keep() {
  const auto session = driver_->read();
  requireInventory(*session, shownName());
  return readKeep(*session);
}

void Inventory::setKeep(int count) {
  change({}, "the settings", "have been changed", [&](Session& session, const KnownServers&) {
    session.execute("update settings set value = $1 where name = 'keep'", {std::to_string(count)});
  });
}

std::vector<std::string> Inventory::verify() {
  std::vector<std::string> lines = driver_->checkIntegrity();
  if (!lines.empty()) return lines;
  const auto session = driver_->read();
  requireInventory(*session, shownName());
  return verifyContents(*session);
}

void Inventory::finishPublishing() {
  if (addedRows_.exchange(0) >= kManyRows) driver_->analyze(tableNames());
}

bool isOnServer(const std::string& database) {
  return postgres::isAddress(database);
}

std::string shownName(const std::string& database) {
  return isOnServer(database) ? postgres::shownAddress(database) : database;
}

std::unique_ptr<Inventory> openForReading(const std::string& database, const Access& access) {
  auto driver = isOnServer(database) ? openPostgres(database, access) : openSqlite(database, access, false);
  return std::make_unique<Inventory>(std::move(driver), access.force);
}

std::unique_ptr<Inventory> openForPublishing(const std::string& database, const Access& access) {
  auto driver = isOnServer(database) ? openPostgres(database, access) : openSqlite(database, access, true);
  auto inventory = std::make_unique<Inventory>(std::move(driver), access.force);
  inventory->checkWritable();
  return inventory;
}

std::string momentOf(const std::string& text) {
  static const std::regex kForm(R"((\d{4}-\d\d-\d\d)([T ](\d\d:\d\d(:\d\d(\.\d{3})?)?))?Z?)");
  std::smatch match;
  if (!std::regex_match(text, match, kForm)) {
    throw Error(fmt::format(
        "'{}' is not a time such as 2026-01-31, 2026-01-31T12:00 or 2026-01-31T12:00:00Z (UTC)", text));
  }
  const std::string moment = match.str(1) + "T" + match.str(3);
  return moment + std::string("0000-00-00T00:00:00.000Z").substr(moment.size());
}

}  // namespace inventory
