#include "host/query/findings.h"

#include <fmt/core.h>

#include <algorithm>
#include <charconv>
#include <unordered_map>
#include <utility>

#include "host/console/listing.h"
#include "host/sha256.h"
#include "inventory/catalog/views.h"
#include "inventory/clock.h"
#include "inventory/names.h"

namespace host {
namespace {

using inventory::CollectionInfo;
using inventory::Cursor;
using inventory::ObjectKind;
using Json = nlohmann::ordered_json;

constexpr int kMemoryKibibytes = 8 * 1024;
constexpr std::size_t kMaxValueBytes = 64 * 1024;  // UTF-8
constexpr std::int64_t kMaxResults = 1000000;      // of a rule
constexpr std::size_t kFingerprintLength = 32;

// Returns a cell as JSON text.
std::string toJson(const inventory::Cell& cell, inventory::Type type) {
  if (!cell) return "null";
  if (type == inventory::Type::kBoolean) return *cell != "0" ? "true" : "false";
  std::int64_t number = 0;
  const char* const end = cell->data() + cell->size();
  const bool isNumber =
      type == inventory::Type::kInteger && std::from_chars(cell->data(), end, number).ptr == end;
  return isNumber ? std::to_string(number) : jsonText(*cell);
}

// How an object is shown: its kind, its name, and its path SERVER/KIND/KEY.
struct ObjectNames {
  std::string kind, name, path;

  // The first members of a result's JSON object, without the closing brace.
  std::string json() const {
    return fmt::format(R"({{"object_kind":{},"object":{},"object_path":{})", jsonText(kind), jsonText(name),
                       jsonText(path));
  }
};

ObjectNames namesOf(Cursor& row, ObjectKind kind, const std::string& server) {
  if (kind == ObjectKind::kNone) return {"server", server, server};
  std::string key = row.text(inventory::kObjectKey), name = key;
  if (kind == ObjectKind::kSite && row.cell(inventory::kSiteName))
    name += " (" + row.text(inventory::kSiteName) + ")";
  if (kind == ObjectKind::kExtension && key.empty()) name = "(no name)";
  if (kind == ObjectKind::kApplication) {
    name = row.text(inventory::kParentKey) + ": " + key;
    key = row.text(inventory::kParentKey) + "/" + key;
  }
  const std::string word(wordFor(kind));
  return {word, name, fmt::format("{}/{}/{}", server, word, key)};
}

}  // namespace

// Evaluates rules for one batch of servers.
class Findings::Evaluation {
 public:
  Evaluation(Findings& findings, inventory::Session& session, std::span<const CollectionInfo> servers,
             const std::string& selected, std::chrono::milliseconds timeout)
      : findings_(findings),
        session_(session),
        servers_(servers),
        selected_(selected),
        limit_(timeout * (1 + servers.size() / 1000)),
        first_(findings.servers_.size() - servers.size()) {
    session_.limitQueries(limit_);
    for (std::size_t at = 0; at < servers.size(); ++at) byCollection_[servers[at].id] = at;
  }

  // Evaluates the rule with this index. Returns the message if it fails.
  std::optional<std::string> tryEvaluate(std::size_t index) {
    rule_ = &findings_.rules_[index];
    ruleIndex_ = index;
    session_.execute("savepoint rule");
    const auto start = std::chrono::steady_clock::now();
    std::optional<std::string> failure;
    try {
      evaluate();
    } catch (const inventory::Unreachable&) {
      throw;
    } catch (const inventory::Interrupted&) {
      throw;
    } catch (const inventory::Error& error) {
      session_.execute("rollback to savepoint rule");
      const bool hasTimedOut = std::chrono::steady_clock::now() - start >= limit_;
      const char* const tooLong = "the query took too long (use --rule-timeout to allow more)";
      failure = rule_->errorAt(rule_->queryStart, hasTimedOut ? tooLong : error.what()).what();
    }
    session_.execute("release savepoint rule");
    return failure;
  }

 private:
  // One query evaluates the rule for all servers of the batch. A server whose collection does not cover a
  // required table has one result, which says so.
  void evaluate() {
    sources_.clear();
    for (const Rule::Requirement& each : rule_->requirements) {
      const auto more = inventory::sourcesOf(each.view, each.column);
      sources_.insert(sources_.end(), more.begin(), more.end());
    }
    isCollected_.assign(servers_.size(), true);
    for (std::size_t at = 0; at < servers_.size(); ++at) {
      isCollected_[at] = std::ranges::all_of(sources_, [&](const inventory::ViewSource& source) {
        return servers_[at].coverage.includes(source.table->name, source.kind);
      });
      if (isCollected_[at]) continue;
      const std::string& server = servers_[at].server;
      Result result{ruleIndex_, first_ + at, Result::State::kNotCollected, 0, {}, {}, nullptr};
      result.text = ObjectNames{"server", server, server}.json() + "}";
      findings_.insert(result);
    }
    if (std::ranges::find(isCollected_, true) != isCollected_.end()) runQuery();
  }

  void runQuery() {
    const inventory::Dialect& dialect = session_.dialect();
    std::vector<std::string> columns;
    for (const Rule::EvidenceColumn& column : rule_->columns) columns.push_back(column.name);
    const std::string sql =
        inventory::withViews(dialect, selected_, inventory::objectsQuery(rule_->query(dialect), columns));
    const auto rows = session_.query(sql, rule_->parameterValues());
    while (rows->next()) {
      const std::int64_t id = rows->number(inventory::kObjectId);
      const auto server = byCollection_.find(id >> 32);
      const bool isNone = rows->number(inventory::kObjectKind) == 0 && (id & 0xFFFFFFFF) != 0;
      if (server == byCollection_.end() || isNone)
        throw inventory::Error("an object_id identifies no object (select the object_id of a view)");
      if (!isCollected_[server->second]) continue;
      findings_.insert(readResult(*rows, id, server->second));
      if (++findings_.counts_[ruleIndex_].rows > kMaxResults)
        throw inventory::Error(
            fmt::format("the query returned more than {} rows (select fewer objects)", kMaxResults));
    }
  }

  Result readResult(Cursor& row, std::int64_t id, std::size_t index) {
    const CollectionInfo& server = servers_[index];
    const auto kind = static_cast<ObjectKind>(row.number(inventory::kObjectKind));
    Result result{ruleIndex_, first_ + index, Result::State::kUnknown, id, {}, {}, nullptr};
    if (row.cell(inventory::kObjectHolds)) result.state = Result::State::kFinding;
    if (!isItemCollected(server, kind, row)) result.state = Result::State::kNotCollected;
    const ObjectNames names = namesOf(row, kind, server.server);
    std::string identity = rule_->id + '\0' + inventory::folded(names.path), evidence;
    for (std::size_t at = 0; at < rule_->columns.size(); ++at) {
      const Rule::EvidenceColumn& column = rule_->columns[at];
      const inventory::Cell cell = row.cell(inventory::kObjectsColumns + at);
      if (cell && cell->size() > kMaxValueBytes)
        throw inventory::Error(fmt::format("the column {} has a value longer than 64 KiB", column.name));
      const std::string value = toJson(cell, column.type);
      if (column.isIdentifying) identity += '\0' + value;
      evidence += fmt::format("{}\"{}\":{}", at == 0 ? "" : ",", column.name, value);
    }
    const std::string node = inventory::ObjectInfo{0, kind, row.text(inventory::kObjectKey), 0, 0, {}}.node();
    const std::int64_t line = row.number(inventory::kObjectLine);
    result.text =
        fmt::format(R"({},"evidence":{{{}}},"node":{},"line":{})", names.json(), evidence,
                    node.empty() ? "null" : jsonText(node), line == 0 ? "null" : std::to_string(line));
    if (result.isFinding()) {
      // Equal in every collection of the object.
      const std::string fingerprint = sha256Hex(identity).substr(0, kFingerprintLength);
      result.text += fmt::format(R"(,"fingerprint":"{}")", fingerprint);
      result.ignored = findings_.ignored_.match(fingerprint, rule_->id, names.path);
    }
    result.text += "}";
    return result;
  }

  // A collection may be restricted to some sites or pools.
  bool isItemCollected(const CollectionInfo& server, ObjectKind kind, Cursor& row) const {
    return std::ranges::all_of(sources_, [&](const inventory::ViewSource& source) {
      return kind == ObjectKind::kNone || inventory::itemKindOf(source.kind) != kind ||
             server.coverage.includes(source.table->name, source.kind, row.text(inventory::kObjectKey));
    });
  }

  Findings& findings_;
  inventory::Session& session_;
  const std::span<const CollectionInfo> servers_;
  const std::string& selected_;
  const std::chrono::milliseconds limit_;  // of a query
  const std::size_t first_;                // index of the first one among all servers
  std::unordered_map<std::int64_t, std::size_t> byCollection_;
  // Of the current rule.
  const Rule* rule_ = nullptr;
  std::size_t ruleIndex_ = 0;
  std::vector<inventory::ViewSource> sources_;
  std::vector<bool> isCollected_;  // by server
};

Findings::Findings(inventory::Reader& reader, const std::vector<CollectionInfo>& collections,
                   const std::vector<Rule>& rules, const FindingsOptions& options)
    : rules_(rules), counts_(rules.size()), database_("findings", kMemoryKibibytes) {
  if (options.usesUserRules && !options.force && reader.isPrivileged()) {
    throw inventory::Error(
        "cannot evaluate --rules: the database role may read files or run programs on its server (use a role "
        "that may only read, or --force)");
  }
  if (!options.ignoreFile.empty())
    ignored_ = IgnoreFile(options.ignoreFile, inventory::utcNow().substr(0, 10));
  database_.execute("create table result (rule, server, state, object_id, entry, data)");
  insertion_ = database_.prepare("insert into result values (?1, ?2, ?3, ?4, ?5, ?6)");
  std::vector<bool> hasFailed(rules.size());
  sqlite::Transaction transaction(database_);
  reader.inViews(collections, [&](inventory::Session& session, std::span<const CollectionInfo> piece,
                                  const std::string& selected) {
    servers_.insert(servers_.end(), piece.begin(), piece.end());
    Evaluation evaluation(*this, session, piece, selected, options.timeout);
    for (std::size_t at = 0; at < rules.size(); ++at) {
      if (hasFailed[at]) continue;
      if (auto failure = evaluation.tryEvaluate(at)) {
        hasFailed[at] = true;
        failures_.push_back(std::move(*failure));
      }
    }
    session.limitQueries(std::chrono::milliseconds(0));
  });
  // A rule that failed on one batch has no results at all.
  for (std::size_t at = 0; at < rules.size(); ++at) {
    if (!hasFailed[at]) continue;
    database_.execute(fmt::format("delete from result where rule = {}", at));
    counts_[at] = {};
  }
  transaction.commit();
}

void Findings::insert(const Result& result) {
  counts_[result.rule].add(result);
  const std::int64_t entry = result.ignored == nullptr ? -1 : result.ignored - ignored_.entries().data();
  int column = 0;
  for (const std::int64_t value :
       {static_cast<std::int64_t>(result.rule), static_cast<std::int64_t>(result.server),
        std::int64_t{static_cast<int>(result.state)}, result.objectId, entry})
    insertion_.bind(++column, value);
  insertion_.bind(++column, result.text);
  insertion_.run();
}

void Findings::forEach(const std::function<void(const Result&)>& each, bool withData) {
  select("", withData, each);
}

void Findings::forEachOf(std::size_t server, const std::function<void(const Result&)>& each) {
  if (!std::exchange(isIndexed_, true)) database_.execute("create index result_server on result (server)");
  select(fmt::format("where server = {}", server), true, each);
}

void Findings::select(const std::string& condition, bool withData,
                      const std::function<void(const Result&)>& each) {
  sqlite::Statement rows =
      database_.prepare(fmt::format(R"(select rule, server, state, object_id, entry, data from result {}
order by rule, server, object_id, data)",
                                    condition));
  while (rows.step()) {
    Result result{static_cast<std::size_t>(rows.number(0)),
                  static_cast<std::size_t>(rows.number(1)),
                  static_cast<Result::State>(rows.number(2)),
                  rows.number(3),
                  {},
                  std::string(*rows.text(5)),
                  nullptr};
    if (withData) result.data = Json::parse(result.text);
    if (const std::int64_t entry = rows.number(4); entry >= 0)
      result.ignored = &ignored_.entries()[static_cast<std::size_t>(entry)];
    each(result);
  }
}

std::string Result::objectText() const {
  const std::string kind = data["object_kind"];
  return kind == "server" ? kind : kind + " " + data["object"].get<std::string>();
}

std::string_view Result::stateText() const {
  if (ignored != nullptr) return "suppressed";
  return isFinding() ? "finding" : state == State::kUnknown ? "unknown" : "not collected";
}

void Counts::add(const Result& result) {
  ++(result.ignored != nullptr                 ? suppressed
     : result.isFinding()                      ? findings
     : result.state == Result::State::kUnknown ? unknown
                                               : notCollected);
}

}  // namespace host
