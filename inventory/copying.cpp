#include "inventory/copying.h"

#include <fmt/core.h>

#include <algorithm>
#include <set>

#include "inventory/names.h"

namespace inventory {
namespace {

// Maximum collections per statement or piece.
constexpr std::size_t kMaxCollections = 200;

// Copies collections in pieces, with ids of the target.
class Copier {
 public:
  Copier(Session& target, const KnownServers& servers) : target_(target), servers_(servers) {
    rows_.assign(tables().size(), 0);
  }

  void copy(Session& source, std::span<const CollectionInfo> piece) {
    const std::vector<std::int64_t> ids = newCollectionIds(target_, piece.size());
    numbers_.clear();
    for (std::size_t at = 0; at < piece.size(); ++at) numbers_[piece[at].id] = {ids[at], &piece[at]};
    for (std::size_t at = 0; at < tables().size(); ++at) rows_[at] += copyTable(source, tables()[at]);
    for (const Table* table : {&ownTable("objects"), &problemsTable(), &collectionsTable()})
      copyTable(source, *table);
  }

  // Makes the latest collection of each server its current one.
  void finish() {
    std::string updates;
    for (const auto& [key, server] : servers_) {
      const auto found = latest_.find(key);
      if (found == latest_.end())
        throw Error(fmt::format("cannot copy {}: it was removed from the source meanwhile", server.name));
      updates += currentSql(server.id, found->second.second, found->second.first);
    }
    target_.execute(updates);
  }

  const RowCounts& rows() const { return rows_; }

 private:
  struct Number {
    std::int64_t id = 0;  // in the target
    const CollectionInfo* info = nullptr;
  };

  std::int64_t copyTable(Session& source, const Table& table) {
    const std::vector<InsertColumn> columns = insertColumnsOf(table);
    const auto inserter = target_.insertInto(table.name, columns);
    std::vector<std::int64_t> ids;
    for (const auto& [id, number] : numbers_) ids.push_back(id);
    const auto rows = Reader::rowsOf(source, table, ids);
    std::int64_t count = 0;
    for (; rows->next(); ++count) {
      const std::int64_t first = rows->number(0);
      const Number& number = numbers_.at(columns[0].name == "id" ? first >> 32 : first);
      for (std::size_t at = 0; at < columns.size(); ++at) copyCell(*rows, at, columns[at], number, *inserter);
      inserter->endRow();
      if (&table == &collectionsTable()) latest_[number.info->serverKey] = {number.id, number.info->server};
    }
    inserter->finish();
    return count;
  }

  void copyCell(Cursor& row, std::size_t at, const InsertColumn& column, const Number& number,
                Inserter& inserter) const {
    const Cell cell = row.cell(at);
    if (!cell) return inserter.null();
    if (column.type == Type::kText || column.type == Type::kTime) return inserter.text(cell);
    if (column.type == Type::kReal) return inserter.real(std::strtod(std::string(*cell).c_str(), nullptr));
    const std::int64_t value = row.number(at);
    if (column.type == Type::kBoolean) return inserter.boolean(value != 0);
    const bool isId = column.name == "id" || column.name == "object_id";
    inserter.integer(column.name == "collection_id" ? number.id
                     : column.name == "server_id"   ? servers_.at(number.info->serverKey).id
                     : isId                         ? (number.id << 32) + (value & 0xFFFFFFFF)
                                                    : value);
  }

  Session& target_;
  const KnownServers& servers_;
  std::map<std::int64_t, Number> numbers_;  // by those of the source
  std::map<std::string, std::pair<std::int64_t, std::string>>
      latest_;  // number and name, by the server's key
  RowCounts rows_;
};

// Deletes collections of servers. Returns the rows by table.
RowCounts deleteOf(Session& session, const KnownServers& servers, const std::string& condition) {
  RowCounts rows(tables().size(), 0);
  std::vector<std::int64_t> found;
  for (const auto& [key, server] : servers) {
    const auto list = session.query(
        R"(select collection_id, "Rows by table" from "Collections" where server_id = $1)" + condition,
        {server.id});
    while (list->next()) {
      found.push_back(list->number(0));
      const RowCounts more = rowCountsOf(list->text(1));
      std::ranges::transform(rows, more, rows.begin(), std::plus());
    }
  }
  deleteCollections(session, found);
  return rows;
}

}  // namespace

Published copyServers(Driver& source, Session& target, const std::vector<std::string>& servers) {
  addServers(target, servers);
  std::vector<std::string> keys;
  keys.reserve(servers.size());
  for (const std::string& server : servers) keys.push_back(folded(server));
  const KnownServers known = findServers(target, keys);
  Published copied;
  copied.replaced = deleteOf(target, known, "");
  Copier copier(target, known);
  Reader reader(source);
  std::set<std::int64_t> done;
  // Repeat for collections that were published meanwhile.
  while (true) {
    std::vector<CollectionInfo> history = reader.history(servers);
    std::erase_if(history, [&](const CollectionInfo& each) { return !done.insert(each.id).second; });
    if (history.empty()) break;
    std::ranges::sort(history, {}, &CollectionInfo::id);
    reader.forEachPiece(
        history, kMaxCollections,
        [&](Session& session, std::span<const CollectionInfo> piece) { copier.copy(session, piece); });
  }
  copier.finish();
  copied.added = copier.rows();
  return copied;
}

std::int64_t removeServers(Session& session, const KnownServers& servers, const std::string& before) {
  if (!before.empty()) {
    return sumOf(deleteOf(session, servers,
                          fmt::format(R"( and "Published" < {}
and collection_id <> (select current_collection from servers where server_id = $1))",
                                      quotedText(before))));
  }
  const std::int64_t rows = sumOf(deleteOf(session, servers, ""));
  for (const auto& [key, server] : servers)
    session.execute("delete from servers where server_id = $1", {server.id});
  return rows;
}

void renameServer(Session& session, const KnownServer& server, const std::string& name) {
  const std::string to = quotedText(name), path = quotedName(kPathColumn);
  std::vector<std::int64_t> collections;
  {
    const auto rows =
        session.query(R"(select collection_id from "Collections" where server_id = $1)", {server.id});
    while (rows->next()) collections.push_back(rows->number(0));
  }
  const std::string newName = fmt::format(R"("Server name" = {})", to);
  const std::string newPath = fmt::format(
      R"({0} = case when {0} like 'IIS://%/%'
    then 'IIS://' || {1} || substr({0}, 6 + strpos(substr({0}, 7), '/')) else {0} end)",
      path, to);
  const auto readdressed = [&](std::string_view value) {
    return fmt::format(R"(replace({}, 'IIS://' || "Server name" || '/', 'IIS://' || {} || '/'))", value, to);
  };
  // A node's path may end in the name.
  const std::string node = readdressed(R"("Node" || '/')");
  const std::string newTexts = fmt::format(R"("Node" = substr({0}, 1, length({0}) - 1), "Message" = {1})",
                                           node, readdressed(R"("Message")"));
  const auto update = [&](std::string_view table, const std::string& changes, const std::string& condition) {
    session.execute(fmt::format("update {} set {} where {}", quotedName(table), changes, condition));
  };
  for (std::size_t at = 0; at < collections.size(); at += kMaxCollections) {
    const auto chunk = std::span(collections).subspan(at, std::min(kMaxCollections, collections.size() - at));
    const std::string ids = idsCondition("id", {chunk.begin(), chunk.end()});
    for (const Table& table : tables()) update(table.name, table.hasServerColumn() ? newName : newPath, ids);
    update("Problems", newTexts + ", " + newName, ids);
  }
  const std::string isServer = fmt::format("server_id = {}", server.id);
  update("Collections", newName, isServer);
  update("servers", fmt::format("name = {}, server_key = {}", to, quotedText(folded(name))), isServer);
}

}  // namespace inventory
