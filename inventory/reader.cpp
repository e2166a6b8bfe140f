#include <algorithm>
#include <optional>
#include <unordered_map>
#include <utility>

#include "inventory/catalog/views.h"
#include "inventory/inventory.h"
#include "inventory/names.h"
#include "inventory/publication.h"
#include "inventory/schema.h"

namespace inventory {
namespace {

// What is read at once where a reading may last: rows, and collections.
constexpr std::int64_t kMostRows = 20000;
constexpr std::size_t kMostCollections = 200;
// The same for queries over views, which keep no rows.
constexpr std::int64_t kMostRowsOfViews = 100000;

// The columns of "Collections", as CollectionInfo has them.
constexpr const char* kInfoColumns =
    "c.collection_id, c.server_id, s.name, s.server_key, s.current_collection, c.\"File\", c.\"File size\", "
    "c.\"File time\", c.\"SHA-256\", c.\"Published\", c.\"Selection\", c.\"Rows\", c.\"Rows by table\", "
    "c.\"Problems\", c.\"Notes\", c.\"Collected by\", c.\"Machine\", c.\"Version\", c.\"Looked at\", "
    "c.\"Items\", c.\"Started\", "
    "c.\"Seconds\", c.\"Server name\"";

CollectionInfo infoOf(Cursor& row) {
  CollectionInfo info;
  info.id = row.number(0);
  info.serverId = row.number(1);
  info.server = row.text(2);
  info.serverKey = row.text(3);
  info.isCurrent = row.number(4) == info.id;
  info.file = row.text(5);
  info.fileSize = row.number(6);
  info.fileTime = row.text(7);
  info.sha256 = row.text(8);
  info.published = row.text(9);
  info.selection = row.text(10);
  info.rows = row.number(11);
  info.rowsByTable = row.text(12);
  info.problems = row.number(13);
  info.notes = row.number(14);
  info.collectedBy = row.text(15);
  info.machine = row.text(16);
  info.version = row.text(17);
  info.coverage = Coverage::fromTexts(row.text(18), row.text(19));
  info.started = row.text(20);
  info.seconds = std::strtod(row.text(21).c_str(), nullptr);
  info.recordedName = row.text(22);
  return info;
}

// A condition on the servers' keys; true for all where none is named.
std::string keysCondition(const std::vector<std::string>& servers) {
  if (servers.empty()) return "1 = 1";
  std::string keys;
  for (const std::string& server : servers) keys += (keys.empty() ? "" : ", ") + quotedText(folded(server));
  return "s.server_key in (" + keys + ")";
}

// Which collection of a server a selection means, as an expression.
std::string chosenCollection(const Dialect& dialect, const Selection& selection) {
  if (selection.at.empty()) return "s.current_collection";
  return "(select x.collection_id from " + dialect.table("Collections") +
         " x where x.server_id = s.server_id and x.\"Published\" <= " + quotedText(selection.at) +
         " order by x.\"Published\" desc, x.collection_id desc limit 1)";
}

Problem problemOf(Cursor& row, std::size_t first) {
  Problem problem;
  problem.isNote = row.text(first + 1) == "note";
  problem.table = row.text(first + 2);
  problem.itemKind = objectKind(row.text(first + 3));
  problem.item = row.text(first + 4);
  problem.node = row.text(first + 5);
  problem.property = row.text(first + 6);
  problem.routine = row.text(first + 7);
  if (const std::string number = row.text(first + 8); !number.empty())
    problem.number = static_cast<std::int32_t>(std::strtoul(number.c_str(), nullptr, 16));
  problem.message = row.text(first + 9);
  problem.time = row.text(first + 10);
  return problem;
}

std::string columnNames(const Table& table) {
  std::string names;
  for (const InsertColumn& column : insertColumnsOf(table))
    names += (names.empty() ? "" : ", ") + quotedName(column.name);
  return names;
}

// A query for the rows of some collections in a table, in their order. For a single one the text is always
// the same, so that it is prepared once.
std::unique_ptr<Cursor> queryRows(Session& session, const Table& table,
                                  const std::vector<std::int64_t>& collections) {
  const std::string select =
      "select " + columnNames(table) + " from " + session.dialect().table(table.name) + " where ";
  const bool hasIds = table.kinds[0] != ObjectKind::kNone || table.name == problemsTable().name;
  const std::string order = hasIds ? table.hasSeveralRows ? " order by id, number" : " order by id"
                            : table.name == "objects" ? " order by collection_id, number"
                                                      : " order by collection_id";
  if (collections.size() == 1) {
    const std::int64_t id = collections.front();
    return hasIds ? session.query(select + "id >= $1 and id < $2" + order, {id << 32, (id + 1) << 32})
                  : session.query(select + "collection_id = $1" + order, {id});
  }
  std::string list;
  for (const std::int64_t id : collections) list += (list.empty() ? "" : ", ") + std::to_string(id);
  return session.query(
      select + (hasIds ? idsCondition("id", collections) : "collection_id in (" + list + ")") + order);
}

// A row of a query over one of the tables.
class CursorRow : public TableRow {
 public:
  CursorRow(const Table& table, Cursor& cursor)
      : table_(table), cursor_(cursor), first_(insertColumnsOf(table).size() - table.columns.size()) {}

  void moveTo(const CollectionInfo& collection) {
    collection_ = &collection;
    notKnown_ = first_ == 0 ? Cell() : cursor_.cell(first_ - 1);
  }

  const CollectionInfo& collection() const override { return *collection_; }
  Cell cell(std::size_t column) const override { return cursor_.cell(first_ + column); }
  bool isUnknown(std::size_t column) const override {
    if (!notKnown_) return false;
    return notKnown_->find("|" + std::string(table_.columns[column].viewName) + "|") !=
           std::string_view::npos;
  }

 private:
  const Table& table_;
  Cursor& cursor_;
  const std::size_t first_;  // columns of bookkeeping ahead of the table's own
  const CollectionInfo* collection_ = nullptr;
  Cell notKnown_;
};

}  // namespace

class Reader::Impl {
 public:
  Impl(Driver& driver, OnSuccessor onSuccessor) : driver_(driver), onSuccessor_(std::move(onSuccessor)) {}

  // A transaction; a new one where a long one would keep others from publishing.
  Session& begin() {
    if (session_ != nullptr && driver_.readsConcurrently()) return *session_;
    session_.reset();
    session_ = driver_.read();
    return *session_;
  }

  const Dialect& dialect() const { return driver_.dialect(); }

  void end() {
    if (!driver_.readsConcurrently()) session_.reset();
  }

  std::vector<CollectionInfo> infos(const std::string& from) {
    Session& session = begin();
    std::vector<CollectionInfo> all;
    {
      const auto rows = session.query("select " + std::string(kInfoColumns) + from);
      while (rows->next()) all.push_back(infoOf(*rows));
    }
    end();
    return all;
  }

  // Goes through collections in pieces, each of which is read in one transaction. `each` gets those that are
  // there.
  template <typename Each>
  void inPieces(std::span<const CollectionInfo> collections, const Each& each) {
    inPieces(collections, driver_.readsConcurrently() ? kMostCollections : 1, kMostRows, each);
  }
  template <typename Each>
  void inPieces(std::span<const CollectionInfo> collections, std::size_t mostCollections,
                std::int64_t mostRows, const Each& each) {
    for (std::size_t at = 0; at < collections.size();) {
      std::size_t count = 1;
      std::int64_t rows = collections[at].rows;
      while (count < mostCollections && at + count < collections.size() &&
             (rows += collections[at + count].rows) <= mostRows) {
        ++count;
      }
      Session& session = begin();
      if (driver_.readsConcurrently()) {
        each(session, collections.subspan(at, count));
      } else {
        std::vector<CollectionInfo> present;
        for (const CollectionInfo& collection : collections.subspan(at, count)) {
          if (auto found = presentOf(session, collection)) present.push_back(std::move(*found));
        }
        if (!present.empty()) each(session, std::span<const CollectionInfo>(present));
      }
      end();
      at += count;
    }
  }

 private:
  // The collection, or where it was deleted its server's current one; nothing where the server was removed.
  std::optional<CollectionInfo> presentOf(Session& session, const CollectionInfo& collection) {
    const std::string collections = session.dialect().table("Collections");
    if (!session.value("select 1 from " + collections + " where collection_id = $1", {collection.id}).empty())
      return collection;
    if (onSuccessor_) onSuccessor_(collection);
    const auto rows = session.query("select " + std::string(kInfoColumns) + " from " +
                                        session.dialect().table("servers") + " s join " + collections +
                                        " c on c.collection_id = s.current_collection where "
                                        "s.server_id = $1 and s.server_key = $2",
                                    {collection.serverId, collection.serverKey});
    return rows->next() ? std::optional(infoOf(*rows)) : std::nullopt;
  }

  Driver& driver_;
  const OnSuccessor onSuccessor_;
  std::unique_ptr<Session> session_;
};

Reader::Reader(Driver& driver, OnSuccessor onSuccessor)
    : impl_(std::make_unique<Impl>(driver, std::move(onSuccessor))) {
  requireInventory(impl_->begin(), driver.shownName());
  impl_->end();
}

Reader::~Reader() = default;
Reader::Reader(Reader&&) noexcept = default;

std::vector<CollectionInfo> Reader::collections(const Selection& selection) {
  const Dialect& dialect = impl_->dialect();
  return impl_->infos(" from " + dialect.table("servers") + " s join " + dialect.table("Collections") +
                      " c on c.collection_id = " + chosenCollection(dialect, selection) + " where " +
                      keysCondition(selection.servers) + " order by s.server_key");
}

std::vector<CollectionInfo> Reader::history(const std::vector<std::string>& servers) {
  const Dialect& dialect = impl_->dialect();
  return impl_->infos(" from " + dialect.table("servers") + " s join " + dialect.table("Collections") +
                      " c on c.server_id = s.server_id where " + keysCondition(servers) +
                      " order by s.server_key, c.collection_id");
}

std::vector<std::string> Reader::serverNames() {
  Session& session = impl_->begin();
  std::vector<std::string> names;
  {
    const auto rows = session.query("select name from " + session.dialect().table("servers") +
                                    " where current_collection is not null order by server_key");
    while (rows->next()) names.push_back(rows->text(0));
  }
  impl_->end();
  return names;
}

void Reader::forEachRow(const Table& table, std::span<const CollectionInfo> collections,
                        const std::function<void(const TableRow&)>& each) {
  std::vector<CollectionInfo> sorted(collections.begin(), collections.end());
  std::ranges::sort(sorted, {}, &CollectionInfo::id);
  const bool isList = table.name == collectionsTable().name;
  impl_->inPieces(sorted, [&](Session& session, std::span<const CollectionInfo> piece) {
    std::vector<std::int64_t> ids;
    for (const CollectionInfo& collection : piece) ids.push_back(collection.id);
    const auto rows = queryRows(session, table, ids);
    CursorRow row(table, *rows);
    std::size_t at = 0;
    while (rows->next()) {
      const std::int64_t id = isList ? rows->number(0) : rows->number(0) >> 32;
      while (piece[at].id != id) ++at;
      row.moveTo(piece[at]);
      each(row);
    }
  });
}

void Reader::forEach(std::span<const CollectionInfo> collections,
                     const std::function<void(std::unique_ptr<ServerData>)>& each) {
  impl_->inPieces(collections, [&](Session& session, std::span<const CollectionInfo> piece) {
    std::vector<std::int64_t> ids;
    std::vector<std::unique_ptr<ServerData>> data;
    std::unordered_map<std::int64_t, ServerData*> byId;
    for (const CollectionInfo& collection : piece) {
      ids.push_back(collection.id);
      data.push_back(std::make_unique<ServerData>(collection));
      byId[collection.id] = data.back().get();
    }
    const auto rowsOf = [&](const Table& table) { return queryRows(session, table, ids); };
    for (std::size_t place = 0; place < tables().size(); ++place) {
      const Table& table = tables()[place];
      const auto rows = rowsOf(table);
      // The id, and the row's number where an object has several, are in front of what isn't known and the
      // values.
      const std::size_t first = table.hasSeveralRows ? 3 : 2;
      std::vector<Cell> cells(table.columns.size());
      while (rows->next()) {
        const std::int64_t id = rows->number(0);
        const std::string notKnown = rows->text(first - 1);
        for (std::size_t at = 0; at < cells.size(); ++at) cells[at] = rows->cell(first + at);
        byId.at(id >> 32)->addRow(place, id, notKnown, cells);
      }
    }
    {
      const auto rows = rowsOf(ownTable("objects"));
      while (rows->next()) {
        const std::int64_t base = rows->number(0) << 32, parent = rows->number(4);
        byId.at(rows->number(0))
            ->addObject({base + rows->number(1), static_cast<ObjectKind>(rows->number(2)), rows->text(3),
                         parent == 0 ? 0 : base + parent, rows->number(5), rows->text(6)});
      }
    }
    {
      const auto rows = rowsOf(problemsTable());
      while (rows->next()) byId.at(rows->number(1))->addProblem(problemOf(*rows, 3), rows->number(2));
    }
    // Not while a transaction is open that keeps others from publishing.
    impl_->end();
    for (auto& server : data) each(std::move(server));
  });
}

std::unique_ptr<ServerData> Reader::data(const CollectionInfo& collection) {
  std::unique_ptr<ServerData> found;
  forEach({&collection, 1}, [&](std::unique_ptr<ServerData> data) { found = std::move(data); });
  return found;
}

void Reader::inViews(std::span<const CollectionInfo> collections, const Piece& work) {
  impl_->inPieces(collections, kMostCollections, kMostRowsOfViews,
                  [&](Session& session, std::span<const CollectionInfo> piece) {
                    const Dialect& dialect = session.dialect();
                    std::string ids;
                    for (const CollectionInfo& collection : piece)
                      ids += (ids.empty() ? "" : ", ") + std::to_string(collection.id);
                    work(session, piece,
                         "select c.collection_id, s.name from " + dialect.table("Collections") + " c join " +
                             dialect.table("servers") +
                             " s on s.server_id = c.server_id where c.collection_id in (" + ids + ")");
                  });
}

bool Reader::isPrivileged() {
  Session& session = impl_->begin();
  const bool isPrivileged = session.dialect().isPostgres() &&
                            session.value(
                                "select rolsuper or pg_has_role('pg_read_server_files', 'member') or "
                                "pg_has_role('pg_write_server_files', 'member') or "
                                "pg_has_role('pg_execute_server_program', 'member') from pg_roles "
                                "where rolname = current_user") == "1";
  impl_->end();
  return isPrivileged;
}

void Reader::query(const std::string& sql, const Selection& selection,
                   const std::function<void(Cursor&)>& eachRow) {
  Session& session = impl_->begin();
  const Dialect& dialect = session.dialect();
  const std::string selected = "select " + chosenCollection(dialect, selection) + ", s.name from " +
                               dialect.table("servers") + " s where " + keysCondition(selection.servers);
  {
    const auto rows = session.query(withViews(dialect, selected, sql));
    while (rows->next()) eachRow(*rows);
  }
  impl_->end();
}

}  // namespace inventory
