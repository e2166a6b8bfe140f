#include "inventory/inventory.h"

#include <algorithm>
#include <cctype>
#include <optional>

#include "inventory/clock.h"
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

std::vector<std::string> foldedAll(const std::vector<std::string>& names) {
  std::vector<std::string> keys;
  for (const std::string& name : names) keys.push_back(folded(name));
  return keys;
}

}  // namespace

Inventory::Inventory(std::unique_ptr<Driver> driver, bool force)
    : driver_(std::move(driver)), force_(force) {}

Inventory::~Inventory() = default;

Change Inventory::changeOf(std::vector<std::string> keys, std::string subject) {
  Change change;
  change.serverKeys = std::move(keys);
  change.subject = std::move(subject);
  change.prepare = [this](Session& session, bool mayChange) {
    return prepareSchema(session, shownName(), force_, mayChange);
  };
  return change;
}

void Inventory::checkWritable() {
  driver_->checkWritable([this](Session& session) { prepareSchema(session, shownName(), force_, false); });
}

std::vector<Published> Inventory::publish(std::span<const Collected> collected,
                                          const PublishOptions& options) {
  std::vector<std::string> keys;
  for (const Collected& each : collected) keys.push_back(folded(each.origin.server));
  Change change = changeOf(keys, collected.size() == 1 ? collected[0].origin.server : "one of these servers");
  std::vector<Published> published;
  std::optional<std::map<std::string, KnownServer>> before;
  change.work = [&](Session& session, bool again) {
    std::map<std::string, KnownServer> now = findServers(session, keys);
    if (again && before) requireUnchanged(*before, now);
    before = std::move(now);
    published = publishAll(session, collected, options);
  };
  driver_->change(change);
  for (const Published& each : published) addedRows_ += sumOf(each.added);
  return published;
}

Published Inventory::copyFrom(Inventory& source, const std::vector<std::string>& servers) {
  const std::vector<std::string> keys = foldedAll(servers);
  Change change = changeOf(keys, servers.size() == 1 ? servers[0] : "one of these servers");
  Published copied;
  std::optional<std::map<std::string, KnownServer>> before;
  change.effect = "have been copied";
  change.work = [&](Session& session, bool again) {
    std::map<std::string, KnownServer> now = findServers(session, keys);
    if (again && before) requireUnchanged(*before, now);
    before = std::move(now);
    copied = copyServers(source.driver(), session, servers);
  };
  driver_->change(change);
  addedRows_ += sumOf(copied.added);
  return copied;
}

std::int64_t Inventory::remove(const std::vector<std::string>& servers, const std::string& before) {
  const std::vector<std::string> keys = foldedAll(servers);
  Change change = changeOf(keys, servers.size() == 1 ? servers[0] : "one of these servers");
  std::int64_t rows = 0;
  std::optional<std::map<std::string, KnownServer>> seen;
  change.effect = "have been removed";
  change.work = [&](Session& session, bool) {
    const std::map<std::string, KnownServer> known = findServers(session, keys);
    if (seen) requireUnchanged(*seen, known);
    seen = known;
    for (std::size_t at = 0; at < keys.size(); ++at) {
      if (!known.contains(keys[at])) failMissing(servers[at]);
    }
    rows = removeServers(session, known, before);
  };
  driver_->change(change);
  return rows;
}

void Inventory::rename(const std::string& server, const std::string& name) {
  std::vector<std::string> keys{folded(server)};
  if (!sameName(server, name)) keys.push_back(folded(name));
  Change change = changeOf(keys, server);
  std::optional<std::map<std::string, KnownServer>> seen;
  change.effect = "have been renamed";
  change.work = [&](Session& session, bool) {
    const std::map<std::string, KnownServer> known = findServers(session, keys);
    if (seen) requireUnchanged(*seen, known);
    seen = known;
    if (!known.contains(keys.front())) failMissing(server);
    if (keys.size() > 1 && known.contains(keys.back())) {
      throw Error("cannot rename " + server + ": the database '" + shownName() + "' already has a server '" +
                  known.at(keys.back()).name + "' (remove it first: iisinventory remove)");
    }
    renameServer(session, known.at(keys.front()), name);
  };
  driver_->change(change);
}

int Inventory::keep() {
  const auto session = driver_->read();
  requireInventory(*session, shownName());
  return readKeep(*session);
}

void Inventory::setKeep(int count) {
  Change change = changeOf({}, "the settings");
  change.effect = "have been changed";
  change.work = [&](Session& session, bool) {
    session.execute("update " + session.dialect().table("settings") + " set value = $1 where name = 'keep'",
                    {std::to_string(count)});
  };
  driver_->change(change);
}

std::vector<std::string> Inventory::verify() {
  std::vector<std::string> lines = driver_->checkIntegrity();
  if (!lines.empty()) return lines;
  const auto session = driver_->read();
  requireInventory(*session, shownName());
  return verifyContents(*session);
}

void Inventory::finishPublishing() {
  if (addedRows_.exchange(0) < kManyRows) return;
  std::vector<std::string> names;
  for (const Table& table : tables()) names.emplace_back(table.name);
  for (const Table& table : ownTables()) names.emplace_back(table.name);
  driver_->analyze(names);
}

void Inventory::failMissing(const std::string& server) const {
  throw Error("the database '" + shownName() + "' has no server '" + server + "'");
}

// After a lost connection: another process may have published one of the servers meanwhile.
void Inventory::requireUnchanged(const std::map<std::string, KnownServer>& before,
                                 const std::map<std::string, KnownServer>& now) {
  for (const auto& [key, server] : now) {
    const auto former = before.find(key);
    if ((former == before.end() ? 0 : former->second.current) == server.current) continue;
    throw ServerRefused("another process published " + server.name + " while the connection was lost");
  }
}

bool isOnServer(std::string_view database) {
  return postgres::isAddress(database);
}

std::string shownName(const std::string& database) {
  return isOnServer(database) ? postgres::shownAddress(database) : database;
}

std::unique_ptr<Inventory> openForReading(const std::string& database, const Access& access) {
  return std::make_unique<Inventory>(
      isOnServer(database) ? openPostgres(database, access) : openSqlite(database, access, false),
      access.force);
}

std::unique_ptr<Inventory> openForPublishing(const std::string& database, const Access& access) {
  auto inventory = std::make_unique<Inventory>(
      isOnServer(database) ? openPostgres(database, access) : openSqlite(database, access, true),
      access.force);
  inventory->checkWritable();
  return inventory;
}

std::string momentOf(const std::string& text) {
  constexpr std::string_view kForm = "0000-00-00T00:00:00.000Z";
  std::string moment = text;
  if (moment.size() > 10 && moment[10] == ' ') moment[10] = 'T';
  if (moment.ends_with('Z')) moment.pop_back();
  const bool isLongEnough =
      moment.size() == 10 || moment.size() == 16 || moment.size() == 19 || moment.size() == 23;
  bool isMoment = isLongEnough;
  for (std::size_t at = 0; isMoment && at < moment.size(); ++at) {
    const bool isDigit = std::isdigit(static_cast<unsigned char>(moment[at])) != 0;
    isMoment = kForm[at] == '0' ? isDigit : moment[at] == kForm[at];
  }
  if (!isMoment) {
    throw Error("'" + text +
                "' is not a time such as 2026-01-31, 2026-01-31T12:00 or 2026-01-31T12:00:00Z (UTC)");
  }
  return moment + std::string(kForm.substr(moment.size()));
}

}  // namespace inventory
