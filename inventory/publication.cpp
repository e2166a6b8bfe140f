#include "inventory/publication.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <deque>
#include <nlohmann/json.hpp>
#include <unordered_set>
#include <utility>

#include "inventory/checked_rows.h"
#include "inventory/clock.h"
#include "inventory/names.h"
#include "inventory/object_registry.h"
#include "inventory/unknown_cells.h"

namespace inventory {
namespace {

using nlohmann::json;

// Maximum parameters per statement.
constexpr std::size_t kChunk = 400;

// The lists that may lack rows of an object, by the view that has them.
struct ListOfObject {
  std::string_view table;
  ObjectKind object;  // that has the list
  std::string_view view;
};
constexpr ListOfObject kLists[] = {{"tblDirectorySecuritySetting", ObjectKind::kSite, "ftp_access"},
                                   {"tblvirtualDirSecurity", ObjectKind::kDirectory, "ftp_access"},
                                   {"tblvirtualDirectory", ObjectKind::kSite, "ftp_directory"},
                                   {"tblAppliedObject", ObjectKind::kPool, "application"}};

std::string placeholders(std::size_t first, std::size_t count) {
  std::string list;
  for (std::size_t at = 0; at < count; ++at) list += (at == 0 ? "$" : ", $") + std::to_string(first + at);
  return list;
}

// Writes the values of a row of an own table of the inventory. Texts must stay valid until the row ends.
class RecordWriter {
 public:
  explicit RecordWriter(Inserter& inserter) : inserter_(inserter) {}
  RecordWriter& operator<<(std::string&& text) = delete;
  RecordWriter& operator<<(std::string_view text) {
    inserter_.text(text);
    return *this;
  }
  RecordWriter& operator<<(const std::string& text) { return *this << std::string_view(text); }
  RecordWriter& operator<<(const char* text) { return *this << std::string_view(text); }
  RecordWriter& operator<<(std::int64_t value) {
    inserter_.integer(value);
    return *this;
  }
  RecordWriter& operator<<(double value) {
    inserter_.real(value);
    return *this;
  }
  RecordWriter& orNull(std::int64_t value) {
    value == 0 ? inserter_.null() : inserter_.integer(value);
    return *this;
  }
  RecordWriter& orNull(std::string_view text) {
    text.empty() ? inserter_.null() : inserter_.text(text);
    return *this;
  }

 private:
  Inserter& inserter_;
};

// Writes one collection to the inventory.
class CollectionWriter {
 public:
  CollectionWriter(const Collected& collected, std::int64_t id, std::int64_t serverId)
      : collected_(collected),
        id_(id),
        serverId_(serverId),
        registry_(id, collected.lineOf),
        unknown_(collected.problems) {
    published_.replaced.assign(tables().size(), 0);
    published_.added.assign(tables().size(), 0);
  }

  void writeTable(std::size_t at, Inserter& inserter) {
    const Table& table = tables()[at];
    CheckedRows rows(table, collected_.rows->rows(table));
    rowsOf_.assign(rowsOf_.size(), 0);
    while (rows.next()) {
      writeRow(table, rows, inserter);
      ++published_.added[at];
    }
    std::ranges::move(rows.problems(), std::back_inserter(published_.problems));
  }

  void writeObjects(Inserter& inserter) {
    findProblemsOfDirectories();
    for (ObjectInfo& object : registry_.objects()) {
      object.incomplete = incompleteOf(object);
      writeObject(object, id_, inserter);
    }
  }

  void writeProblems(Inserter& inserter) {
    std::int64_t number = id_ << 32;
    for (const auto* problems : {&collected_.problems, &std::as_const(published_.problems)}) {
      for (const Problem& problem : *problems) {
        writeProblem(problem, collected_.origin.server, ++number, id_, registry_.objectOf(problem), inserter);
      }
    }
  }

  void writeCollection(const std::string& time, Inserter& inserter) {
    const Origin& origin = collected_.origin;
    CollectionInfo info;
    info.recordedName = origin.server;
    info.file = origin.file;
    info.fileSize = origin.fileSize;
    info.fileTime = origin.fileTime;
    info.sha256 = origin.sha256;
    info.started = origin.started;
    info.published = time;
    info.version = origin.version;
    info.selection = origin.selection;
    info.rows = sumOf(published_.added);
    info.rowsByTable = published_.added;
    info.notes = std::ranges::count(collected_.problems, true, &Problem::isNote);
    info.problems =
        static_cast<std::int64_t>(collected_.problems.size() + published_.problems.size()) - info.notes;
    // Rounded, so that all databases return the same text.
    info.seconds = std::round(origin.seconds * 1000) / 1000;
    info.collectedBy = cleanText(origin.collectedBy);
    info.machine = cleanText(origin.machine);
    info.coverage = collected_.coverage;
    inventory::writeCollection(info, id_, serverId_, inserter);
  }

  std::int64_t id() const { return id_; }
  Published& published() { return published_; }

 private:
  void writeRow(const Table& table, CheckedRows& row, Inserter& inserter) {
    const ObjectKind kind = kindOfRow(table, row);
    const std::int64_t object = registry_.objectOf(table, kind, row);
    const std::int64_t number = object != 0 ? countRow(object) : 1;
    const bool isExtra = object == 0 || (number > 1 && !table.hasSeveralRows);
    inserter.integer(isExtra ? (id_ << 32) + nextExtra_++ : object);
    if (table.hasSeveralRows) inserter.integer(number);
    const std::string notKnown = unknown_.concerns(table.name) ? unknownOf(table, kind, row) : "";
    notKnown.empty() ? inserter.null() : inserter.text(notKnown);
    for (std::size_t column = 0; column < table.columns.size(); ++column) inserter.text(row.cell(column));
    inserter.endRow();
  }

  // Counts a row about an object in the table. Returns its number.
  std::int64_t countRow(std::int64_t object) {
    const auto at = static_cast<std::uint32_t>(object);
    if (rowsOf_.size() <= at) rowsOf_.resize(at + at / 2 + 64);
    return ++rowsOf_[at];
  }

  std::string unknownOf(const Table& table, ObjectKind kind, CheckedRows& row) {
    const std::size_t place = table.find(itemKindOf(kind) == ObjectKind::kSite ? kSiteColumn : kPoolColumn);
    const std::string item(place < table.columns.size() ? row.cell(place).value_or("") : "");
    std::string node;
    if (kind == ObjectKind::kDirectory) {
      node = std::string(row.cell(table.find(kPathColumn)).value_or("")) + "/" +
             std::string(row.cell(table.find(kDirectoryColumn)).value_or(""));
    }
    return unknown_.of(table, {kind, item, node, [&](std::size_t column) { return row.cell(column); }});
  }

  std::string incompleteOf(const ObjectInfo& object) const {
    std::string views;
    for (const ListOfObject& list : kLists) {
      if (list.object != object.kind) continue;
      const std::string& item = registry_.itemOf(object);
      const ObjectKind kind = tables()[findTable(list.table)].kinds[0];
      if (collected_.coverage.includes(list.table, kind, item) && !lacksRows(list, object, item)) continue;
      views += (views.empty() ? "|" : "") + std::string(list.view) + "|";
    }
    return views;
  }

  // A directory lacks rows if a problem concerns it, its site as a whole, or everything.
  bool lacksRows(const ListOfObject& list, const ObjectInfo& object, const std::string& item) const {
    if (!unknown_.mayLackRows(list.table, item)) return false;
    if (object.kind != ObjectKind::kDirectory || aboutDirectories_.contains(0)) return true;
    const ObjectInfo* each = &object;
    while (each->kind == ObjectKind::kDirectory && each->parent != 0) each = &registry_.object(each->parent);
    return aboutDirectories_.contains(object.id) || aboutDirectories_.contains(each->id);
  }

  void findProblemsOfDirectories() {
    for (const Problem& problem : collected_.problems) {
      if (!problem.isNote && problem.table == "tblvirtualDirSecurity")
        aboutDirectories_.insert(registry_.objectOf(problem));
    }
  }

  const Collected& collected_;
  const std::int64_t id_;
  const std::int64_t serverId_;
  ObjectRegistry registry_;
  UnknownCells unknown_;
  std::unordered_set<std::int64_t> aboutDirectories_;  // objects of problems with directories' lists
  std::vector<std::uint32_t> rowsOf_;  // about each object in the table, by the objects' numbers
  std::int64_t nextExtra_ = kFirstExtra;
  Published published_;
};

// Throws ServerRefused for a collection that would replace one with a larger coverage.
void requireCoverage(Session& session, std::span<const Collected> collected,
                     const std::map<std::string, KnownServer>& servers) {
  for (const Collected& each : collected) {
    const KnownServer& server = servers.at(folded(each.origin.server));
    if (server.current == 0) continue;
    const auto rows = session.query(
        R"(select "Looked at", "Items", "Selection" from "Collections" where collection_id = $1)",
        {server.current});
    if (!rows->next()) continue;
    if (each.coverage.covers(Coverage::fromTexts(rows->text(0), rows->text(1)))) continue;
    const std::string selection = rows->text(2);
    throw ServerRefused(fmt::format(
        "the previous collection of {} is of {}, which this one does not cover (use --replace to replace it)",
        each.origin.server, selection.empty() ? "everything" : selection));
  }
}

// Deletes the oldest collections beyond the number to keep, which includes the new one. Returns the deleted
// rows by server id.
std::map<std::int64_t, RowCounts> deleteOldest(Session& session,
                                               const std::map<std::string, KnownServer>& servers) {
  std::string ids;
  for (const auto& [key, server] : servers) {
    if (server.current != 0) ids += (ids.empty() ? "" : ", ") + std::to_string(server.id);
  }
  std::map<std::int64_t, RowCounts> deleted;
  if (ids.empty()) return deleted;
  const int keep = readKeep(session);
  std::map<std::int64_t, int> kept;
  std::vector<std::int64_t> old;
  const auto rows = session.query(fmt::format(R"(select collection_id, server_id, "Rows by table"
from "Collections" where server_id in ({}) order by collection_id desc)",
                                              ids));
  while (rows->next()) {
    if (++kept[rows->number(1)] < keep) continue;
    old.push_back(rows->number(0));
    RowCounts& counts = deleted.try_emplace(rows->number(1), tables().size(), 0).first->second;
    const RowCounts more = rowCountsOf(rows->text(2));
    std::ranges::transform(counts, more, counts.begin(), std::plus());
  }
  deleteCollections(session, old);
  return deleted;
}

template <typename Write>
void insertInto(Session& session, const Table& table, std::deque<CollectionWriter>& writers,
                const Write& write) {
  const auto inserter = session.insertInto(table.name, insertColumnsOf(table));
  for (CollectionWriter& writer : writers) write(writer, *inserter);
  inserter->finish();
}

}  // namespace

void addServers(Session& session, std::span<const std::string> names) {
  for (std::size_t at = 0; at < names.size(); at += kChunk / 2) {
    const auto chunk = names.subspan(at, std::min(kChunk / 2, names.size() - at));
    Parameters values;
    std::string rows;
    for (const std::string& name : chunk) {
      rows += (rows.empty() ? "(" : ", (") + placeholders(values.size() + 1, 2) + ")";
      values.insert(values.end(), {name, folded(name)});
    }
    session.execute(fmt::format("insert into servers (name, server_key) values {} "
                                "on conflict (server_key) do nothing",
                                rows),
                    values);
  }
}

std::map<std::string, KnownServer> findServers(Session& session, std::span<const std::string> keys) {
  std::map<std::string, KnownServer> found;
  for (std::size_t at = 0; at < keys.size(); at += kChunk) {
    const auto chunk = keys.subspan(at, std::min(kChunk, keys.size() - at));
    const auto rows =
        session.query(fmt::format("select server_key, server_id, name, current_collection from servers "
                                  "where server_key in ({})",
                                  placeholders(1, chunk.size())),
                      Parameters(chunk.begin(), chunk.end()));
    while (rows->next()) found[rows->text(0)] = {rows->number(1), rows->text(2), rows->number(3)};
  }
  return found;
}

std::string idsCondition(std::string_view column, std::vector<std::int64_t> collections) {
  if (collections.empty()) return "1 = 0";
  std::ranges::sort(collections);
  std::string condition;
  for (std::size_t at = 0; at < collections.size();) {
    std::size_t end = at + 1;
    while (end < collections.size() && collections[end] <= collections[end - 1] + 1) ++end;
    condition += fmt::format("{0}{1} >= {2} and {1} < {3}", condition.empty() ? "(" : " or ", column,
                             collections[at] << 32, (collections[end - 1] + 1) << 32);
    at = end;
  }
  return condition + ")";
}

std::vector<std::int64_t> newCollectionIds(Session& session, std::size_t count) {
  const Dialect& dialect = session.dialect();
  std::vector<std::int64_t> ids;
  if (dialect.isPostgres()) {
    const auto rows = session.query(
        fmt::format("select nextval('collection_ids') from generate_series(1, {}) order by 1", count));
    while (rows->next()) ids.push_back(rows->number(0));
    return ids;
  }
  const std::string next = session.value("select value from settings where name = 'next_collection'");
  std::int64_t first = std::strtoll(next.c_str(), nullptr, 10);
  for (std::size_t at = 0; at < count; ++at) ids.push_back(first++);
  session.execute("update settings set value = $1 where name = 'next_collection'", {std::to_string(first)});
  return ids;
}

int readKeep(Session& session) {
  return std::max(1, std::atoi(session.value("select value from settings where name = 'keep'").c_str()));
}

void deleteCollections(Session& session, const std::vector<std::int64_t>& collections) {
  for (std::size_t at = 0; at < collections.size(); at += kChunk) {
    const std::vector<std::int64_t> chunk(
        collections.begin() + static_cast<std::ptrdiff_t>(at),
        collections.begin() + static_cast<std::ptrdiff_t>(std::min(at + kChunk, collections.size())));
    const auto remove = [&](std::string_view table, const std::string& condition) {
      return fmt::format("delete from {} where {};", quotedName(table), condition);
    };
    const std::string isChosen = fmt::format(
        "collection_id in ({})", joined(chunk, [](std::int64_t id) { return std::to_string(id); }));
    std::string sql;
    for (const Table& table : tables()) sql += remove(table.name, idsCondition("id", chunk));
    sql += remove("Problems", idsCondition("id", chunk));
    sql += remove("objects", isChosen);
    session.execute(sql + remove("Collections", isChosen));
  }
}

RowCounts rowCountsOf(std::string_view rowsByTable) {
  RowCounts counts(tables().size(), 0);
  const json stored = json::parse(rowsByTable, nullptr, false);
  for (std::size_t at = 0; at < counts.size() && stored.is_array() && at < stored.size(); ++at) {
    if (stored[at].is_number_integer()) counts[at] = stored[at].get<std::int64_t>();
  }
  return counts;
}

void writeProblem(const Problem& problem, const std::string& server, std::int64_t id, std::int64_t collection,
                  std::int64_t object, Inserter& inserter) {
  const std::string number =
      problem.number ? fmt::format("0x{:X}", static_cast<std::uint32_t>(*problem.number)) : "";
  std::string texts[5];
  std::ranges::transform(
      std::array{&Problem::item, &Problem::node, &Problem::property, &Problem::routine, &Problem::message},
      texts, [&](std::string Problem::*text) { return cleanText(problem.*text); });
  RecordWriter out(inserter);
  out << id << collection;
  out.orNull(object);
  out << server << (problem.isNote ? "note" : "problem") << problem.table << wordFor(problem.itemKind)
      << texts[0] << texts[1] << texts[2] << texts[3] << number << texts[4] << problem.time;
  inserter.endRow();
}

void writeObject(const ObjectInfo& object, std::int64_t collection, Inserter& inserter) {
  RecordWriter out(inserter);
  out << collection << (object.id & 0xFFFFFFFF) << static_cast<std::int64_t>(object.kind) << object.key;
  out.orNull(object.parent & 0xFFFFFFFF).orNull(object.line).orNull(object.incomplete);
  inserter.endRow();
}

void writeCollection(const CollectionInfo& info, std::int64_t id, std::int64_t serverId, Inserter& inserter) {
  const std::string tables = info.coverage.tablesText(), items = info.coverage.itemsText(),
                    rowsByTable = json(info.rowsByTable).dump();
  RecordWriter out(inserter);
  out << id << serverId << info.recordedName << info.file << info.fileSize << info.fileTime << info.sha256
      << info.started << info.published << info.version << info.selection << info.rows << rowsByTable
      << info.problems << info.notes << info.seconds << info.collectedBy << info.machine << tables << items;
  inserter.endRow();
}

std::string currentSql(std::int64_t serverId, const std::string& name, std::int64_t collection) {
  return fmt::format("update servers set name = {}, current_collection = {} where server_id = {};",
                     quotedText(name), collection, serverId);
}

std::vector<InsertColumn> insertColumnsOf(const Table& table) {
  std::vector<InsertColumn> columns;
  if (table.kinds[0] != ObjectKind::kNone) {
    columns.push_back({"id", Type::kInteger});
    if (table.hasSeveralRows) columns.push_back({"number", Type::kInteger});
    columns.push_back({"not_known", Type::kText});
  }
  for (const Column& column : table.columns) columns.push_back({column.name, column.type});
  return columns;
}

std::vector<Published> publishAll(Session& session, std::span<const Collected> collected,
                                  const PublishOptions& options) {
  std::vector<std::string> names, keys;
  for (const Collected& each : collected) {
    names.push_back(each.origin.server);
    keys.push_back(folded(each.origin.server));
  }
  addServers(session, names);
  const std::map<std::string, KnownServer> servers = findServers(session, keys);
  if (!options.replace) requireCoverage(session, collected, servers);
  std::map<std::int64_t, RowCounts> replaced = deleteOldest(session, servers);

  const std::vector<std::int64_t> ids = newCollectionIds(session, collected.size());
  std::deque<CollectionWriter> writers;
  for (std::size_t at = 0; at < collected.size(); ++at)
    writers.emplace_back(collected[at], ids[at], servers.at(keys[at]).id);
  for (std::size_t at = 0; at < tables().size(); ++at) {
    insertInto(session, tables()[at], writers,
               [&](CollectionWriter& writer, Inserter& inserter) { writer.writeTable(at, inserter); });
  }
  insertInto(session, ownTable("objects"), writers,
             [](CollectionWriter& writer, Inserter& inserter) { writer.writeObjects(inserter); });
  insertInto(session, problemsTable(), writers,
             [](CollectionWriter& writer, Inserter& inserter) { writer.writeProblems(inserter); });
  const std::string time = utcNow();
  insertInto(session, collectionsTable(), writers,
             [&](CollectionWriter& writer, Inserter& inserter) { writer.writeCollection(time, inserter); });

  std::string updates;
  std::vector<Published> published;
  for (std::size_t at = 0; at < writers.size(); ++at) {
    const std::int64_t server = servers.at(keys[at]).id;
    updates += currentSql(server, collected[at].origin.server, ids[at]);
    if (const auto found = replaced.find(server); found != replaced.end())
      writers[at].published().replaced = std::move(found->second);
    published.push_back(std::move(writers[at].published()));
  }
  session.execute(updates);
  return published;
}

}  // namespace inventory
