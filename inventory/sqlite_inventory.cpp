#include "inventory/sqlite_inventory.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <numeric>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

#include "inventory/records.h"
#include "inventory/remainder.h"
#include "inventory/views.h"
#include "sqlite/database.h"
#include "sqlite/feed.h"

namespace inventory {
namespace {

using nlohmann::json;
using sqlite::Database;
using sqlite::quotedName;
using sqlite::Statement;
using std::string_literals::operator""s;

constexpr std::string_view kBookkeeping = "Collections bookkeeping";

// Of each row of "Collections", which the server and the time of publication tell from others: what of it
// hasn't been replaced since, and copies of its rows that don't tell their server by themselves.
constexpr std::string_view kBookkeepingColumns[] = {"Server name", "Published", "Still current",
                                                    "Rows without a path"};

std::string namesOf(std::span<const std::string_view> columns) {
  std::string names;
  for (const std::string_view column : columns) names += (names.empty() ? "" : ", ") + quotedName(column);
  return names;
}

std::string placeholders(std::size_t count) {
  std::string list = "?";
  for (std::size_t at = 1; at < count; ++at) list += ", ?";
  return list;
}

std::string insertSql(std::string_view table, std::span<const std::string_view> columns) {
  return "insert into " + quotedName(table) + " (" + namesOf(columns) + ") values (" +
         placeholders(columns.size()) + ")";
}

std::string creationSqlOf(std::string_view table, std::span<const std::string_view> columns) {
  std::string sql;
  for (const std::string_view column : columns) {
    const ColumnType type = columnType(column);
    sql += (sql.empty() ? "" : ", ") + quotedName(column) +
           (type == ColumnType::kInteger ? " integer"
            : type == ColumnType::kReal  ? " real"
                                         : " text collate nocase");
  }
  return "create table if not exists " + quotedName(table) + " (" + sql + ")";
}

std::string indexSql(std::string_view table, const std::string& expression) {
  return "create index if not exists " + quotedName(std::string(table) + " by server") + " on " +
         quotedName(table) + " (" + expression + " collate nocase)";
}

bool isAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

bool tellsServer(const Table& table) {
  return hasColumn(table, kServerColumn);
}

// What a path says behind "IIS://" up to the next slash.
std::string serverInPath() {
  const std::string path = quotedName(kPathColumn);
  return "substr(" + path + ", 7, instr(substr(" + path + ", 7), '/') - 1)";
}

// The rows of one server: compared without regard to case as far as ASCII goes, which an index can do. What
// goes beyond is a matter of how the name is spelled in the database.
std::string serverCondition(const Table& table) {
  if (tellsServer(table)) return quotedName(kServerColumn) + " = ?1 collate nocase";
  return serverInPath() + " = ?1 collate nocase";
}

std::string kindCondition(const Table& table, ItemKind kind) {
  if (Remainder::kindsOf(table).size() < 2) return "";
  return " and " + quotedName(kPoolColumn) + (kind == ItemKind::kSite ? " is null" : " is not null");
}

std::string_view itemColumn(ItemKind kind) {
  return kind == ItemKind::kSite ? kSiteColumn : kPoolColumn;
}

// An item that is selected, or that isn't there any more. ?2 and ?3 are lists as JSON.
std::string itemCondition(std::string_view column) {
  const std::string item = "folded(" + quotedName(column) + ")";
  return " and (" + item + " in (select value from json_each(?2)) or " + item +
         " not in (select value from json_each(?3)))";
}

std::string foldedList(const std::vector<std::string>& items) {
  std::vector<std::string> list;
  for (const std::string& item : items) list.push_back(folded(item));
  return jsonList(list);
}

void fold(sqlite3_context* context, int, sqlite3_value** values) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(values[0]));
  if (text == nullptr) return sqlite3_result_null(context);
  try {
    const std::string result = folded({text, static_cast<std::size_t>(sqlite3_value_bytes(values[0]))});
    sqlite3_result_text64(context, result.data(), result.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
  } catch (const std::bad_alloc&) {
    sqlite3_result_error_nomem(context);
  }
}

// Failures of the database as those of the inventory.
template <typename Work>
decltype(auto) attempt(Work&& work) {
  try {
    return work();
  } catch (const sqlite::Error& error) {
    if (error.cause() == sqlite::Cause::kLocked) throw Locked(error.what());
    throw Error(error.what());
  }
}

std::string feedSql(const Table& table) {
  std::string columns;
  for (std::size_t at = 0; at < table.columns.size(); ++at) {
    columns += (at == 0 ? "c" : ", c") + std::to_string(at);
  }
  return "insert into " + quotedName(table.name) + " (" + namesOf(table.columns) + ") select " + columns +
         " from feed";
}

// The rows of a table on their way into it, and what is to be known of them.
class RowFeed : public sqlite::FeedSource {
 public:
  // `look` is called at each row.
  RowFeed(const Table& table, std::unique_ptr<Rows> rows, std::function<void(RowFeed&)> look = {})
      : table_(table),
        rows_(table, std::move(rows)),
        isByPath_(hasColumn(table, kPathColumn)),
        look_(std::move(look)) {}

  bool next() override {
    if (!rows_.next()) return false;
    if (isByPath_ && rows_.cell(0).value_or("").empty()) keepCopy();
    if (look_) look_(*this);
    return true;
  }

  Cell cell(int column) override { return rows_.cell(static_cast<std::size_t>(column)); }

  CheckedRows& rows() { return rows_; }
  // Copies of the rows without a path.
  std::vector<json>& pathless() { return pathless_; }

 private:
  void keepCopy() {
    json cells = json::array();
    for (std::size_t at = 0; at < table_.columns.size(); ++at) {
      const Cell value = rows_.cell(at);
      cells.push_back(value ? json(*value) : json());
    }
    pathless_.push_back(std::move(cells));
  }

  const Table& table_;
  CheckedRows rows_;
  const bool isByPath_;
  const std::function<void(RowFeed&)> look_;
  std::vector<json> pathless_;
};

// Whose a row without a path is, by table and row number.
using Pathless = std::map<std::pair<std::string, std::int64_t>, std::string>;

// The rows of some servers.
class SqliteRows : public OwnedRows {
 public:
  SqliteRows(const Table& table, Statement statement, std::set<std::string> servers, const Pathless& pathless)
      : table_(table), statement_(std::move(statement)), servers_(std::move(servers)), pathless_(pathless) {}

  bool next() override {
    while (statement_ && statement_.step()) {
      if (servers_.contains(findServer())) return true;
    }
    return false;
  }
  Cell cell(std::size_t column) override { return statement_.text(static_cast<int>(column) + 1); }
  const std::string& server() override { return server_; }

 private:
  // Rows of one server mostly stand together.
  const std::string& findServer() {
    std::string_view name = statement_.text(1).value_or("");
    if (!hasColumn(table_, kServerColumn)) {
      if (name.empty()) {
        const auto found = pathless_.find({std::string(table_.name), statement_.number(0)});
        return server_ = name_ = found != pathless_.end() ? found->second : "";
      }
      name = name.substr(std::min<std::size_t>(name.size(), 6));
      name = name.substr(0, name.find('/'));
    }
    if (name != name_) {
      name_ = name;
      server_ = folded(name);
    }
    return server_;
  }

  const Table& table_;
  Statement statement_;
  const std::set<std::string> servers_;
  const Pathless& pathless_;
  std::string name_;
  std::string server_;
};

// Cells as a statement binds them.
std::vector<std::optional<std::string>> cellsOf(const json& row) {
  std::vector<std::optional<std::string>> cells;
  for (const json& cell : row) {
    cells.push_back(cell.is_string() ? std::optional(cell.get<std::string>()) : std::nullopt);
  }
  return cells;
}

std::string sameRow(const Table& table) {
  std::string condition;
  for (const std::string_view column : table.columns) {
    condition += (condition.empty() ? "" : " and ") + quotedName(column) + " is ? collate binary";
  }
  return condition;
}

class SqliteSnapshot : public Snapshot {
 public:
  explicit SqliteSnapshot(Database& database) : database_(database), transaction_(database) {}

  std::vector<std::string> tableNames() override {
    return attempt([&] {
      Statement statement = database_.prepare(
          "select name from sqlite_schema where type = 'table' and name = ? collate nocase");
      std::vector<std::string> names;
      const auto look = [&](std::string_view table) {
        statement.bind(1, table);
        if (statement.step()) names.emplace_back(*statement.text(0));
        statement.reset();
      };
      for (const Table& table : tables()) look(table.name);
      // Somebody else's tables may have these names.
      if (names.empty()) return names;
      look(kCollections);
      look(kProblems);
      return names;
    });
  }

  std::vector<std::string> columnNames(const std::string& table) override {
    return attempt([&] {
      const Statement statement = database_.prepare("select * from " + quotedName(table));
      std::vector<std::string> names;
      for (int column = 0; column < statement.columnCount(); ++column) {
        names.push_back(statement.columnName(column));
      }
      return names;
    });
  }

  std::int64_t rowCount(const std::string& table) override {
    return attempt([&] {
      Statement statement = database_.prepare("select count(*) from " + quotedName(table));
      statement.step();
      return statement.number(0);
    });
  }

  void forEach(const std::string& table, const TakeRow& take) override {
    attempt([&] {
      Statement statement = database_.prepare("select * from " + quotedName(table) + " order by rowid");
      std::vector<Cell> row(static_cast<std::size_t>(statement.columnCount()));
      while (statement.step()) {
        for (std::size_t at = 0; at < row.size(); ++at) row[at] = statement.text(static_cast<int>(at));
        take(row);
      }
    });
  }

  std::vector<std::string> servers() override {
    return attempt([&] {
      std::map<std::string, std::string> names;  // by their folded names
      const auto look = [&](const std::string& table, const std::string& name) {
        Statement found = database_.prepare("select distinct " + name + " collate binary from " +
                                            quotedName(table) + " where " + name + " <> '' order by rowid");
        while (found.step()) names[folded(*found.text(0))] = *found.text(0);
      };
      // What the last collection says comes last.
      const std::vector<std::string> there = tableNames();
      for (const Table& table : tables()) {
        if (std::ranges::find(there, table.name) == there.end()) continue;
        look(std::string(table.name), tellsServer(table) ? quotedName(kServerColumn) : serverInPath());
      }
      if (std::ranges::find(there, kCollections) != there.end()) {
        look(std::string(kCollections), quotedName(kServerColumn));
      }
      std::vector<std::string> all;
      for (const auto& [key, name] : names) all.push_back(name);
      return all;
    });
  }

  std::unique_ptr<OwnedRows> rowsOf(const std::string& table,
                                    const std::vector<std::string>& servers) override {
    return attempt([&] {
      std::set<std::string> wanted;
      for (const std::string& server : servers) wanted.insert(folded(server));
      const std::vector<const Table*> all = everyTable();
      const Table& known = **std::ranges::find(all, table, &Table::name);
      const std::vector<std::string> there = tableNames();
      Statement statement;
      if (std::ranges::find(there, table) != there.end()) {
        findPathless();
        std::string more;
        if (const std::string books = booksTable(); table == kCollections && !books.empty()) {
          more = ", (select \"Still current\" from " + quotedName(books) +
                 " as b where b.\"Server name\" = t.\"Server name\" and b.Published = t.Published)";
        }
        statement =
            database_.prepare("select rowid, " + namesOf(known.columns) + (more.empty() ? ", ''" : more) +
                              " from " + quotedName(table) + " as t order by rowid");
      }
      return std::make_unique<SqliteRows>(known, std::move(statement), std::move(wanted), *pathless_);
    });
  }

 private:
  // Earlier the bookkeeping stood beside what it is about; version 1.0.0 had none.
  std::string booksTable() {
    for (const std::string_view table : {kBookkeeping, kCollections}) {
      Statement look = database_.prepare("select 1 from pragma_table_info(?) where name = 'Still current'");
      look.bind(1, table);
      if (look.step()) return std::string(table);
    }
    return "";
  }

  void findPathless() {
    if (pathless_) return;
    pathless_.emplace();
    const std::string table = booksTable();
    if (table.empty()) return;
    Statement books = database_.prepare("select \"Server name\", \"Rows without a path\" from " +
                                        quotedName(table) + " where \"Rows without a path\" <> ''");
    while (books.step()) {
      const std::string server = folded(books.text(0).value_or(""));
      try {
        for (const json& entry : json::parse(books.text(1).value_or(""))) {
          const std::size_t index = tableIndex(entry.at("table").get<std::string>());
          if (index < tables().size()) keepPathless(tables()[index], entry.at("row"), server);
        }
      } catch (const json::exception&) {
        throw Error("what the database '" + database_.name() + "' keeps of " +
                    std::string(books.text(0).value_or("")) + " can't be understood");
      }
    }
  }

  // Of rows that are alike it doesn't matter which one is whose.
  void keepPathless(const Table& table, const json& row, const std::string& server) {
    Statement look = database_.prepare("select rowid from " + quotedName(table.name) + " where " +
                                       sameRow(table) + " order by rowid");
    const auto cells = cellsOf(row);
    int parameter = 0;
    for (const auto& cell : cells) look.bindOrNull(++parameter, cell);
    while (look.step()) {
      if (pathless_->emplace(std::pair(std::string(table.name), look.number(0)), server).second) return;
    }
  }

  std::optional<Pathless> pathless_;
  Database& database_;
  sqlite::ReadTransaction transaction_;
};

class SqliteInventory : public Inventory {
 public:
  SqliteInventory(std::string file, const Access& access) : file_(std::move(file)), access_(access) {}

  void openForReading() { open(Database::Mode::kReadOnly); }

  void openForPublishing() {
    std::error_code error;
    if (!std::filesystem::exists(file_, error) && !error) return requireWritableDirectory("make", file_);
    open(Database::Mode::kReadWrite);
    // SQLite's journal stands beside the file itself, wherever links to it are.
    requireWritableDirectory("use", std::filesystem::canonical(file_, error));
    leaveWriteAheadMode();
    // Somebody who is at work may be done by the time that there is something to publish.
    requireTaker();
  }

  std::vector<Published> publish(std::span<const Result> results) override {
    return attempt([&] {
      return change<std::vector<Published>>([&] {
        std::vector<Published> published;
        for (const Result& result : results) published.push_back(replace(result));
        return published;
      });
    });
  }

  Published take(Snapshot& from, const std::vector<std::string>& servers) override {
    return attempt([&] {
      return change<Published>([&] {
        Published taken{RowCounts(tables().size(), 0), RowCounts(tables().size(), 0), {}};
        for (const std::string& server : servers) removeFormer(server, {}, taken.replaced);
        takeRows(from, servers, taken);
        return taken;
      });
    });
  }

  std::int64_t remove(const std::vector<std::string>& servers) override {
    return attempt([&] {
      return change<std::int64_t>([&] {
        RowCounts removed(tables().size(), 0);
        for (const std::string& server : servers) {
          if (!isThere(spellingsOf(server))) failMissing(server);
          removeFormer(server, {}, removed);
        }
        return std::accumulate(removed.begin(), removed.end(), std::int64_t{0});
      });
    });
  }

  void rename(const std::string& server, const std::string& name) override {
    attempt([&] {
      change<bool>([&] {
        const std::vector<std::string> spellings = spellingsOf(server);
        if (!isThere(spellings)) failMissing(server);
        if (!sameName(server, name) && isThere(spellingsOf(name))) failTaken(file_, name);
        renameRows(spellings, name);
        return true;
      });
    });
  }

  std::int64_t rowsOf(const std::string& server) override {
    if (database_ == nullptr) return 0;
    return attempt([&] {
      std::int64_t rows = 0;
      const std::vector<std::string> spellings = spellingsOf(server);
      for (const Table& table : tables()) {
        if (!hasTable(table.name)) continue;
        Statement& count =
            statement("select count(*) from " + quotedName(table.name) + " where " + serverCondition(table));
        for (const std::string& spelling : spellings) {
          count.bind(1, spelling);
          if (count.step()) rows += count.number(0);
          count.reset();
        }
      }
      return rows;
    });
  }

  std::unique_ptr<Snapshot> snapshot() override {
    return attempt([&] { return std::make_unique<SqliteSnapshot>(*database_); });
  }

  void stopWaiting() override { stopWaiting_ = true; }

 private:
  static constexpr int kMostTries = 5;
  // What a publication may take of memory before SQLite writes into the file ahead of the commit.
  static constexpr int kCacheKibibytes = 32 * 1024;

  void open(Database::Mode mode) {
    attempt([&] {
      database_ = std::make_unique<Database>(file_, mode, access_.wait);
      database_->stopWaitingWhen(stopWaiting_);
      database_->execute("pragma synchronous = full");
      if (mode != Database::Mode::kReadOnly)
        database_->execute("pragma cache_size = -" + std::to_string(kCacheKibibytes));
      feed_ = std::make_unique<sqlite::Feed>(*database_);
      sqlite3_create_function_v2(database_->raw(), "folded", 1,
                                 SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_DIRECTONLY, nullptr, fold,
                                 nullptr, nullptr, nullptr);
    });
  }

  void close() {
    statements_.clear();
    database_.reset();
    checkedSchema_.clear();
  }

  void requireWritableDirectory(const std::string& purpose, const std::filesystem::path& file) const {
    const auto refuse = [&](const std::string& why) {
      throw Error("Can't " + purpose + " the database '" + file_ + "': " + why);
    };
    const std::filesystem::path folder = std::filesystem::absolute(file).parent_path();
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error)) refuse("its directory doesn't exist");
    if (::access(folder.c_str(), W_OK | X_OK) != 0) {
      refuse("its directory can't be written to: "s + std::strerror(errno));
    }
  }

  // Opens the file where it isn't open. Tells whether that has made it.
  bool openOrCreate() {
    if (database_ != nullptr) return false;
    std::error_code error;
    const bool isThere = std::filesystem::exists(file_, error);
    open(Database::Mode::kCreate);
    return !isThere;
  }

  // A file that nothing was put into goes again. Whoever else has opened it in the meantime finds that out
  // behind the lock.
  void removeEmptyFile() noexcept {
    try {
      statements_.clear();
      // Without a file for the journal: there may be no space for it.
      database_->execute("pragma journal_mode = memory; begin exclusive");
      if (std::filesystem::file_size(file_) == 0 && !database_->hasMoved()) {
        std::filesystem::remove(file_);
      }
    } catch (const std::exception&) {
      // Then somebody is at work on it.
    }
    close();
  }

  void leaveWriteAheadMode() {
    attempt([&] {
      if (database_->value("pragma journal_mode") == "wal") {
        if (database_->value("pragma journal_mode = delete") != "delete") {
          throw Locked("Can't use the database '" + file_ + "': it is locked by somebody else");
        }
        // For one process alone SQLite doesn't use the index of the log that a killed one has left, nor
        // remove it.
        std::error_code ignored;
        const char* const file = sqlite3_db_filename(database_->raw(), "main");
        std::filesystem::remove(std::string(file) + "-shm", ignored);
      }
      database_->execute("pragma locking_mode = normal; select count(*) from sqlite_schema");
    });
  }

  bool hasTable(std::string_view name) {
    Statement& look =
        statement("select 1 from sqlite_schema where type = 'table' and name = ? collate nocase");
    look.bind(1, name);
    const bool there = look.step();
    look.reset();
    return there;
  }

  // Fails for a database that an inventory may not or can't be put into.
  void requireTaker() {
    attempt([&] {
      const bool ours = std::any_of(tables().begin(), tables().end(),
                                    [&](const Table& table) { return hasTable(table.name); });
      if (!ours && !access_.force &&
          !database_->value("select name from sqlite_schema where name not like 'sqlite~_%' escape '~'")
               .empty()) {
        throw Error("the database '" + file_ +
                    "' has tables of somebody else's and none of an inventory's; --force puts the inventory "
                    "beside them");
      }
      for (const Table& table : tables()) requireColumns(table.name, table.columns);
      requireColumns(kCollections, collectionsTable().columns);
      requireColumns(kProblems, problemsTable().columns);
      requireColumns(kBookkeeping, kBookkeepingColumns);
    });
  }

  bool hasColumn(std::string_view table, std::string_view column) {
    Statement& look = statement("select 1 from pragma_table_info(?) where name = ? collate nocase");
    look.bind(1, table);
    look.bind(2, column);
    const bool there = look.step();
    look.reset();
    return there;
  }

  void requireColumns(std::string_view table, std::span<const std::string_view> columns) {
    if (!hasTable(table)) return;
    for (const std::string_view column : columns) {
      if (hasColumn(table, column)) continue;
      throw Error("The database '" + file_ + "' can't take an inventory: its table " + std::string(table) +
                  " has no column '" + std::string(column) + "'");
    }
  }

  void makeTables() {
    const std::string schema = database_->value("pragma schema_version");
    if (schema == checkedSchema_) return;
    requireTaker();
    for (const Table& table : tables()) {
      database_->execute(creationSql(table));
      database_->execute(
          indexSql(table.name, tellsServer(table) ? quotedName(kServerColumn) : serverInPath()));
    }
    database_->execute(creationSqlOf(kCollections, collectionsTable().columns));
    database_->execute(creationSqlOf(kProblems, problemsTable().columns));
    database_->execute(creationSqlOf(kBookkeeping, kBookkeepingColumns));
    for (const std::string_view table : {kCollections, kProblems, kBookkeeping}) {
      database_->execute(indexSql(table, quotedName(kServerColumn)));
    }
    // The views look up what isn't known.
    database_->execute("create index if not exists \"Problems by item\" on " + quotedName(kProblems) + " (" +
                       quotedName(kServerColumn) + " collate nocase, \"Table\", \"Item\")");
    moveBookkeeping();
    makeViews();
    checkedSchema_ = database_->value("pragma schema_version");
  }

  // A view of ours that another version has made otherwise is made anew.
  void makeViews() {
    for (const View& view : views({[](std::string_view table) { return quotedName(table); }, false})) {
      const std::string start = "CREATE VIEW " + view.name + " as select ";
      const std::string sql = "CREATE VIEW " + view.name + " as " + view.select;
      Statement& look = statement("select sql from sqlite_schema where type = 'view' and name = ?");
      look.bind(1, view.name);
      const std::string former = look.step() ? std::string(look.text(0).value_or("")) : std::string();
      look.reset();
      if (!former.empty() && (former == sql || !former.starts_with(start))) continue;
      if (!former.empty()) database_->execute("drop view " + view.name);
      database_->execute(sql);
    }
  }

  // Earlier the bookkeeping stood beside what it is about.
  void moveBookkeeping() {
    if (!hasColumn(kCollections, kBookkeepingColumns[2])) return;
    const std::string names = namesOf(kBookkeepingColumns);
    database_->execute("insert into " + quotedName(kBookkeeping) + " (" + names + ") select " + names +
                       " from " + quotedName(kCollections));
    for (const std::string_view column : std::span(kBookkeepingColumns).subspan(2)) {
      database_->execute("alter table " + quotedName(kCollections) + " drop column " + quotedName(column));
    }
  }

  // Changes the file that has the name, in one transaction.
  template <typename Done, typename Make>
  Done change(const Make& make) {
    for (int tries = 1;; ++tries) {
      const bool isNew = openOrCreate();
      try {
        if (auto done = changeOnce<Done>(make)) return std::move(*done);
      } catch (...) {
        if (isNew) removeEmptyFile();
        throw;
      }
      // Another file has taken the name since this one was opened.
      close();
      if (hasPublished_) {
        throw Error("the database '" + file_ +
                    "' has been moved or replaced since servers were published into it");
      }
      if (tries == kMostTries) throw Error("the database '" + file_ + "' keeps being replaced");
    }
  }

  // Nothing where another file has taken the name.
  template <typename Done, typename Make>
  std::optional<Done> changeOnce(const Make& make) {
    sqlite::Transaction transaction(*database_);
    if (database_->hasMoved()) return std::nullopt;
    try {
      makeTables();
      Done done = make();
      transaction.commit();
      if (database_->hasMoved()) {
        throw Error("the database '" + file_ + "' was moved or replaced while it was written to");
      }
      hasPublished_ = true;
      return done;
    } catch (...) {
      checkedSchema_.clear();
      throw;
    }
  }

  // Removes what a publication replaces. Gives the spellings of the server's name.
  std::vector<std::string> removeFormer(const std::string& server, const Scope& scope, RowCounts& removed) {
    std::vector<std::string> spellings = spellingsOf(server);
    try {
      removeRowsWithoutPath(spellings, scope, removed);
      updateCollections(spellings, scope);
    } catch (const json::exception&) {
      failDamaged(server);
    } catch (const Error&) {
      failDamaged(server);
    }
    removeRows(spellings, scope, removed);
    removeProblems(spellings, scope);
    removeProblemsWithoutTable(spellings);
    return spellings;
  }

  // The rows of another inventory, and what it knows of them.
  void takeRows(Snapshot& from, const std::vector<std::string>& servers, Published& taken) {
    struct Book {
      std::string server, time, current;
      json pathless = json::array();
    };
    std::vector<Book> books;
    std::map<std::string, json> pathless;  // by the servers' folded names
    std::vector<std::pair<std::string, Problem>> told;
    for (const Table* const table : everyTable()) {
      auto source = from.rowsOf(std::string(table->name), servers);
      OwnedRows& owned = *source;
      std::size_t known = 0;
      RowFeed feed(*table, std::move(source), [&](RowFeed& at) {
        if (at.pathless().size() > known) {
          pathless[owned.server()].push_back({{"table", table->name}, {"row", at.pathless()[known++]}});
        }
        for (Problem& problem : at.rows().problems()) told.emplace_back(owned.server(), std::move(problem));
        at.rows().problems().clear();
        if (table->name != kCollections) return;
        const auto text = [&](std::size_t column) { return std::string(owned.cell(column).value_or("")); };
        Book& book = books.emplace_back(Book{text(0), text(columnIndex(*table, "Published")),
                                             text(table->columns.size()), json::array()});
        // Which of its publications has brought them doesn't matter.
        if (const auto found = pathless.find(owned.server()); found != pathless.end()) {
          book.pathless = std::move(found->second);
          pathless.erase(found);
        }
      });
      feed_->run(statement(feedSql(*table)), feed);
      if (const std::size_t at = tableIndex(table->name); at < tables().size())
        taken.added[at] = feed.rows().count();
    }
    for (const Book& book : books) keepBooks(book.server, book.time, book.current, book.pathless);
    for (auto& [server, problem] : told) {
      addProblem(*std::ranges::find(servers, server, folded), problem);
      taken.problems.push_back(std::move(problem));
    }
  }

  // Whether there is anything of a server.
  bool isThere(const std::vector<std::string>& spellings) {
    const auto has = [&](std::string_view table, const std::string& condition) {
      Statement& look = statement("select 1 from " + quotedName(table) + " where " + condition + " limit 1");
      return std::ranges::any_of(spellings, [&](const std::string& spelling) {
        look.bind(1, spelling);
        const bool found = look.step();
        look.reset();
        return found;
      });
    };
    return std::ranges::any_of(everyTable(),
                               [&](const Table* table) { return has(table->name, serverCondition(*table)); });
  }

  [[noreturn]] void failMissing(const std::string& server) const {
    throw Error("there is nothing of a server '" + server + "' in the database '" + file_ + "'");
  }

  void renameRows(const std::vector<std::string>& spellings, const std::string& name) {
    const auto rename = [&](std::string_view table, const std::string& changes, const std::string& which) {
      Statement& change = statement("update " + quotedName(table) + " set " + changes + " where " + which);
      change.bind(2, name);
      runForServer(spellings, change);
    };
    const std::string path = quotedName(kPathColumn), server = quotedName(kServerColumn) + " = ?2";
    for (const Table* const table : everyTable()) {
      std::string changes = tellsServer(*table) ? server
                                                : path + " = 'IIS://' || ?2 || substr(" + path +
                                                      ", 6 + instr(substr(" + path + ", 7), '/'))";
      if (table->name == kProblems) changes += renamedInProblems("?2");
      rename(table->name, changes, serverCondition(*table));
    }
    rename(kBookkeeping, server, quotedName(kServerColumn) + " = ?1 collate nocase");
  }

  Published replace(const Result& result) {
    Published published{RowCounts(tables().size(), 0), RowCounts(tables().size(), 0), {}};
    const std::vector<std::string> spellings =
        removeFormer(result.origin.server, result.scope, published.replaced);
    const json pathless = addRows(result, published);
    for (const Problem& problem : result.problems) addProblem(result.origin.server, problem);
    for (const Problem& problem : published.problems) addProblem(result.origin.server, problem);
    addCollection(result, timeOfPublication(spellings), published, Remainder::of(result.scope), pathless);
    return published;
  }

  [[noreturn]] void failDamaged(const std::string& server) const {
    throw Error("The database '" + file_ + "' can't take " + server + ": what its table \"" +
                std::string(kBookkeeping) + "\" keeps of the server can't be understood");
  }

  // How the name of a server is spelled in the database, and as it is given.
  std::vector<std::string> spellingsOf(const std::string& server) {
    std::vector<std::string> spellings{server};
    // ASCII is compared without regard to case by the database itself.
    if (isAscii(server)) return spellings;
    const std::string wanted = folded(server);
    std::set<std::string> found;
    const auto look = [&](const std::string& sql) {
      Statement names = database_->prepare(sql);
      while (names.step()) {
        const std::string name(names.text(0).value_or(""));
        if (name != server && folded(name) == wanted) found.insert(name);
      }
    };
    for (const Table& table : tables()) {
      if (!hasTable(table.name)) continue;
      if (tellsServer(table)) {
        look("select distinct " + quotedName(kServerColumn) + " collate binary from " +
             quotedName(table.name));
      } else {
        look("select distinct " + serverInPath() + " collate binary from " + quotedName(table.name));
      }
    }
    for (const std::string_view table : {kCollections, kProblems}) {
      if (!hasTable(table)) continue;
      look("select distinct " + quotedName(kServerColumn) + " collate binary from " + quotedName(table));
    }
    spellings.insert(spellings.end(), found.begin(), found.end());
    return spellings;
  }

  // Runs a statement whose first parameter is the server for each of its spellings.
  std::int64_t runForServer(const std::vector<std::string>& spellings, Statement& change) {
    std::int64_t touched = 0;
    for (const std::string& spelling : spellings) {
      change.bind(1, spelling);
      change.run();
      touched += database_->changes();
    }
    return touched;
  }

  void removeRows(const std::vector<std::string>& spellings, const Scope& scope, RowCounts& removed) {
    const auto sqlFor = [&](const Table& table) {
      return "delete from " + quotedName(table.name) + " where " + serverCondition(table);
    };
    if (scope.whole) {
      for (std::size_t at = 0; at < tables().size(); ++at) {
        removed[at] += runForServer(spellings, statement(sqlFor(tables()[at])));
      }
      return;
    }
    for (const TableScope& part : scope.tables) {
      const std::size_t index = tableIndex(part.table);
      const Table& table = tables()[index];
      const std::string sql = sqlFor(table) + kindCondition(table, part.kind);
      if (part.everyItem) {
        removed[index] += runForServer(spellings, statement(sql));
        continue;
      }
      Statement& change = statement(sql + itemCondition(itemColumn(part.kind)));
      const std::string items = foldedList(part.items);
      const std::string there = foldedList(part.there);
      change.bind(2, items);
      change.bind(3, there);
      removed[index] += runForServer(spellings, change);
    }
  }

  // Rows whose path is empty don't tell their server. The publication that has brought them keeps a copy of
  // each; of rows that are alike it doesn't matter which one goes.
  void removeRowsWithoutPath(const std::vector<std::string>& spellings, const Scope& scope,
                             RowCounts& removed) {
    Statement& look = statement(
        "select rowid, \"Rows without a path\" from \"Collections bookkeeping\" where \"Server name\" = ? "
        "collate nocase and \"Rows without a path\" <> ''");
    std::vector<std::pair<std::int64_t, json>> kept;
    for (const std::string& spelling : spellings) {
      look.bind(1, spelling);
      while (look.step()) {
        kept.emplace_back(look.number(0), json::parse(look.text(1).value_or("")));
      }
    }
    for (auto& [row, entries] : kept) {
      json left = json::array();
      for (const json& entry : entries.get_ref<const json::array_t&>()) {
        const std::size_t index = tableIndex(entry.at("table").get<std::string>());
        if (index >= tables().size() || entry.at("row").size() != tables()[index].columns.size()) {
          throw Error("a row of no table");
        }
        if (isInScope(tables()[index], entry.at("row"), scope)) {
          removed[index] += removeOneLike(tables()[index], entry.at("row"));
        } else {
          left.push_back(entry);
        }
      }
      Statement& change =
          statement("update \"Collections bookkeeping\" set \"Rows without a path\" = ?2 where rowid = ?1");
      const std::string text = left.empty() ? std::string() : left.dump();
      change.bind(1, row);
      change.bind(2, text);
      change.run();
    }
  }

  static bool isInScope(const Table& table, const json& row, const Scope& scope) {
    if (scope.whole) return true;
    const auto column = std::find(table.columns.begin(), table.columns.end(), kSiteColumn);
    const json& cell = row.at(static_cast<std::size_t>(column - table.columns.begin()));
    const std::string item = cell.is_string() ? folded(cell.get<std::string>()) : std::string();
    const auto isAmong = [&](const std::vector<std::string>& items) {
      return std::any_of(items.begin(), items.end(),
                         [&](const std::string& other) { return folded(other) == item; });
    };
    return std::any_of(scope.tables.begin(), scope.tables.end(), [&](const TableScope& part) {
      return part.table == table.name && (part.everyItem || isAmong(part.items) || !isAmong(part.there));
    });
  }

  std::int64_t removeOneLike(const Table& table, const json& row) {
    const std::string name = quotedName(table.name);
    Statement& change = statement("delete from " + name + " where rowid = (select rowid from " + name +
                                  " where " + sameRow(table) + " order by rowid limit 1)");
    const auto cells = cellsOf(row);
    int parameter = 0;
    for (const auto& cell : cells) change.bindOrNull(++parameter, cell);
    change.run();
    return database_->changes();
  }

  void removeProblems(const std::vector<std::string>& spellings, const Scope& scope) {
    const std::string sql = "delete from \"Problems\" where \"Server name\" = ?1 collate nocase";
    if (scope.whole) {
      runForServer(spellings, statement(sql));
      return;
    }
    for (const TableScope& part : scope.tables) {
      Statement& change = statement(sql + " and \"Table\" = ?4 and \"Item kind\" = ?5" +
                                    (part.everyItem ? "" : " and \"Item\" <> ''" + itemCondition("Item")));
      const std::string items = foldedList(part.items);
      const std::string there = foldedList(part.there);
      if (!part.everyItem) {
        change.bind(2, items);
        change.bind(3, there);
      }
      change.bind(4, part.table);
      change.bind(5, wordFor(part.kind));
      runForServer(spellings, change);
    }
  }

  // Gives copies of the rows that have no path.
  json addRows(const Result& result, Published& published) {
    json pathless = json::array();
    for (std::size_t at = 0; at < tables().size(); ++at) {
      const Table& table = tables()[at];
      RowFeed feed(table, result.rows->rows(table));
      feed_->run(statement(feedSql(table)), feed);
      CheckedRows& rows = feed.rows();
      published.added[at] += rows.count();
      std::move(rows.problems().begin(), rows.problems().end(), std::back_inserter(published.problems));
      for (json& row : feed.pathless()) pathless.push_back({{"table", table.name}, {"row", std::move(row)}});
    }
    return pathless;
  }

  void addProblem(const std::string& server, const Problem& problem) {
    insert(kProblems, problemsTable().columns, problemValues(server, problem));
  }

  void insert(std::string_view table, std::span<const std::string_view> columns,
              const std::vector<Value>& values) {
    Statement& insertion = statement(insertSql(table, columns));
    int parameter = 0;
    for (const Value& value : values) {
      ++parameter;
      std::visit([&](const auto& given) { insertion.bind(parameter, given); }, value);
    }
    insertion.run();
  }

  // Former publications lose what is replaced, and go when nothing is left of them.
  void updateCollections(const std::vector<std::string>& spellings, const Scope& scope) {
    if (scope.whole) {
      for (const std::string_view table : {kCollections, kBookkeeping}) {
        runForServer(spellings, statement("delete from " + quotedName(table) +
                                          " where \"Server name\" = ?1 collate nocase"));
      }
      return;
    }
    struct Former {
      std::int64_t row;
      std::string published;
      Remainder remainder;
    };
    Statement& look = statement(
        "select rowid, \"Published\", \"Still current\" from \"Collections bookkeeping\" where "
        "\"Server name\" = ? collate nocase");
    std::vector<Former> all;
    for (const std::string& spelling : spellings) {
      look.bind(1, spelling);
      while (look.step()) {
        all.push_back({look.number(0), std::string(look.text(1).value_or("")),
                       Remainder::fromText(look.text(2).value_or(""))});
      }
    }
    const Newcomers newcomers = newcomersOf(scope, [&](std::string_view table, std::string_view column) {
      Statement& list = statement("select " + quotedName(column) + " from " + quotedName(table) + " where " +
                                  quotedName(kServerColumn) + " = ?1 collate nocase and " +
                                  quotedName(column) + " is not null");
      std::vector<std::string> items;
      for (const std::string& spelling : spellings) {
        list.bind(1, spelling);
        while (list.step()) items.emplace_back(list.text(0).value_or(""));
      }
      return items;
    });
    for (Former& former : all) {
      former.remainder.subtract(scope, newcomers);
      if (!former.remainder.isEmpty()) {
        Statement& change =
            statement("update \"Collections bookkeeping\" set \"Still current\" = ?2 where rowid = ?1");
        const std::string text = former.remainder.toText();
        change.bind(1, former.row);
        change.bind(2, text);
        change.run();
        continue;
      }
      for (const std::string_view table : {kCollections, kBookkeeping}) {
        Statement& removal = statement("delete from " + quotedName(table) +
                                       " where \"Server name\" = ?1 collate nocase and \"Published\" = ?2");
        removal.bind(2, former.published);
        runForServer(spellings, removal);
      }
    }
  }

  void addCollection(const Result& result, const std::string& time, const Published& published,
                     const Remainder& remainder, const json& pathless) {
    insert(kCollections, collectionsTable().columns,
           collectionValues(result, time, published.added, published.problems.size()));
    keepBooks(result.origin.server, time, remainder.toText(), pathless);
  }

  void keepBooks(const std::string& server, const std::string& time, const std::string& current,
                 const json& pathless) {
    insert(kBookkeeping, kBookkeepingColumns,
           {server, time, current, pathless.empty() ? std::string() : pathless.dump()});
  }

  // A time at which nothing else of the server has been published: it tells one publication from another.
  std::string timeOfPublication(const std::vector<std::string>& spellings) {
    Statement& look = statement(
        "select 1 from \"Collections\" where \"Server name\" = ?1 collate nocase and \"Published\" = ?2");
    while (true) {
      const std::string now = utcNow();
      look.bind(2, now);
      const bool isTaken = std::ranges::any_of(spellings, [&](const std::string& spelling) {
        look.bind(1, spelling);
        const bool found = look.step();
        look.reset();
        return found;
      });
      if (!isTaken) return now;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  // Problems that belong to no table are about the file as a whole, and the new ones are too.
  void removeProblemsWithoutTable(const std::vector<std::string>& spellings) {
    runForServer(spellings,
                 statement("delete from \"Problems\" where \"Server name\" = ?1 collate nocase and "
                           "\"Table\" = ''"));
  }

  // Prepared once.
  Statement& statement(const std::string& sql) {
    const auto found = statements_.find(sql);
    if (found != statements_.end()) {
      found->second.reset();
      return found->second;
    }
    return statements_.emplace(sql, database_->prepare(sql)).first->second;
  }

  const std::string file_;
  const Access access_;
  std::atomic<bool> stopWaiting_ = false;
  std::unique_ptr<sqlite::Feed> feed_;  // outlives the database that knows it
  std::unique_ptr<Database> database_;
  std::map<std::string, Statement, std::less<>> statements_;
  std::string checkedSchema_;
  bool hasPublished_ = false;
};

}  // namespace

std::unique_ptr<Inventory> openSqliteForReading(const std::string& file, const Access& access) {
  auto inventory = std::make_unique<SqliteInventory>(file, access);
  inventory->openForReading();
  return inventory;
}

std::unique_ptr<Inventory> openSqliteForPublishing(const std::string& file, const Access& access) {
  auto inventory = std::make_unique<SqliteInventory>(file, access);
  inventory->openForPublishing();
  return inventory;
}

}  // namespace inventory
