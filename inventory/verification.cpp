#include "inventory/verification.h"

#include <map>

#include "inventory/publication.h"

namespace inventory {
namespace {

// Lines about one kind of fault at most.
constexpr int kMostLines = 20;

struct Counts {
  std::string server;
  RowCounts rows;
  std::int64_t problems = 0;
};

class Verification {
 public:
  explicit Verification(Session& session) : session_(session) {}

  std::vector<std::string> run() {
    readCollections();
    for (std::size_t at = 0; at < tables().size(); ++at) {
      compareCounts(tables()[at].name, [at](const Counts& counts) { return counts.rows[at]; });
      findOrphans(tables()[at]);
    }
    compareCounts("Problems", [](const Counts& counts) { return counts.problems; });
    report("objects of no collection", "select count(*) from " + name("objects") +
                                           " o where not exists (select 1 from " + name("Collections") +
                                           " c where c.collection_id = o.collection_id)");
    report("servers whose current collection is missing",
           "select count(*) from " + name("servers") +
               " s where current_collection is not null and not exists (select 1 from " +
               name("Collections") +
               " c where c.collection_id = s.current_collection and c.server_id = s.server_id)");
    report("collections of no server", "select count(*) from " + name("Collections") +
                                           " c where not exists (select 1 from " + name("servers") +
                                           " s where s.server_id = c.server_id)");
    return std::move(lines_);
  }

 private:
  std::string name(std::string_view table) const { return session_.dialect().table(table); }

  void readCollections() {
    const auto rows = session_.query(
        "select collection_id, \"Server name\", \"Rows by table\", \"Problems\" + \"Notes\" from " +
        name("Collections"));
    while (rows->next())
      collections_[rows->number(0)] = {rows->text(1), rowCountsOf(rows->text(2)), rows->number(3)};
  }

  template <typename Expected>
  void compareCounts(std::string_view table, const Expected& expected) {
    std::map<std::int64_t, std::int64_t> found;
    {
      const auto rows =
          session_.query("select id / 4294967296, count(*) from " + name(table) + " group by 1");
      while (rows->next()) found[rows->number(0)] = rows->number(1);
    }
    int left = kMostLines;
    for (const auto& [id, counts] : collections_) {
      const auto at = found.find(id);
      const std::int64_t count = at == found.end() ? 0 : at->second;
      if (at != found.end()) found.erase(at);
      if (count == expected(counts) || left-- <= 0) continue;
      lines_.push_back("collection " + std::to_string(id) + " of " + counts.server + " has " +
                       std::to_string(count) + " rows in " + std::string(table) + ", expected " +
                       std::to_string(expected(counts)));
    }
    for (const auto& [id, count] : found) {
      if (left-- <= 0) break;
      lines_.push_back(std::string(table) + " has " + std::to_string(count) + " rows of collection " +
                       std::to_string(id) + ", which does not exist");
    }
  }

  // Numbers from 2^31 on are those of rows about no object.
  void findOrphans(const Table& table) {
    const std::string collection = "t.id / 4294967296", number = "t.id - " + collection + " * 4294967296";
    report("rows in " + std::string(table.name) + " about no object",
           "select count(*) from " + name(table.name) + " t where " + number + " < " +
               std::to_string(kFirstExtra) + " and not exists (select 1 from " + name("objects") +
               " o where o.collection_id = " + collection + " and o.number = " + number + ")");
  }

  void report(const std::string& what, const std::string& sql) {
    const std::string count = session_.value(sql);
    if (count != "0") lines_.push_back(count + " " + what);
  }

  Session& session_;
  std::map<std::int64_t, Counts> collections_;
  std::vector<std::string> lines_;
};

}  // namespace

std::vector<std::string> verifyContents(Session& session) {
  return Verification(session).run();
}

}  // namespace inventory
