#include "inventory/copying.h"

#include <algorithm>
#include <span>
#include <unordered_set>
#include <utility>

#include "inventory/names.h"

namespace inventory {
namespace {

// What is written at once.
constexpr std::int64_t kMostRows = 20000;
constexpr std::size_t kMostCollections = 200;

// A collection of the source, and its number in the target.
struct Copy {
  std::unique_ptr<ServerData> data;
  std::int64_t id = 0;
  std::int64_t serverId = 0;

  // An id of the source, or 0, as one of the target.
  std::int64_t translated(std::int64_t sourceId) const { return (id << 32) + (sourceId & 0xFFFFFFFF); }
};

void textOrNull(Inserter& inserter, const std::string& text) {
  text.empty() ? inserter.null() : inserter.text(text);
}

void writeRow(const Copy& copy, const DataRow& row, std::int64_t number, Inserter& inserter) {
  const Table& table = row.table();
  inserter.integer(copy.translated(row.id()));
  if (table.hasSeveralRows) inserter.integer(number);
  std::string notKnown;
  for (std::size_t at = 0; row.hasUnknown() && at < table.columns.size(); ++at) {
    if (row.isUnknown(at))
      notKnown += (notKnown.empty() ? "|" : "") + std::string(table.columns[at].viewName) + "|";
  }
  textOrNull(inserter, notKnown);
  for (std::size_t at = 0; at < table.columns.size(); ++at) inserter.text(row.cell(at));
  inserter.endRow();
}

// Writes a batch table by table.
void writeBatch(Session& target, const std::vector<Copy>& batch) {
  const auto insert = [&](const Table& table, const auto& write) {
    const auto inserter = target.insertInto(table.name, insertColumnsOf(table));
    for (const Copy& copy : batch) write(copy, *inserter);
    inserter->finish();
  };
  for (std::size_t place = 0; place < tables().size(); ++place) {
    insert(tables()[place], [&](const Copy& copy, Inserter& inserter) {
      std::int64_t last = 0, number = 0;
      for (std::size_t at = 0; at < copy.data->rowCount(place); ++at) {
        const DataRow row = copy.data->row(place, at);
        number = row.id() == std::exchange(last, row.id()) ? number + 1 : 1;
        writeRow(copy, row, number, inserter);
      }
    });
  }
  insert(ownTable("objects"), [](const Copy& copy, Inserter& inserter) {
    for (const ObjectInfo& object : copy.data->objects()) writeObject(object, copy.id, inserter);
  });
  insert(problemsTable(), [](const Copy& copy, Inserter& inserter) {
    std::int64_t number = copy.id << 32;
    for (std::size_t at = 0; at < copy.data->problems().size(); ++at) {
      const std::int64_t object = copy.data->problemObject(at);
      writeProblem(copy.data->problems()[at], copy.data->info().recordedName, ++number, copy.id,
                   object == 0 ? 0 : copy.translated(object), inserter);
    }
  });
  insert(collectionsTable(), [](const Copy& copy, Inserter& inserter) {
    writeCollection(copy.data->info(), copy.id, copy.serverId, inserter);
  });
}

std::vector<std::int64_t> collectionsOf(Session& session, const std::map<std::string, KnownServer>& servers,
                                        const std::string& condition, std::int64_t& rows) {
  std::vector<std::int64_t> found;
  for (const auto& [key, server] : servers) {
    const auto list =
        session.query("select collection_id, \"Rows\" from " + session.dialect().table("Collections") +
                          " where server_id = $1" + condition,
                      {server.id});
    while (list->next()) {
      found.push_back(list->number(0));
      rows += list->number(1);
    }
  }
  return found;
}

// Deletes what the target has of servers. Gives the rows by table.
RowCounts deleteFormer(Session& target, const std::map<std::string, KnownServer>& servers) {
  RowCounts deleted(tables().size(), 0);
  std::vector<std::int64_t> former;
  for (const auto& [key, server] : servers) {
    const auto list = target.query("select collection_id, \"Rows by table\" from " +
                                       target.dialect().table("Collections") + " where server_id = $1",
                                   {server.id});
    while (list->next()) {
      former.push_back(list->number(0));
      const RowCounts more = rowCountsOf(list->text(1));
      std::ranges::transform(deleted, more, deleted.begin(), std::plus());
    }
  }
  deleteCollections(target, former);
  return deleted;
}

}  // namespace

Published copyServers(Driver& source, Session& target, const std::vector<std::string>& servers) {
  std::vector<std::string> keys;
  for (const std::string& server : servers) keys.push_back(folded(server));
  addServers(target, servers);
  const std::map<std::string, KnownServer> known = findServers(target, keys);
  Published copied;
  copied.added.assign(tables().size(), 0);
  copied.replaced = deleteFormer(target, known);

  Reader reader(source);
  std::vector<CollectionInfo> history = reader.history(servers);
  std::ranges::sort(history, {}, &CollectionInfo::id);
  // By server: the latest collection of the source, its number in the target, and the name.
  struct Latest {
    std::int64_t sourceId = 0;
    std::int64_t id = 0;
    std::string name;
  };
  std::map<std::int64_t, Latest> latest;
  std::unordered_set<std::int64_t> done;
  std::vector<Copy> batch;
  std::int64_t rows = 0;
  const auto flush = [&] {
    const std::vector<std::int64_t> ids = newCollectionIds(target, batch.size());
    for (std::size_t at = 0; at < batch.size(); ++at) {
      batch[at].id = ids[at];
      const CollectionInfo& info = batch[at].data->info();
      Latest& last = latest[batch[at].serverId];
      if (info.id > last.sourceId) last = {info.id, ids[at], info.server};
    }
    writeBatch(target, batch);
    batch.clear();
    rows = 0;
  };
  std::vector<CollectionInfo> successors;
  const auto add = [&](std::unique_ptr<ServerData> data) {
    const CollectionInfo& info = data->info();
    // Published meanwhile: newer than all of the history.
    if (!std::ranges::binary_search(history, info.id, {}, &CollectionInfo::id))
      return successors.push_back(info);
    if (!done.insert(info.id).second) return;
    rows += info.rows;
    for (std::size_t at = 0; at < copied.added.size(); ++at)
      copied.added[at] += static_cast<std::int64_t>(data->rowCount(at));
    const std::int64_t serverId = known.at(info.serverKey).id;
    batch.push_back({std::move(data), 0, serverId});
    if (rows >= kMostRows || batch.size() >= kMostCollections) flush();
  };
  reader.forEach(history, add);
  history = std::exchange(successors, {});
  std::ranges::sort(history, {}, &CollectionInfo::id);
  reader.forEach(history, add);
  if (!batch.empty()) flush();
  for (const auto& [key, server] : known) {
    if (!latest.contains(server.id))
      throw Error("cannot copy " + server.name + ": it was removed from the source meanwhile");
  }
  std::string updates;
  for (const auto& [serverId, last] : latest)
    updates += currentSql(target.dialect(), serverId, last.name, last.id);
  target.executeAll(updates);
  return copied;
}

std::int64_t removeServers(Session& session, const std::map<std::string, KnownServer>& servers,
                           const std::string& before) {
  std::int64_t rows = 0;
  const std::string condition = before.empty()
                                    ? ""
                                    : " and \"Published\" < " + quotedText(before) +
                                          " and collection_id <> (select current_collection from " +
                                          session.dialect().table("servers") + " where server_id = $1)";
  deleteCollections(session, collectionsOf(session, servers, condition, rows));
  if (!before.empty()) return rows;
  for (const auto& [key, server] : servers)
    session.execute("delete from " + session.dialect().table("servers") + " where server_id = $1",
                    {server.id});
  return rows;
}

void renameServer(Session& session, const KnownServer& server, const std::string& name) {
  const Dialect& dialect = session.dialect();
  std::int64_t rows = 0;
  const std::vector<std::int64_t> collections = collectionsOf(session, {{"", server}}, "", rows);
  const std::string to = quotedText(name);
  const std::string position = dialect.isPostgres() ? "strpos" : "instr", path = quotedName(kPathColumn);
  const auto update = [&](std::string_view table, const std::string& changes, const std::string& condition) {
    session.execute("update " + dialect.table(table) + " set " + changes + " where " + condition);
  };
  for (std::size_t at = 0; at < collections.size(); at += kMostCollections) {
    const auto chunk =
        std::span(collections).subspan(at, std::min(kMostCollections, collections.size() - at));
    const std::string ids = idsCondition("id", {chunk.begin(), chunk.end()});
    for (const Table& table : tables()) {
      const std::string next = "'IIS://' || " + to + " || substr(" + path + ", 6 + " + position + "(substr(" +
                               path + ", 7), '/'))";
      update(table.name,
             table.hasServerColumn() ? "\"Server name\" = " + to
                                     : path + " = case when " + path + " like 'IIS://%/%' then " + next +
                                           " else " + path + " end",
             ids);
    }
    // A node's path may end in the name.
    const std::string former = "'IIS://' || \"Server name\" || '/'", next = "'IIS://' || " + to + " || '/'";
    const std::string node = "replace(\"Node\" || '/', " + former + ", " + next + ")";
    update("Problems",
           "\"Node\" = substr(" + node + ", 1, length(" + node +
               ") - 1), \"Message\" = replace(\"Message\", " + former + ", " + next +
               "), \"Server name\" = " + to,
           ids);
  }
  update("Collections", "\"Server name\" = " + to, "server_id = " + std::to_string(server.id));
  update("servers", "name = " + to + ", server_key = " + quotedText(folded(name)),
         "server_id = " + std::to_string(server.id));
}

}  // namespace inventory
