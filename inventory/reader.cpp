#include <fmt/core.h>

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "inventory/catalog/views.h"
#include "inventory/inventory.h"
#include "inventory/names.h"
#include "inventory/publication.h"
#include "inventory/schema.h"

namespace inventory {
namespace {

// Limits of one read: rows and collections.
constexpr std::size_t kMaxCollections = 200;
// The limit for queries over views, which do not hold rows in memory.
constexpr std::int64_t kMaxRowsOfViews = 100000;

// The query for infoOf().
constexpr const char* kSelectInfo =
    R"(select c.collection_id, c.server_id, s.name, s.server_key, s.current_collection, c."File", c."File time",
    c."SHA-256", c."Started", c."Published", c."Version", c."Selection", c."Rows by table", c."Collected by",
    c."Machine", c."File size", c."Rows", c."Problems", c."Notes", c."Seconds", c."Looked at", c."Items"
from servers s join "Collections" c on )";

CollectionInfo infoOf(Cursor& row) {
  CollectionInfo info;
  info.id = row.number(0);
  info.serverId = row.number(1);
  info.server = row.text(2);
  info.serverKey = row.text(3);
  info.isCurrent = row.number(4) == info.id;
  std::size_t at = 5;
  std::string rowsByTable;
  for (std::string* const text :
       {&info.file, &info.fileTime, &info.sha256, &info.started, &info.published, &info.version,
        &info.selection, &rowsByTable, &info.collectedBy, &info.machine}) {
    *text = row.text(at++);
  }
  for (std::int64_t* const number : {&info.fileSize, &info.rows, &info.problems, &info.notes})
    *number = row.number(at++);
  info.seconds = std::strtod(row.text(at).c_str(), nullptr);
  info.coverage = Coverage::fromTexts(row.text(at + 1), row.text(at + 2));
  info.rowsByTable = rowCountsOf(rowsByTable);
  return info;
}

// An SQL condition on the servers' keys; true for all servers if none is named.
std::string keysCondition(const std::vector<std::string>& servers) {
  if (servers.empty()) return "1 = 1";
  const auto key = [](const std::string& server) { return quotedText(folded(server)); };
  return "s.server_key in (" + joined(servers, key) + ")";
}

// An SQL expression for the collection of a server that a selection means.
std::string chosenCollection(const Selection& selection) {
  if (selection.at.empty()) return "s.current_collection";
  return fmt::format(R"((select x.collection_id from "Collections" x where x.server_id = s.server_id
    and x."Published" <= {} order by x."Published" desc, x.collection_id desc limit 1))",
                     quotedText(selection.at));
}

Problem problemOf(Cursor& row) {
  Problem problem;
  problem.isNote = row.text(4) == "note";
  problem.table = row.text(5);
  problem.itemKind = objectKind(row.text(6));
  problem.item = row.text(7);
  problem.node = row.text(8);
  problem.property = row.text(9);
  problem.routine = row.text(10);
  if (const std::string number = row.text(11); !number.empty())
    problem.number = static_cast<std::int32_t>(std::strtoul(number.c_str(), nullptr, 16));
  problem.message = row.text(12);
  problem.time = row.text(13);
  return problem;
}

std::vector<std::int64_t> idsOf(std::span<const CollectionInfo> collections) {
  std::vector<std::int64_t> ids;
  for (const CollectionInfo& collection : collections) ids.push_back(collection.id);
  return ids;
}

}  // namespace

TableRow::TableRow(const Table& table, Cursor& cursor)
    : table_(table), cursor_(cursor), first_(insertColumnsOf(table).size() - table.columns.size()) {}

void TableRow::moveTo(const CollectionInfo& collection) {
  collection_ = &collection;
  notKnown_ = first_ == 0 ? Cell() : cursor_.cell(first_ - 1);
}

Cell TableRow::cell(std::size_t column) const {
  return cursor_.cell(first_ + column);
}

bool TableRow::isUnknown(std::size_t column) const {
  return notKnown_ &&
         notKnown_->find("|" + std::string(table_.columns[column].viewName) + "|") != std::string_view::npos;
}

std::size_t Reader::mostAtOnce() const {
  return driver_.readsConcurrently() ? kMaxCollections : 1;
}

Reader::Reader(Driver& driver, OnSuccessor onSuccessor)
    : driver_(driver), onSuccessor_(std::move(onSuccessor)) {
  inTransaction([&](Session& session) { requireInventory(session, driver.shownName()); });
}

// One transaction for all on a server; in a file a long one would block publishers.
template <typename Work>
void Reader::inTransaction(const Work& work) {
  if (session_ == nullptr || !driver_.readsConcurrently()) {
    session_.reset();
    session_ = driver_.read();
  }
  work(*session_);
  endTransaction();
}

void Reader::endTransaction() {
  if (!driver_.readsConcurrently()) session_.reset();
}

std::vector<CollectionInfo> Reader::infos(const std::string& conditions) {
  std::vector<CollectionInfo> all;
  inTransaction([&](Session& session) {
    const auto rows = session.query(kSelectInfo + conditions);
    while (rows->next()) all.push_back(infoOf(*rows));
  });
  return all;
}

std::vector<CollectionInfo> Reader::collections(const Selection& selection) {
  return infos(fmt::format("c.collection_id = {} where {} order by s.server_key", chosenCollection(selection),
                           keysCondition(selection.servers)));
}

std::vector<CollectionInfo> Reader::history(const std::vector<std::string>& servers) {
  return infos(fmt::format("c.server_id = s.server_id where {} order by s.server_key, c.collection_id",
                           keysCondition(servers)));
}

std::vector<std::string> Reader::serverNames() {
  std::vector<std::string> names;
  inTransaction([&](Session& session) {
    const auto rows =
        session.query("select name from servers where current_collection is not null order by server_key");
    while (rows->next()) names.push_back(rows->text(0));
  });
  return names;
}

std::unique_ptr<Cursor> Reader::rowsOf(Session& session, const Table& table,
                                       const std::vector<std::int64_t>& collections) {
  const std::vector<InsertColumn> columns = insertColumnsOf(table);
  const auto query = [&](const std::string& condition, const Parameters& parameters = {}) {
    return session.query(fmt::format("select {} from {} where {} order by {}", namesOf(columns),
                                     quotedName(table.name), condition, table.key),
                         parameters);
  };
  const bool hasIds = columns.front().name == "id";
  if (collections.size() == 1) {
    // A constant text, which is prepared once.
    const std::int64_t id = collections.front();
    return hasIds ? query("id >= $1 and id < $2", {id << 32, (id + 1) << 32})
                  : query("collection_id = $1", {id});
  }
  const auto text = [](std::int64_t id) { return std::to_string(id); };
  return query(hasIds ? idsCondition("id", collections)
                      : fmt::format("collection_id in ({})", joined(collections, text)));
}

void Reader::forEachPiece(std::span<const CollectionInfo> collections, std::size_t most, const OnPiece& each,
                          std::int64_t mostRows) {
  while (!collections.empty()) {
    std::size_t count = 1;
    std::int64_t rows = collections[0].rows;
    while (count < std::min(most, collections.size()) && (rows += collections[count].rows) <= mostRows)
      ++count;
    inTransaction([&](Session& session) { each(session, collections.first(count)); });
    collections = collections.subspan(count);
  }
}

// The collection, or its server's current one if it was deleted; nullopt if the server was removed.
std::optional<CollectionInfo> Reader::presentOf(Session& session, const CollectionInfo& wanted) {
  if (!session.value(R"(select 1 from "Collections" where collection_id = $1)", {wanted.id}).empty())
    return wanted;
  if (onSuccessor_) onSuccessor_(wanted);
  const auto rows = session.query(
      fmt::format("{}c.collection_id = s.current_collection where s.server_id = $1 and s.server_key = $2",
                  kSelectInfo),
      {wanted.serverId, wanted.serverKey});
  return rows->next() ? std::optional(infoOf(*rows)) : std::nullopt;
}

// Like forEachPiece, but replaces collections that were deleted meanwhile.
void Reader::forEachPresent(std::span<const CollectionInfo> collections, std::size_t most,
                            const OnPiece& each, std::int64_t mostRows) {
  forEachPiece(
      collections, most,
      [&](Session& session, std::span<const CollectionInfo> piece) {
        if (driver_.readsConcurrently()) return each(session, piece);
        std::vector<CollectionInfo> present;
        for (const CollectionInfo& wanted : piece) {
          if (auto found = presentOf(session, wanted)) present.push_back(std::move(*found));
        }
        if (!present.empty()) each(session, present);
      },
      mostRows);
}

void Reader::forEachRow(const Table& table, std::span<const CollectionInfo> collections,
                        const std::function<void(const TableRow&)>& each) {
  std::vector<CollectionInfo> sorted(collections.begin(), collections.end());
  std::ranges::sort(sorted, {}, &CollectionInfo::id);
  forEachPresent(sorted, mostAtOnce(), [&](Session& session, std::span<const CollectionInfo> piece) {
    const auto rows = rowsOf(session, table, idsOf(piece));
    TableRow row(table, *rows);
    std::size_t at = 0;
    while (rows->next()) {
      const std::int64_t first = rows->number(0), id = table.key.starts_with("id") ? first >> 32 : first;
      while (piece[at].id != id) ++at;
      row.moveTo(piece[at]);
      each(row);
    }
  });
}

void Reader::forEach(std::span<const CollectionInfo> collections,
                     const std::function<void(std::unique_ptr<ServerData>)>& each) {
  forEachPresent(collections, mostAtOnce(), [&](Session& session, std::span<const CollectionInfo> piece) {
    std::vector<std::unique_ptr<ServerData>> all;
    std::unordered_map<std::int64_t, ServerData*> byId;
    for (const CollectionInfo& collection : piece) {
      all.push_back(std::make_unique<ServerData>(collection));
      byId[collection.id] = all.back().get();
    }
    const auto forEachOf = [&](const Table& table, const auto& add) {
      const auto rows = rowsOf(session, table, idsOf(piece));
      while (rows->next()) {
        const std::int64_t id = rows->number(0);
        add(*byId.at(table.key.starts_with("id") ? id >> 32 : id), *rows);
      }
    };
    for (std::size_t place = 0; place < tables().size(); ++place) {
      const Table& table = tables()[place];
      // Columns: id, number if an object has several rows, not_known, values.
      const std::size_t first = table.hasSeveralRows ? 3 : 2;
      std::vector<Cell> cells(table.columns.size());
      forEachOf(table, [&](ServerData& data, Cursor& row) {
        const std::string notKnown = row.text(first - 1);
        for (std::size_t at = 0; at < cells.size(); ++at) cells[at] = row.cell(first + at);
        data.addRow(place, row.number(0), notKnown, cells);
      });
    }
    forEachOf(ownTable("objects"), [](ServerData& data, Cursor& row) {
      const std::int64_t base = row.number(0) << 32, parent = row.number(4);
      data.addObject({base + row.number(1), static_cast<ObjectKind>(row.number(2)), row.text(3),
                      parent == 0 ? 0 : base + parent, row.number(5), row.text(6)});
    });
    forEachOf(problemsTable(),
              [](ServerData& data, Cursor& row) { data.addProblem(problemOf(row), row.number(2)); });
    // Call back without an open transaction, which would block publishers.
    endTransaction();
    for (auto& data : all) each(std::move(data));
  });
}

void Reader::inViews(std::span<const CollectionInfo> collections, const Piece& work) {
  const auto each = [&](Session& session, std::span<const CollectionInfo> piece) {
    const auto id = [](const CollectionInfo& collection) { return std::to_string(collection.id); };
    work(session, piece,
         fmt::format(R"(select c.collection_id, s.name
from "Collections" c join servers s on s.server_id = c.server_id where c.collection_id in ({}))",
                     joined(piece, id)));
  };
  // A server would scan its tables for each piece, and long reads do not block publishers.
  if (driver_.readsConcurrently())
    return inTransaction([&](Session& session) { each(session, collections); });
  forEachPresent(collections, kMaxCollections, each, kMaxRowsOfViews);
}

bool Reader::isPrivileged() {
  bool isPrivileged = false;
  inTransaction([&](Session& session) {
    isPrivileged = session.dialect().isPostgres() && session.value(R"(
select rolsuper or pg_has_role('pg_read_server_files', 'member')
    or pg_has_role('pg_write_server_files', 'member') or pg_has_role('pg_execute_server_program', 'member')
from pg_roles where rolname = current_user)") == "1";
  });
  return isPrivileged;
}

}  // namespace inventory
