#include "host/report_book.h"

#include <algorithm>
#include <chrono>
#include <set>
#include <utility>

#include "host/servers.h"
#include "inventory/names.h"
#include "inventory/records.h"

namespace host {
namespace {

std::string serverOf(const inventory::Table& table) {
  if (inventory::hasColumn(table, inventory::kServerColumn))
    return sqlite::quotedName(inventory::kServerColumn);
  const std::string path = sqlite::quotedName(inventory::kPathColumn);
  return "substr(" + path + ", 7, instr(substr(" + path + ", 7), '/') - 1)";
}

}  // namespace

Book::Book(const ReportOptions& options, const std::filesystem::path& folder) : file_(folder / "report.db") {
  const auto source = inventory::openForReading(options.database, options.access);
  const auto snapshot = source->snapshot();
  servers_ = chosenServers(*snapshot, options.servers);
  if (!servers_.empty()) inventory::openForPublishing(sqlite::utf8Of(file_), {})->take(*snapshot, servers_);
}

void Book::open() {
  if (servers_.empty()) return;
  inventory_ = inventory::openForReading(sqlite::utf8Of(file_), {});
  database_ = std::make_unique<sqlite::Database>(file_, sqlite::Database::Mode::kReadWrite,
                                                 std::chrono::milliseconds(0));
  spellServersAlike();
  for (const inventory::Table& table : inventory::tables()) {
    for (const std::string_view key : {inventory::kSiteColumn, inventory::kPoolColumn}) {
      if (!inventory::hasColumn(table, key)) continue;
      database_->execute("create index " +
                         sqlite::quotedName("report " + std::string(table.name) + std::string(key)) + " on " +
                         sqlite::quotedName(table.name) + " (" + sqlite::quotedName(key) + ", " +
                         serverOf(table) + " collate nocase)");
    }
  }
  snapshot_ = inventory_->snapshot();
  notKnown_ = inventory::readNotKnown(*snapshot_, servers_);
  coverage_ = inventory::Coverage::read(*snapshot_, servers_);
}

// SQLite folds ASCII alone, and collections may have spelled a name differently.
void Book::spellServersAlike() {
  std::set<std::string> spelledOtherwise;
  for (const inventory::Table* const table : inventory::everyTable()) {
    auto names = database_->prepare("select distinct " + serverOf(*table) + " from " +
                                    sqlite::quotedName(table->name));
    while (names.step()) {
      const std::string name(names.text(0).value_or(""));
      const auto same = std::ranges::find_if(
          servers_, [&](const std::string& server) { return inventory::sameName(server, name); });
      if (same != servers_.end() && *same != name) spelledOtherwise.insert(*same);
    }
  }
  if (spelledOtherwise.empty()) return;
  const auto inventory = inventory::openForPublishing(sqlite::utf8Of(file_), {});
  for (const std::string& server : spelledOtherwise) inventory->rename(server, server);
}

void Book::forEach(std::string_view name, const std::string& server, std::string_view key,
                   const std::string& item, const std::function<void(Cells&)>& each) {
  const std::size_t place = inventory::tableIndex(name);
  const inventory::Table& table = inventory::tables()[place];
  sqlite::Statement& statement = prepared(table, key);
  statement.bind(1, server);
  if (!key.empty()) statement.bind(2, item);
  while (statement.step()) {
    Cells row{&table, {}, {}};
    row.values.reserve(table.columns.size());
    for (std::size_t at = 0; at < table.columns.size(); ++at) {
      const auto text = statement.text(static_cast<int>(at));
      row.values.push_back(text ? std::optional<std::string>(*text) : std::nullopt);
    }
    row.notKnown =
        notKnown_.of(place, [&](std::size_t column) { return inventory::Cell(row.values[column]); });
    each(row);
  }
  statement.reset();
}

std::vector<Cells> Book::rows(std::string_view name, const std::string& server, std::string_view key,
                              const std::string& item) {
  std::vector<Cells> found;
  forEach(name, server, key, item, [&](Cells& row) { found.push_back(std::move(row)); });
  return found;
}

std::vector<std::map<std::string, std::string>> Book::own(const char* table, const std::string& server,
                                                          std::size_t most, std::size_t behind) {
  auto statement = database_->prepare("select * from " + std::string(table) +
                                      " where \"Server name\" = ?1 collate nocase order by rowid limit " +
                                      std::to_string(most) + " offset " + std::to_string(behind));
  statement.bind(1, server);
  std::vector<std::map<std::string, std::string>> all;
  while (statement.step()) {
    auto& row = all.emplace_back();
    for (int at = 0; at < statement.columnCount(); ++at)
      row[std::string(statement.columnName(at))] = statement.text(at).value_or("");
  }
  return all;
}

std::int64_t Book::count(const std::string& sql, const std::string& server) {
  auto statement = database_->prepare(sql);
  statement.bind(1, server);
  return statement.step() ? std::stoll(std::string(statement.text(0).value_or("0"))) : 0;
}

sqlite::Statement& Book::prepared(const inventory::Table& table, std::string_view key) {
  const auto [found, isNew] = statements_.try_emplace(std::string(table.name) + '\n' + std::string(key));
  sqlite::Statement& statement = found->second;
  if (isNew) {
    std::string columns;
    for (const std::string_view column : table.columns)
      columns += (columns.empty() ? "" : ", ") + sqlite::quotedName(column);
    statement = database_->prepare("select " + columns + " from " + sqlite::quotedName(table.name) +
                                   " where " + serverOf(table) + " = ?1 collate nocase" +
                                   (key.empty() ? "" : " and " + sqlite::quotedName(key) + " = ?2") +
                                   " order by rowid");
  }
  return statement;
}

}  // namespace host
