#include "inventory/verification.h"

#include <fmt/core.h>

#include <map>

#include "inventory/publication.h"

namespace inventory {
namespace {

// Maximum lines per kind of error.
constexpr int kMaxLines = 20;

struct Counts {
  std::string server;
  RowCounts rows;
  std::int64_t problems = 0;
};

// Compares the rows of a table, by collection, with the expected ones.
template <typename Expected>
void compareCounts(Session& session, const std::string& table,
                   const std::map<std::int64_t, Counts>& collections, const Expected& expected,
                   std::vector<std::string>& lines) {
  std::map<std::int64_t, std::int64_t> found;
  for (const auto& [id, counts] : collections) found[id] = 0;
  {
    const auto rows =
        session.query(fmt::format("select id / 4294967296, count(*) from {} group by 1", quotedName(table)));
    while (rows->next()) found[rows->number(0)] = rows->number(1);
  }
  int left = kMaxLines;
  for (const auto& [id, count] : found) {
    const auto at = collections.find(id);
    if ((at != collections.end() && count == expected(at->second)) || left-- <= 0) continue;
    lines.push_back(
        at == collections.end()
            ? fmt::format("{} has {} rows of collection {}, which does not exist", table, count, id)
            : fmt::format("collection {} of {} has {} rows in {}, expected {}", id, at->second.server, count,
                          table, expected(at->second)));
  }
}

}  // namespace

std::vector<std::string> verifyContents(Session& session) {
  std::vector<std::string> lines;
  std::map<std::int64_t, Counts> collections;
  {
    const auto rows = session.query(
        R"(select collection_id, "Server name", "Rows by table", "Problems" + "Notes" from "Collections")");
    while (rows->next())
      collections[rows->number(0)] = {rows->text(1), rowCountsOf(rows->text(2)), rows->number(3)};
  }
  const auto report = [&](const std::string& what, const std::string& from) {
    const std::string count = session.value("select count(*) from " + from);
    if (count != "0") lines.push_back(count + " " + what);
  };
  for (std::size_t at = 0; at < tables().size(); ++at) {
    const std::string table(tables()[at].name);
    compareCounts(
        session, table, collections, [at](const Counts& counts) { return counts.rows[at]; }, lines);
    // Numbers from 2^31 on are those of rows about no object.
    report("rows in " + table + " about no object",
           fmt::format(R"({} t where t.id % 4294967296 < {} and not exists (select 1 from objects o
where o.collection_id = t.id / 4294967296 and o.number = t.id % 4294967296))",
                       quotedName(table), kFirstExtra));
  }
  compareCounts(
      session, "Problems", collections, [](const Counts& counts) { return counts.problems; }, lines);
  report(
      "objects of no collection",
      R"(objects o where not exists (select 1 from "Collections" c where c.collection_id = o.collection_id))");
  report("servers whose current collection is missing",
         R"(servers s where current_collection is not null and not exists (select 1 from "Collections" c
where c.collection_id = s.current_collection and c.server_id = s.server_id))");
  report("collections of no server",
         R"("Collections" c where not exists (select 1 from servers s where s.server_id = c.server_id))");
  return lines;
}

}  // namespace inventory
