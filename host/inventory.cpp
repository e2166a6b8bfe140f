#include "host/inventory.h"

#include <unistd.h>

#include <algorithm>
#include <numeric>
#include <string_view>
#include <system_error>
#include <utility>

#include "automation/failure.h"
#include "host/tables.h"

namespace host {
namespace {

using platform::store::Access;
using platform::store::Database;
using platform::store::Statement;
using platform::store::Transaction;

constexpr std::string_view kSitesTable = "tblFTPSiteInfo";
constexpr std::string_view kPoolsTable = "tblAppPoolInfo";
constexpr std::string_view kServerColumn = "Server name";
constexpr std::string_view kPathColumn = "IISPath";
constexpr std::string_view kIdentifierColumn = "Identifier";
constexpr std::string_view kPoolColumn = "Application pool name";

std::string_view itemColumn(Side side) {
  return side == Side::kFtp ? kIdentifierColumn : kPoolColumn;
}

bool hasColumn(const Table& table, std::string_view column) {
  return std::find(table.columns.begin(), table.columns.end(), column) != table.columns.end();
}

void requireColumns(Database& database, const Table& table, const std::filesystem::path& file) {
  Statement statement = database.prepare("select 1 from pragma_table_info(?) where name = ? collate nocase");
  statement.bind(1, table.name);
  for (const std::string_view column : table.columns) {
    statement.bind(2, column);
    const bool there = statement.step();
    statement.reset();
    if (there) continue;
    throw automation::Failure(
        automation::number::kItemNotInCollection,
        automation::fromUtf8("The database '" + file.string() + "' can't take an inventory: its table " +
                             std::string(table.name) + " has no column '" + std::string(column) + "'"),
        u"iisinventory");
  }
}

// The status of each extension is looked up by these two columns.
constexpr std::string_view kExtensionIndex =
    "create index if not exists \"tblWSExtension names\" on tblWSExtension (\"Server name\", \"Web service "
    "extension\")";

void makeTables(Database& database, const std::filesystem::path& file) {
  Transaction transaction(database);
  for (const Table& table : tables()) {
    database.execute(creationSql(table));
    requireColumns(database, table, file);
  }
  database.execute(kExtensionIndex);
  transaction.commit();
}

// A database under a name of its own, which is gone in the end.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::filesystem::path& file)
      : path_(file.string() + "." + std::to_string(::getpid()) + ".new") {}
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    std::error_code ignored;
    for (const char* ending : {"", "-wal", "-shm", "-journal"}) {
      std::filesystem::remove(path_.string() + ending, ignored);
    }
  }

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// The file gets its name when it is whole, so nobody ever meets half of it. One that somebody else has made
// in the meantime stays.
void makeInventory(const std::filesystem::path& file) {
  const TemporaryFile temporary(file);
  {
    Database database = Database::create(temporary.path());
    makeTables(database, file);
  }
  std::error_code error;
  std::filesystem::create_hard_link(temporary.path(), file, error);
  // Not every file system has links.
  if (error && !std::filesystem::exists(file)) std::filesystem::rename(temporary.path(), file);
}

// The server that a row is about. Rows of virtual directories tell it by the beginning of their path only,
// which is IIS://server/.
std::string serverExpression(const Table& table) {
  if (hasColumn(table, kServerColumn)) return quotedName(kServerColumn);
  const std::string path = "substr(" + quotedName(kPathColumn) + ", 7)";
  return "substr(" + path + ", 1, instr(" + path + ", '/') - 1) collate nocase";
}

std::string placeholders(std::size_t count) {
  std::string list = "?";
  for (std::size_t at = 1; at < count; ++at) list += ", ?";
  return list;
}

// SQLite's limit for the parameters of one statement is far beyond this.
constexpr std::size_t kMostParameters = 500;

std::int64_t removeRows(Database& database, const Table& table, const std::string& server,
                        const std::string& condition, Side side, const std::vector<std::string>& items) {
  const std::string sql =
      "delete from " + quotedName(table.name) + " where " + serverExpression(table) + " = ?" + condition;
  std::int64_t removed = 0;
  std::size_t next = 0;
  do {
    const std::size_t count = std::min(items.size() - next, kMostParameters);
    std::string itemCondition;
    if (count > 0)
      itemCondition = " and " + quotedName(itemColumn(side)) + " in (" + placeholders(count) + ")";
    Statement statement = database.prepare(sql + itemCondition);
    statement.bind(1, server);
    for (std::size_t at = 0; at < count; ++at) statement.bind(static_cast<int>(at) + 2, items[next + at]);
    statement.step();
    removed += database.changes();
    next += count;
  } while (next < items.size());
  return removed;
}

}  // namespace

RowCounts operator-(RowCounts left, const RowCounts& right) {
  for (std::size_t at = 0; at < left.size(); ++at) left[at] -= right[at];
  return left;
}

RowCounts operator+(RowCounts left, const RowCounts& right) {
  for (std::size_t at = 0; at < left.size(); ++at) left[at] += right[at];
  return left;
}

std::int64_t total(const RowCounts& counts) {
  return std::accumulate(counts.begin(), counts.end(), std::int64_t{0});
}

Database openInventory(const std::filesystem::path& file) {
  std::error_code error;
  if (!std::filesystem::exists(file, error) && !error) makeInventory(file);
  Database database = Database::openExisting(file, Access::kReadWrite);
  makeTables(database, file);
  return database;
}

RowCounts clearRows(Database& database, const std::string& server, const Selection& selection) {
  RowCounts removed(tables().size(), 0);
  const auto remove = [&](std::string_view name, const std::string& condition, Side side,
                          const std::vector<std::string>& items) {
    const std::size_t index = tableIndex(name);
    removed[index] += removeRows(database, tables()[index], server, condition, side, items);
  };

  Transaction transaction(database);
  if (selection.needsList(Side::kFtp)) remove(kSitesTable, "", Side::kFtp, {});
  if (selection.needsList(Side::kPools)) remove(kPoolsTable, "", Side::kPools, {});
  for (const Gathering* gathering : selection.gatherings) {
    const Side side = gathering->side;
    for (const std::string_view name : gathering->tables) {
      // Rows of sites and of pools stand side by side in one table.
      std::string condition;
      if (hasColumn(tables()[tableIndex(name)], kPoolColumn) &&
          hasColumn(tables()[tableIndex(name)], kIdentifierColumn)) {
        condition = " and " + quotedName(kPoolColumn) + (side == Side::kFtp ? " is null" : " is not null");
      }
      const bool single = gathering->kind != Kind::kExtensions;
      remove(name, condition, side,
             !single              ? std::vector<std::string>()
             : side == Side::kFtp ? selection.sites
                                  : selection.pools);
    }
  }
  transaction.commit();
  return removed;
}

RowCounts countRows(Database& database, const std::vector<std::string>& servers) {
  RowCounts counts(tables().size(), 0);
  for (std::size_t table = 0; table < counts.size(); ++table) {
    for (std::size_t next = 0; next < servers.size(); next += kMostParameters) {
      const std::size_t count = std::min(servers.size() - next, kMostParameters);
      Statement statement =
          database.prepare("select count(*) from " + quotedName(tables()[table].name) + " where " +
                           serverExpression(tables()[table]) + " in (" + placeholders(count) + ")");
      for (std::size_t at = 0; at < count; ++at) statement.bind(static_cast<int>(at) + 1, servers[next + at]);
      if (statement.step()) counts[table] += statement.columnInt64(0);
    }
  }
  return counts;
}

std::vector<std::string> listedItems(Database& database, const std::string& server, Side side) {
  Statement statement = database.prepare("select " + quotedName(itemColumn(side)) + " from " +
                                         quotedName(side == Side::kFtp ? kSitesTable : kPoolsTable) +
                                         " where \"Server name\" = ? order by rowid");
  statement.bind(1, server);
  std::vector<std::string> items;
  while (statement.step()) {
    if (auto item = statement.columnText(0)) items.push_back(std::move(*item));
  }
  return items;
}

}  // namespace host
