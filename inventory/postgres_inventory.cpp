#include "inventory/postgres_inventory.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <unordered_map>
#include <utility>

#include "inventory/postgres_connection.h"
#include "inventory/records.h"
#include "inventory/remainder.h"
#include "inventory/views.h"
#include "sqlite/database.h"

namespace inventory {
namespace {

using postgres::Connection;
using postgres::CopyIn;
using postgres::CopyOut;
using postgres::Failure;
using postgres::ResultSet;
using postgres::Transaction;
using sqlite::quotedName;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int kOldestVersion = 130000;
constexpr int kMostPublishers = 8;

// Beside an inventory's tables: the servers under their folded names, and what of each publication hasn't
// been replaced since.
constexpr std::string_view kServers = "server_key";
constexpr std::string_view kCurrent = "still_current";
constexpr std::string_view kPublications = "publication_number";

// A row's order is the publication's number, and within it the row's.
constexpr int kRowBits = 32;

std::string literal(std::string_view name) {
  std::string text = "'";
  for (const char c : name) text.append(c == '\'' ? 2 : 1, c);
  return text + "'";
}

std::string namesOf(const Table& table) {
  std::string names;
  for (const std::string_view column : table.columns) names += ", " + quotedName(column);
  return names;
}

std::string idList(const std::vector<std::int32_t>& ids) {
  std::string list = "{";
  for (const std::int32_t id : ids) list += (list.size() == 1 ? "" : ",") + std::to_string(id);
  return list + "}";
}

std::string_view itemColumn(ItemKind kind) {
  return kind == ItemKind::kSite ? kSiteColumn : kPoolColumn;
}

std::string kindCondition(const Table& table, ItemKind kind) {
  if (Remainder::kindsOf(table).size() < 2) return "";
  return " and " + quotedName(kPoolColumn) + (kind == ItemKind::kSite ? " is null" : " is not null");
}

// A number that stands for a text among the server's advisory locks (FNV-1a).
std::int64_t lockNumber(std::string_view text) {
  std::uint64_t hash = 0xcbf29ce484222325U;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
  return static_cast<std::int64_t>(hash);
}

// The comment on a view, which tells of which definition it is.
std::string commentOn(const View& view) {
  return "View of an inventory, definition " +
         std::to_string(static_cast<std::uint64_t>(lockNumber(view.select)));
}

// Where the inventory stands, and how it is spoken of.
struct Place {
  Place(std::string database, const Access& given)
      : address(std::move(database)),
        shown(postgres::shownAddress(address)),
        access(given),
        schema(quotedName(given.schema)) {
    if (given.schema.empty() || given.schema.size() > 63) {
      throw Error("a schema's name has 1 to 63 bytes");
    }
  }

  std::string table(std::string_view name) const { return schema + "." + quotedName(name); }

  [[noreturn]] void refuse(const std::string& why) const {
    throw Error("can't use the database '" + shown + "': " + why);
  }

  // A failure of the server as one of the inventory.
  [[noreturn]] void tell(const Failure& failure) const {
    const std::string words = "the database '" + shown + "': " + failure.what();
    if (failure.isLost()) throw Unreachable(words);
    if (failure.state() == "55P03" || failure.state() == "40P01") throw Locked(words);
    if (failure.state() == "42501") {
      throw Error(words +
                  "; the schema's owner may grant it (see the README, \"A server for a whole fleet\")");
    }
    throw Error(words);
  }

  template <typename Work>
  decltype(auto) attempt(const Work& work) const {
    try {
      return work();
    } catch (const Failure& failure) {
      tell(failure);
    }
  }

  const std::string address;
  const std::string shown;
  const Access access;
  const std::string schema;
};

// What is to be known of a schema before it is used.
struct Schema {
  bool exists = false;
  bool mayUse = false;
  bool mayCreate = false;
  std::map<std::string, std::set<std::string>> columns;  // by table
  std::set<std::string> unwritable;                      // tables that the role may not change
  std::map<std::string, std::string> ownViews;           // the role's own, with their comments

  bool has(std::string_view table) const { return columns.contains(std::string(table)); }
  bool hasOurs() const {
    return std::any_of(tables().begin(), tables().end(), [&](const Table& table) { return has(table.name); });
  }
};

Schema lookAt(Connection& connection, const std::string& name) {
  Schema schema;
  const ResultSet found = connection.run(
      "select has_schema_privilege(oid, 'USAGE'), has_schema_privilege(oid, 'CREATE') from pg_namespace "
      "where nspname = $1",
      {name});
  if (found.rows() == 0) {
    const ResultSet may = connection.run("select has_database_privilege(current_database(), 'CREATE')");
    schema.mayUse = schema.mayCreate = may.isTrue(0, 0);
    return schema;
  }
  schema.exists = true;
  schema.mayUse = found.isTrue(0, 0);
  schema.mayCreate = found.isTrue(0, 1);
  const ResultSet columns = connection.run(
      "select c.relname, a.attname, c.relkind, has_table_privilege(c.oid, 'SELECT') and "
      "has_table_privilege(c.oid, 'INSERT') and has_table_privilege(c.oid, 'UPDATE') and "
      "has_table_privilege(c.oid, 'DELETE'), coalesce(obj_description(c.oid, 'pg_class'), ''), "
      "pg_has_role(c.relowner, 'USAGE') from pg_class c join pg_namespace n on n.oid = c.relnamespace "
      "left join pg_attribute a on a.attrelid = c.oid and a.attnum > 0 and not a.attisdropped "
      "where n.nspname = $1 and c.relkind in ('r', 'p', 'v', 'm', 'f')",
      {name});
  for (int row = 0; row < columns.rows(); ++row) {
    const std::string table(columns.text(row, 0).value_or(""));
    schema.columns[table].emplace(columns.text(row, 1).value_or(""));
    const auto kind = columns.text(row, 2);
    if ((kind == "r" || kind == "p") && !columns.isTrue(row, 3)) schema.unwritable.insert(table);
    if (kind == "v" && columns.isTrue(row, 5)) schema.ownViews[table] = columns.text(row, 4).value_or("");
  }
  return schema;
}

// Opens a connection, and refuses a server that can't hold an inventory.
std::unique_ptr<Connection> connect(const Place& place) {
  auto connection = std::make_unique<Connection>(place.address);
  if (connection->serverVersion() < kOldestVersion) {
    place.refuse("the server is PostgreSQL " + connection->setting("server_version") +
                 "; an inventory takes version 13 or later");
  }
  if (const std::string encoding = connection->setting("server_encoding"); encoding != "UTF8") {
    place.refuse("its encoding is " + encoding +
                 "; an inventory takes a database that was made with encoding "
                 "'UTF8'");
  }
  // Whatever the role's own settings are: names mean the same everywhere, nobody cuts a publication short,
  // and what is committed is safe on the disk.
  connection->execute(
      "set search_path = pg_catalog; set statement_timeout = 0; set idle_in_transaction_session_timeout = 0; "
      "set row_security = off; select set_config('synchronous_commit', 'on', false) where "
      "current_setting('synchronous_commit') = 'off'");
  return connection;
}

// Columns as texts, for COPY.
std::string selectTexts(const Place& place, const Table& table, const std::string& more = "") {
  std::string columns;
  for (const std::string_view column : table.columns) {
    if (!columns.empty()) columns += ", ";
    const std::string name = quotedName(column);
    switch (columnType(column)) {
      case ColumnType::kText:
        columns += name;
        break;
      case ColumnType::kInteger:
        columns += name + "::text";
        break;
      case ColumnType::kReal:
        // As SQLite writes it.
        columns += "case when " + name + " = trunc(" + name + ") then " + name + "::bigint || '.0' else " +
                   name + "::text end";
        break;
    }
  }
  return "select " + columns + more + " from " + place.table(table.name);
}

// One publication of several servers, in one transaction.
class Publication {
 public:
  Publication(const Place& place, Connection& connection) : place_(place), connection_(connection) {}

  // Locks the servers, for which the transaction must have begun. False where somebody else has one of them.
  bool lock(const std::vector<std::string>& keys) {
    // More of them would be a burden to the server.
    if (keys.size() > kMostLocks) return lockAll();
    std::string numbers = "{";
    std::set<std::int64_t> sorted;
    for (const std::string& key : keys) sorted.insert(lockNumber(place_.access.schema + '\0' + key));
    for (const std::int64_t number : sorted)
      numbers += (numbers.size() == 1 ? "" : ",") + std::to_string(number);
    connection_.execute("savepoint unlocked");
    const ResultSet got = connection_.run(
        "select bool_and(got) from (select pg_try_advisory_xact_lock(n) as got from unnest($1::bigint[]) as "
        "n "
        "union all select pg_try_advisory_xact_lock_shared($2)) as each",
        {numbers + "}", std::to_string(lockNumber(place_.access.schema + '\0'))});
    if (got.isTrue(0, 0)) return true;
    // Whoever holds some and waits for others may wait for somebody who waits for him.
    connection_.execute("rollback to savepoint unlocked");
    return false;
  }

  // The servers' numbers, of new ones too, and a number for the publication of each.
  void number(const std::vector<std::string>& keys) {
    const std::string list = jsonList(keys);
    const std::string servers = place_.table(kServers);
    const std::string wanted =
        "(select value as key, place from jsonb_array_elements_text($1::jsonb) with ordinality as w (value, "
        "place)) as wanted";
    // An index takes no text of any length.
    const std::string same = "left(there.key, 500) = left(wanted.key, 500) and there.key = wanted.key";
    connection_.run("insert into " + servers + " (key) select wanted.key from " + wanted +
                        " where not exists (select 1 from " + servers + " as there where " + same + ")",
                    {list});
    const ResultSet numbers =
        connection_.run("select there.id, nextval($2::regclass) from " + wanted + " join " + servers +
                            " as there on " + same + " order by wanted.place",
                        {list, place_.table(kPublications)});
    for (int row = 0; row < numbers.rows(); ++row) {
      servers_.push_back(static_cast<std::int32_t>(numbers.number(row, 0)));
      publications_.push_back(numbers.number(row, 1));
    }
    if (servers_.size() != keys.size()) place_.refuse("the table of its servers holds one of them twice");
    // In the order of which the results' rows are ordered, whatever the join made of it.
    std::sort(publications_.begin(), publications_.end());
  }

  // A number by which the publication is found again.
  std::int64_t firstOrder() const { return publications_.front() << kRowBits; }
  bool isThere(std::int64_t order) {
    return connection_
               .run("select 1 from " + place_.table(kCollections) +
                        " where server_id = any($1::integer[]) and row_order = $2",
                    {idList(servers_), std::to_string(order)})
               .rows() > 0;
  }

  // Puts all that another inventory has of these servers in the place of what stands for them, in its order.
  Published take(Snapshot& from, const std::vector<std::string>& names,
                 const std::vector<std::string>& keys) {
    std::vector<Published> removed(servers_.size());
    for (Published& each : removed) each.replaced.assign(tables().size(), 0);
    removeWhole(servers_, removed);
    Published taken{RowCounts(tables().size(), 0), RowCounts(tables().size(), 0), {}};
    for (const Published& each : removed) {
      for (std::size_t at = 0; at < tables().size(); ++at) taken.replaced[at] += each.replaced[at];
    }
    std::unordered_map<std::string, std::size_t> places;
    for (std::size_t at = 0; at < keys.size(); ++at) places[keys[at]] = at;
    std::vector<std::pair<std::size_t, std::string>> current;
    std::vector<std::pair<std::size_t, Problem>> problems;
    for (const Table* const table : everyTable()) {
      takeRows(*table, from.rowsOf(std::string(table->name), names), names, places, taken, current, problems);
    }
    CopyIn copy(connection_, currentSql());
    std::int64_t row = 0;
    for (const auto& [place, parts] : current) addCurrent(copy, firstOrder() + ++row, place, parts);
    copy.finish();
    for (auto& [place, problem] : problems) taken.problems.push_back(std::move(problem));
    return taken;
  }

  // Whether there is anything of a server, by its place among those that are locked.
  bool hasRows(std::size_t server) {
    std::string rows;
    for (const Table* const table : everyTable()) {
      rows += (rows.empty() ? "select exists (select from " : ") or exists (select from ") +
              place_.table(table->name) + " where server_id = $1";
    }
    return connection_.run(rows + ")", {std::to_string(servers_[server])}).isTrue(0, 0);
  }

  std::int64_t removeAll() {
    std::vector<Published> removed(servers_.size());
    for (Published& each : removed) each.replaced.assign(tables().size(), 0);
    removeWhole(servers_, removed);
    std::int64_t rows = 0;
    for (const Published& each : removed) {
      for (const std::int64_t count : each.replaced) rows += count;
    }
    return rows;
  }

  // Makes everything of the first server that of the last one, which may be the same.
  void rename(const std::string& name) {
    const std::string path = quotedName(kPathColumn), from = std::to_string(servers_.front()),
                      to = std::to_string(servers_.back());
    for (const Table* const table : everyTable()) {
      std::string changes = "server_id = $2";
      if (hasColumn(*table, kServerColumn)) {
        changes += ", " + quotedName(kServerColumn) + " = $3::text";
      } else {
        changes += ", " + path + " = case when " + path +
                   " like 'IIS://%/%' then 'IIS://' || $3::text || substr(" + path + ", 6 + strpos(substr(" +
                   path + ", 7), '/')) else " + path + " end";
      }
      if (table->name == kProblems) changes += renamedInProblems("$3::text");
      connection_.run("update " + place_.table(table->name) + " set " + changes + " where server_id = $1",
                      {from, to, name});
    }
    connection_.run("update " + place_.table(kCurrent) + " set server_id = $2 where server_id = $1",
                    {from, to});
  }

  std::vector<Published> replace(std::span<const Result> results) {
    std::vector<Published> published(results.size());
    for (Published& each : published) {
      each.replaced.assign(tables().size(), 0);
      each.added.assign(tables().size(), 0);
    }
    remove(results, published);
    add(results, published);
    return published;
  }

 private:
  static constexpr std::size_t kMostLocks = 100;

  // Whoever publishes shares the lock with others who do.
  bool lockAll() {
    return connection_
        .run("select pg_try_advisory_xact_lock($1)",
             {std::to_string(lockNumber(place_.access.schema + '\0'))})
        .isTrue(0, 0);
  }

  // One table for take(). What can't be kept as it is becomes one of the problems, the last of the tables.
  void takeRows(const Table& table, std::unique_ptr<OwnedRows> source, const std::vector<std::string>& names,
                const std::unordered_map<std::string, std::size_t>& places, Published& taken,
                std::vector<std::pair<std::size_t, std::string>>& current,
                std::vector<std::pair<std::size_t, Problem>>& problems) {
    OwnedRows& owned = *source;
    CheckedRows rows(table, std::move(source));
    CopyIn copy(connection_, copySql(table));
    const auto begin = [&](std::size_t place, std::int64_t row) {
      copy.row(table.columns.size() + 2);
      copy.integer(firstOrder() + row);
      copy.integer(servers_[place]);
    };
    while (rows.next()) {
      const std::size_t place = places.at(owned.server());
      begin(place, rows.count());
      for (std::size_t column = 0; column < table.columns.size(); ++column) {
        const Cell cell = rows.cell(column);
        if (!cell || columnType(table.columns[column]) == ColumnType::kText || !isRecord(table)) {
          copy.text(cell);
        } else {
          write(copy, valueOf(table.columns[column], cell));
        }
      }
      if (table.name == kCollections)
        current.emplace_back(place, owned.cell(table.columns.size()).value_or(""));
      for (Problem& problem : rows.problems()) problems.emplace_back(place, std::move(problem));
      rows.problems().clear();
    }
    if (table.name == kProblems) {
      std::int64_t row = rows.count();
      for (const auto& [place, problem] : problems) {
        begin(place, ++row);
        for (const Value& value : problemValues(names[place], problem)) write(copy, value);
      }
    }
    copy.finish();
    if (!isRecord(table)) taken.added[tableIndex(table.name)] = rows.count();
  }

  void remove(std::span<const Result> results, std::vector<Published>& published) {
    std::vector<std::int32_t> whole;
    for (std::size_t at = 0; at < results.size(); ++at) {
      if (results[at].scope.whole) {
        whole.push_back(servers_[at]);
      } else {
        removeParts(servers_[at], results[at].scope, published[at].replaced);
      }
    }
    if (!whole.empty()) removeWhole(whole, published);
  }

  // In one statement: each would cost a way to the server and back.
  void removeWhole(const std::vector<std::int32_t>& servers, std::vector<Published>& published) {
    std::string deletes, counts;
    const auto add = [&](std::string_view table, const std::string& number) {
      deletes += (deletes.empty() ? "with d" : ", d") + number + " as (delete from " + place_.table(table) +
                 " where server_id = any($1::integer[]) returning server_id)";
    };
    for (std::size_t at = 0; at < tables().size(); ++at) {
      const std::string number = std::to_string(at);
      add(tables()[at].name, number);
      counts += (counts.empty() ? " select " : " union all select ") + number +
                ", server_id, count(*) from d" + number + " group by server_id";
    }
    add(kProblems, "p");
    add(kCollections, "c");
    add(kCurrent, "s");
    const ResultSet removed = connection_.run(deletes + counts, {idList(servers)});
    for (int row = 0; row < removed.rows(); ++row) {
      const auto server = std::find(servers_.begin(), servers_.end(), removed.number(row, 1));
      published[static_cast<std::size_t>(server - servers_.begin())]
          .replaced[static_cast<std::size_t>(removed.number(row, 0))] = removed.number(row, 2);
    }
  }

  void removeParts(std::int32_t server, const Scope& scope, RowCounts& removed) {
    const std::string id = std::to_string(server);
    const std::string ofServer = " where server_id = $1";
    const Newcomers newcomers = newcomersOf(scope, [&](std::string_view table, std::string_view column) {
      const ResultSet rows = connection_.run("select " + quotedName(column) + " from " + place_.table(table) +
                                                 ofServer + " and " + quotedName(column) + " is not null",
                                             {id});
      std::vector<std::string> items;
      for (int row = 0; row < rows.rows(); ++row) items.emplace_back(*rows.text(row, 0));
      return items;
    });
    for (const TableScope& part : scope.tables) {
      const std::size_t index = tableIndex(part.table);
      const Table& table = tables()[index];
      removed[index] += removeItems(table.name, itemColumn(part.kind), part, id,
                                    ofServer + kindCondition(table, part.kind));
      removeItems(kProblems, "Item", part, id,
                  ofServer + " and \"Table\" = " + literal(part.table) + " and \"Item kind\" = " +
                      literal(wordFor(part.kind)) + (part.everyItem ? "" : " and \"Item\" <> ''"));
    }
    // Problems that belong to no table are about the file as a whole, and the new ones are too.
    connection_.run("delete from " + place_.table(kProblems) + ofServer + " and \"Table\" = ''", {id});
    subtract(id, scope, newcomers);
  }

  std::int64_t removeItems(std::string_view table, std::string_view column, const TableScope& part,
                           const std::string& server, const std::string& condition) {
    const std::string name = place_.table(table), item = quotedName(column);
    if (part.everyItem) return connection_.run("delete from " + name + condition, {server}).changes();
    const ResultSet there = connection_.run(
        "select distinct " + item + " from " + name + condition + " and " + item + " is not null", {server});
    std::vector<std::string> items;
    for (int row = 0; row < there.rows(); ++row) items.emplace_back(*there.text(row, 0));
    items = replacedItems(part, items);
    if (items.empty()) return 0;
    return connection_
        .run("delete from " + name + condition + " and " + item +
                 " in (select jsonb_array_elements_text($2::jsonb))",
             {server, jsonList(items)})
        .changes();
  }

  // Former publications lose what is replaced, and go when nothing is left of them.
  void subtract(const std::string& server, const Scope& scope, const Newcomers& newcomers) {
    const std::string current = place_.table(kCurrent);
    const ResultSet former =
        connection_.run("select publication, parts from " + current + " where server_id = $1", {server});
    for (int row = 0; row < former.rows(); ++row) {
      const std::string publication(former.text(row, 0).value_or(""));
      Remainder remainder = Remainder::fromText(former.text(row, 1).value_or(""));
      remainder.subtract(scope, newcomers);
      if (remainder.isEmpty()) {
        connection_.run("delete from " + current + " where publication = $1", {publication});
        connection_.run(
            "delete from " + place_.table(kCollections) + " where server_id = $1 and row_order = $2",
            {server, publication});
      } else {
        connection_.run("update " + current + " set parts = $2 where publication = $1",
                        {publication, remainder.toText()});
      }
    }
  }

  void add(std::span<const Result> results, std::vector<Published>& published) {
    for (std::size_t at = 0; at < tables().size(); ++at) {
      const Table& table = tables()[at];
      CopyIn copy(connection_, copySql(table));
      for (std::size_t each = 0; each < results.size(); ++each) {
        CheckedRows rows(table, results[each].rows->rows(table));
        while (rows.next()) {
          begin(copy, each, rows.count(), table.columns.size());
          for (std::size_t column = 0; column < table.columns.size(); ++column) copy.text(rows.cell(column));
        }
        published[each].added[at] = rows.count();
        std::move(rows.problems().begin(), rows.problems().end(),
                  std::back_inserter(published[each].problems));
      }
      copy.finish();
    }
    addRecords(problemsTable(), results.size(), [&](std::size_t each, const auto& take) {
      const std::string& server = results[each].origin.server;
      for (const Problem& problem : results[each].problems) take(problemValues(server, problem));
      for (const Problem& problem : published[each].problems) take(problemValues(server, problem));
    });
    addRecords(collectionsTable(), results.size(), [&](std::size_t each, const auto& take) {
      take(collectionValues(results[each], utcNow(), published[each].added, published[each].problems.size()));
    });
    CopyIn copy(connection_, currentSql());
    for (std::size_t each = 0; each < results.size(); ++each) {
      addCurrent(copy, publications_[each] << kRowBits, each, Remainder::of(results[each].scope).toText());
    }
    copy.finish();
  }

  std::string currentSql() const {
    return "copy " + place_.table(kCurrent) + " (publication, server_id, parts) from stdin";
  }

  void addCurrent(CopyIn& copy, std::int64_t publication, std::size_t place, const std::string& parts) const {
    copy.row(3);
    copy.integer(publication);
    copy.integer(servers_[place]);
    copy.text(parts);
  }

  static bool isRecord(const Table& table) { return table.name == kCollections || table.name == kProblems; }

  static void write(CopyIn& copy, const Value& value) {
    if (const auto* text = std::get_if<std::string>(&value)) copy.text(*text);
    if (const auto* integer = std::get_if<std::int64_t>(&value)) copy.integer(*integer);
    if (const auto* real = std::get_if<double>(&value)) copy.real(*real);
  }

  template <typename Give>
  void addRecords(const Table& table, std::size_t results, const Give& give) {
    CopyIn copy(connection_, copySql(table));
    for (std::size_t each = 0; each < results; ++each) {
      std::int64_t row = 0;
      give(each, [&](const std::vector<Value>& values) {
        begin(copy, each, row++, values.size());
        for (const Value& value : values) write(copy, value);
      });
    }
    copy.finish();
  }

  std::string copySql(const Table& table) const {
    return "copy " + place_.table(table.name) + " (row_order, server_id" + namesOf(table) + ") from stdin";
  }

  void begin(CopyIn& copy, std::size_t each, std::int64_t row, std::size_t values) const {
    copy.row(values + 2);
    copy.integer((publications_[each] << kRowBits) + row);
    copy.integer(servers_[each]);
  }

  const Place& place_;
  Connection& connection_;
  std::vector<std::int32_t> servers_;       // by result
  std::vector<std::int64_t> publications_;  // by result
};

class PostgresInventory;

// A connection out of the inventory's, given back as long as it is good for another use.
class Lease {
 public:
  Lease(PostgresInventory& inventory, std::unique_ptr<Connection> connection)
      : inventory_(inventory), connection_(std::move(connection)) {}
  ~Lease();
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;

  Connection& operator*() const { return *connection_; }

 private:
  PostgresInventory& inventory_;
  std::unique_ptr<Connection> connection_;
};

class PostgresSnapshot : public Snapshot {
 public:
  PostgresSnapshot(const Place& place, std::unique_ptr<Lease> lease)
      : place_(place),
        lease_(std::move(lease)),
        connection_(**lease_),
        transaction_(connection_, "begin isolation level repeatable read read only") {}

  std::vector<std::string> tableNames() override {
    return place_.attempt([&] {
      const Schema schema = lookAt(connection_, place_.access.schema);
      if (!schema.exists || !schema.mayUse) {
        place_.refuse(!schema.exists
                          ? "it has no schema '" + place_.access.schema +
                                "', so nothing was published there yet"
                          : "the role may not use the schema '" + place_.access.schema +
                                "'; its owner runs: grant usage on schema " + place_.schema +
                                " to ...; grant select on all tables in schema " + place_.schema + " to ...");
      }
      std::vector<std::string> names;
      // Somebody else's tables may have the names of the other two.
      if (!schema.hasOurs()) return names;
      for (const Table* table : everyTable()) {
        if (schema.has(table->name)) names.emplace_back(table->name);
      }
      return names;
    });
  }

  std::vector<std::string> columnNames(const std::string& table) override {
    const Table& known = tableOf(table);
    return {known.columns.begin(), known.columns.end()};
  }

  std::int64_t rowCount(const std::string& table) override {
    return place_.attempt([&] {
      return connection_.run("select count(*) from " + place_.table(tableOf(table).name)).number(0, 0);
    });
  }

  void forEach(const std::string& table, const TakeRow& take) override {
    const Table& known = tableOf(table);
    place_.attempt([&] {
      CopyOut rows(connection_, selectTexts(place_, known) + " order by row_order");
      std::vector<Cell> row(known.columns.size());
      while (rows.next()) {
        for (std::size_t at = 0; at < row.size(); ++at) row[at] = rows.cell(at);
        take(row);
      }
    });
  }

  std::vector<std::string> servers() override {
    return place_.attempt([&] {
      std::vector<std::string> names;
      if (!lookAt(connection_, place_.access.schema).has(kCollections)) return names;
      const ResultSet found = connection_.run(
          "select \"Server name\" from (select distinct on (server_id) server_id, \"Server name\" from " +
          place_.table(kCollections) + " order by server_id, row_order desc) as latest join " +
          place_.table(kServers) + " on id = server_id order by key collate \"C\"");
      for (int row = 0; row < found.rows(); ++row) names.emplace_back(found.text(row, 0).value_or(""));
      return names;
    });
  }

  std::unique_ptr<OwnedRows> rowsOf(const std::string& table,
                                    const std::vector<std::string>& servers) override {
    return place_.attempt([&]() -> std::unique_ptr<OwnedRows> {
      const Table& known = tableOf(table);
      std::vector<std::string> keys;
      for (const std::string& server : servers) keys.push_back(folded(server));
      const std::string all = place_.table(kServers);
      const ResultSet found = connection_.run(
          "select id, key from " + all + " where key in (select jsonb_array_elements_text($1::jsonb))",
          {jsonList(keys)});
      std::vector<std::int32_t> ids;
      Owners owners;
      for (int row = 0; row < found.rows(); ++row) {
        ids.push_back(static_cast<std::int32_t>(found.number(row, 0)));
        owners.emplace(*found.text(row, 0), *found.text(row, 1));
      }
      std::string extra = ", server_id::text";
      if (known.name == kCollections) {
        extra = ", (select parts from " + place_.table(kCurrent) +
                " as c where c.server_id = t.server_id and c.publication = t.row_order)" + extra;
      }
      return std::make_unique<Owned>(place_, connection_,
                                     selectTexts(place_, known, extra) + " as t where server_id = any('" +
                                         idList(ids) + "'::integer[]) order by row_order",
                                     std::move(owners));
    });
  }

 private:
  using Owners = std::unordered_map<std::string, std::string>;  // folded names by number

  class Owned : public OwnedRows {
   public:
    Owned(const Place& place, Connection& connection, const std::string& select, Owners owners)
        : place_(place), rows_(connection, select), owners_(std::move(owners)) {}

    bool next() override {
      return place_.attempt([&] { return rows_.next(); });
    }
    Cell cell(std::size_t column) override { return rows_.cell(column); }
    const std::string& server() override {
      return owners_.at(std::string(rows_.cell(rows_.columns() - 1).value_or("")));
    }

   private:
    const Place& place_;
    CopyOut rows_;
    const Owners owners_;
  };

  static const Table& tableOf(const std::string& name) {
    for (const Table* table : everyTable()) {
      if (table->name == name) return *table;
    }
    throw Error("an inventory has no table '" + name + "'");
  }

  const Place& place_;
  const std::unique_ptr<Lease> lease_;
  Connection& connection_;
  Transaction transaction_;
};

class PostgresInventory : public Inventory {
 public:
  PostgresInventory(std::string address, const Access& access) : place_(std::move(address), access) {}

  void openForReading() {
    place_.attempt([&] { const Lease lease(*this, lend(false)); });
  }

  void openForPublishing() {
    place_.attempt([&] {
      const Lease lease(*this, lend(false));
      requireTaker(*lease);
    });
  }

  std::vector<Published> publish(std::span<const Result> results) override {
    std::vector<std::string> keys;
    for (const Result& result : results) keys.push_back(folded(result.origin.server));
    const std::string whom = keys.size() == 1 ? results[0].origin.server : "one of these servers";
    using All = std::vector<Published>;
    return twice<All>([&](std::optional<Uncertain<All>>& uncertain, bool again) {
      return change<All>(keys, whom, uncertain, again,
                         [&](Publication& publication) { return publication.replace(results); });
    });
  }

  Published take(Snapshot& from, const std::vector<std::string>& servers) override {
    std::vector<std::string> keys;
    for (const std::string& server : servers) keys.push_back(folded(server));
    return twice<Published>([&](std::optional<Uncertain<Published>>& uncertain, bool again) {
      return change<Published>(keys, "a server", uncertain, again, [&](Publication& publication) {
        return publication.take(from, servers, keys);
      });
    });
  }

  std::int64_t remove(const std::vector<std::string>& servers) override {
    std::vector<std::string> keys;
    for (const std::string& server : servers) keys.push_back(folded(server));
    return twice<std::int64_t>([&](std::optional<Uncertain<std::int64_t>>& uncertain, bool again) {
      const auto before = uncertain;
      return change<std::int64_t>(keys, "a server", uncertain, again, [&](Publication& publication) {
        std::size_t missing = 0;
        while (missing < servers.size() && publication.hasRows(missing)) ++missing;
        // The first attempt has removed them after all.
        if (before && missing == 0) return before->done;
        if (missing < servers.size()) failMissing(servers[missing]);
        return publication.removeAll();
      });
    });
  }

  void rename(const std::string& server, const std::string& name) override {
    std::vector<std::string> keys{folded(server)};
    if (!sameName(server, name)) keys.push_back(folded(name));
    twice<bool>([&](std::optional<Uncertain<bool>>& uncertain, bool again) {
      const bool isUncertain = uncertain.has_value();
      return change<bool>(keys, "a server", uncertain, again, [&](Publication& publication) {
        if (!publication.hasRows(0)) {
          // The first attempt has renamed it after all.
          if (isUncertain && keys.size() > 1 && publication.hasRows(1)) return true;
          failMissing(server);
        }
        if (keys.size() > 1 && publication.hasRows(1)) failTaken(place_.shown, name);
        publication.rename(name);
        return true;
      });
    });
  }

  int publishersAtOnce() const override { return kMostPublishers; }

  std::int64_t rowsOf(const std::string& server) override {
    return place_.attempt([&]() -> std::int64_t {
      const Lease lease(*this, lend(false));
      const Schema schema = lookAt(*lease, place_.access.schema);
      if (!schema.exists || !schema.mayUse || !schema.has(kServers)) return 0;
      std::string counts = "select 0";
      for (const Table& table : tables()) {
        if (!schema.has(table.name)) continue;
        counts += " + (select count(*) from " + place_.table(table.name) +
                  " where server_id in (select id from " + place_.table(kServers) +
                  " where left(key, 500) = left($1, 500) and key = $1))";
      }
      // The parameter has a use, and so a type, in any case.
      return (*lease).run(counts + " where $1::text is not null", {folded(server)}).number(0, 0);
    });
  }

  std::unique_ptr<Snapshot> snapshot() override {
    return place_.attempt([&] {
      auto lease = std::make_unique<Lease>(*this, lend(false));
      return std::make_unique<PostgresSnapshot>(place_, std::move(lease));
    });
  }

  void stopWaiting() override { stopWaiting_ = true; }

  void giveBack(std::unique_ptr<Connection> connection) {
    if (PQstatus(connection->raw()) != CONNECTION_OK ||
        PQtransactionStatus(connection->raw()) != PQTRANS_IDLE) {
      return;
    }
    const std::lock_guard lock(mutex_);
    idle_.push_back(std::move(connection));
  }

 private:
  static constexpr milliseconds kShortestPause{10}, kLongestPause{50};

  // A publication whose connection was lost at its end: it may have been made all the same.
  template <typename Done>
  struct Uncertain {
    std::int64_t order = 0;
    Done done;
  };

  // Waits for a moment, unless the time for it is over.
  bool mayWait(steady_clock::time_point deadline) {
    if (stopWaiting_ || steady_clock::now() >= deadline) return false;
    static thread_local std::minstd_rand random{std::random_device{}()};
    std::this_thread::sleep_for(milliseconds(std::uniform_int_distribution<milliseconds::rep>(
        kShortestPause.count(), kLongestPause.count())(random)));
    return true;
  }

  // A connection that stands, or a new one. Behind a lost one nothing that stands is relied on, and a server
  // that is only just being started again is waited for.
  std::unique_ptr<Connection> lend(bool patiently) {
    if (!patiently) {
      const std::lock_guard lock(mutex_);
      if (!idle_.empty()) {
        auto connection = std::move(idle_.back());
        idle_.pop_back();
        return connection;
      }
    }
    const auto deadline = steady_clock::now() + place_.access.wait;
    while (true) {
      try {
        return connect(place_);
      } catch (const Failure& failure) {
        if (!patiently || !failure.isLost() || !mayWait(deadline)) throw;
      }
    }
  }

  // Fails for a database that an inventory may not or can't be put into.
  Schema requireTaker(Connection& connection) {
    const ResultSet state = connection.run(
        "select pg_is_in_recovery(), current_setting('transaction_read_only') = 'on', "
        "quote_ident(current_user), "
        "quote_ident(current_database())");
    const std::string role(state.text(0, 2).value_or("")), database(state.text(0, 3).value_or(""));
    if (state.isTrue(0, 0))
      place_.refuse("the server is a standby, which takes no changes; name the primary one");
    if (state.isTrue(0, 1)) {
      place_.refuse("the server is read-only for the role " + role +
                    "; its administrator sets default_transaction_read_only to off");
    }
    const std::string& name = place_.access.schema;
    Schema schema = lookAt(connection, name);
    if (!schema.exists) {
      if (!schema.mayCreate) {
        place_.refuse("the role " + role + " may not make the schema '" + name +
                      "'; the database's owner runs: create schema " + place_.schema + " authorization " +
                      role);
      }
      return schema;
    }
    const std::string grants = "; its owner runs: grant usage, create on schema " + place_.schema + " to " +
                               role + "; grant select, insert, update, delete on all tables in schema " +
                               place_.schema + " to " + role + "; grant usage on all sequences in schema " +
                               place_.schema + " to " + role;
    if (!schema.mayUse) place_.refuse("the role " + role + " may not use the schema '" + name + "'" + grants);
    if (!schema.columns.empty() && !schema.hasOurs() && !place_.access.force) {
      place_.refuse("its schema '" + name +
                    "' has tables of somebody else's and none of an inventory's; --schema NAME puts the "
                    "inventory into another one, --force beside them");
    }
    for (const Table* table : everyTable()) {
      if (!schema.has(table->name)) continue;
      const auto requireColumn = [&](std::string_view column) {
        if (schema.columns[std::string(table->name)].contains(std::string(column))) return;
        place_.refuse("its table " + name + "." + std::string(table->name) + " has no column '" +
                      std::string(column) + "'");
      };
      for (const std::string_view column : table->columns) requireColumn(column);
      for (const char* column : {"row_order", "server_id"}) requireColumn(column);
    }
    for (const std::string& table : ownNames()) {
      if (!schema.has(table) && !schema.mayCreate) {
        place_.refuse("the role " + role + " may make nothing in the schema '" + name + "', where '" + table +
                      "' isn't there" + grants);
      }
      if (schema.unwritable.contains(table)) {
        place_.refuse("the role " + role + " may not change the table " + name + "." + table + grants);
      }
    }
    return schema;
  }

  [[noreturn]] void failMissing(const std::string& server) const {
    throw Error("there is nothing of a server '" + server + "' in the database '" + place_.shown + "'");
  }

  std::vector<std::string> ownNames() const {
    std::vector<std::string> names;
    for (const Table* table : everyTable()) names.emplace_back(table->name);
    names.emplace_back(kServers);
    names.emplace_back(kCurrent);
    for (View& view : allViews()) names.push_back(std::move(view.name));
    return names;
  }

  std::vector<View> allViews() const {
    return views({[this](std::string_view table) { return place_.table(table); }, true});
  }

  void makeTables(Connection& connection) {
    if (hasTables_) return;
    const std::vector<std::string> names = ownNames();
    const std::vector<View> wanted = allViews();
    const auto isWhole = [&] {
      const Schema schema = requireTaker(connection);
      const auto isOutdated = [&](const View& view) {
        const auto found = schema.ownViews.find(view.name);
        return found != schema.ownViews.end() && found->second != commentOn(view);
      };
      return std::all_of(names.begin(), names.end(),
                         [&](const std::string& name) { return schema.has(name); }) &&
             std::none_of(wanted.begin(), wanted.end(), isOutdated);
    };
    if (!isWhole()) {
      Transaction transaction(connection, beginning());
      connection.run("select pg_advisory_xact_lock($1)",
                     {std::to_string(lockNumber(place_.access.schema + '\0'))});
      // Whoever may not make a schema may have been given one.
      if (!lookAt(connection, place_.access.schema).exists)
        connection.execute("create schema " + place_.schema);
      if (!isWhole()) connection.execute(creationSql());
      transaction.commit();
    }
    hasTables_ = true;
  }

  std::string creationSql() const {
    std::string sql = "create table if not exists " + place_.table(kServers) +
                      " (id integer generated always as identity, key text not null);" +
                      "create index if not exists server_key_by_key on " + place_.table(kServers) +
                      " (left(key, 500));" + "create sequence if not exists " + place_.table(kPublications) +
                      ";" + "create table if not exists " + place_.table(kCurrent) +
                      " (publication bigint not null, server_id integer not null, parts text not null);" +
                      "create index if not exists still_current_by_server on " + place_.table(kCurrent) +
                      " (server_id);";
    for (const Table* table : everyTable()) {
      std::string columns;
      for (const std::string_view column : table->columns) {
        const ColumnType type = columnType(column);
        columns += ", " + quotedName(column) +
                   (type == ColumnType::kText      ? " text"
                    : type == ColumnType::kInteger ? " bigint"
                                                   : " double precision");
      }
      sql += "create table if not exists " + place_.table(table->name) +
             " (row_order bigint not null, server_id integer not null" + columns + ");" +
             "create index if not exists " + quotedName(std::string(table->name) + " by server") + " on " +
             place_.table(table->name) + " (server_id);";
    }
    sql += "create index if not exists \"Problems by item\" on " + place_.table(kProblems) +
           " (server_id, \"Table\");";
    for (const View& view : allViews()) {
      sql += "create or replace view " + place_.table(view.name) + " as " + view.select +
             ";comment on view " + place_.table(view.name) + " is '" + commentOn(view) + "';";
    }
    return sql;
  }

  // Others who lock whole tables are waited for like those who publish.
  std::string beginning() const {
    const auto wait = std::clamp<std::int64_t>(place_.access.wait.count(), 1, 2147483647);
    return "begin isolation level read committed; set local lock_timeout = " + std::to_string(wait);
  }

  // A change as a whole, and once more where the connection is lost.
  template <typename Done, typename Attempt>
  Done twice(const Attempt& attempt) {
    std::optional<Uncertain<Done>> uncertain;
    for (int tries = 1;; ++tries) {
      try {
        return attempt(uncertain, tries > 1);
      } catch (const Failure& failure) {
        hasTables_ = false;
        if (!failure.isLost() || tries == 2 || stopWaiting_) place_.tell(failure);
        // The others are gone with it, most likely.
        const std::lock_guard lock(mutex_);
        idle_.clear();
      }
    }
  }

  template <typename Done, typename Make>
  Done change(const std::vector<std::string>& keys, const std::string& whom,
              std::optional<Uncertain<Done>>& uncertain, bool again, const Make& make) {
    const Lease lease(*this, lend(again));
    Connection& connection = *lease;
    makeTables(connection);
    Transaction transaction(connection, beginning());
    Publication publication(place_, connection);
    const auto deadline = steady_clock::now() + place_.access.wait;
    while (!publication.lock(keys)) {
      if (!mayWait(deadline)) {
        throw ServerLocked("somebody else publishes " + whom + " into the database '" + place_.shown +
                           "'; --wait gives him longer");
      }
    }
    publication.number(keys);
    if (uncertain) {
      if (publication.isThere(uncertain->order)) return std::move(uncertain->done);
      uncertain.reset();
    }
    Done done = make(publication);
    uncertain = Uncertain<Done>{publication.firstOrder(), done};
    transaction.commit();
    return done;
  }

  const Place place_;
  std::atomic<bool> stopWaiting_ = false;
  std::atomic<bool> hasTables_ = false;
  std::mutex mutex_;  // of the connections
  std::vector<std::unique_ptr<Connection>> idle_;
};

Lease::~Lease() {
  inventory_.giveBack(std::move(connection_));
}

}  // namespace

std::unique_ptr<Inventory> openPostgresForReading(const std::string& address, const Access& access) {
  auto inventory = std::make_unique<PostgresInventory>(address, access);
  inventory->openForReading();
  return inventory;
}

std::unique_ptr<Inventory> openPostgresForPublishing(const std::string& address, const Access& access) {
  auto inventory = std::make_unique<PostgresInventory>(address, access);
  inventory->openForPublishing();
  return inventory;
}

}  // namespace inventory
