#include "host/query/findings.h"

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

// How an object is shown: its kind, its path SERVER/KIND/KEY, and its name.
struct ObjectNames {
  std::string kind, path, name;
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
  std::string word(wordFor(kind)), path = server + "/" + word + "/" + key;
  return {std::move(word), std::move(path), std::move(name)};
}

// Returns the first members of a result's JSON object, without the closing brace.
std::string jsonStart(const ObjectNames& names) {
  return "{\"object_kind\":" + jsonText(names.kind) + ",\"object\":" + jsonText(names.name) +
         ",\"object_path\":" + jsonText(names.path);
}

}  // namespace

// Evaluates all rules for one batch of servers.
class Findings::Evaluation {
 public:
  Evaluation(Findings& findings, inventory::Session& session, std::span<const CollectionInfo> servers,
             const std::string& selected, const EvaluationOptions& options)
      : findings_(findings),
        session_(session),
        servers_(servers),
        selected_(selected),
        options_(options),
        first_(findings.servers_.size() - servers.size()) {
    session_.limitQueries(limit());
    for (std::size_t at = 0; at < servers.size(); ++at) byCollection_[servers[at].id] = at;
  }

  // Evaluates the rule with this index. Returns the message if it fails.
  std::optional<std::string> tryEvaluate(std::size_t index) {
    session_.execute("savepoint rule");
    const auto start = std::chrono::steady_clock::now();
    std::optional<std::string> failure;
    try {
      evaluate(index);
    } catch (const inventory::Unreachable&) {
      throw;
    } catch (const inventory::Interrupted&) {
      throw;
    } catch (const inventory::Error& error) {
      session_.execute("rollback to savepoint rule");
      const bool hasTimedOut = std::chrono::steady_clock::now() - start >= limit();
      failure = rule_
                    ->errorAt(rule_->queryStart,
                              hasTimedOut ? "the query took too long (use --rule-timeout to allow more)"
                                          : error.what())
                    .what();
    }
    session_.execute("release savepoint rule");
    return failure;
  }

 private:
  // One query evaluates a rule for all servers of the batch.
  std::chrono::milliseconds limit() const { return options_.timeout * (1 + servers_.size() / 1000); }

  void evaluate(std::size_t index) {
    rule_ = &findings_.rules_[index];
    ruleIndex_ = index;
    sources_.clear();
    for (const Rule::Requirement& each : rule_->requirements) {
      const auto more = inventory::sourcesOf(each.view, each.column);
      sources_.insert(sources_.end(), more.begin(), more.end());
    }
    addNotCollected();
    if (std::ranges::find(isCollected_, true) != isCollected_.end()) runQuery();
  }

  // Adds a result for each server whose collection does not cover a required table.
  void addNotCollected() {
    isCollected_.assign(servers_.size(), true);
    for (std::size_t at = 0; at < servers_.size(); ++at) {
      for (const inventory::ViewSource& source : sources_) {
        if (!isCollected_[at] || servers_[at].coverage.includes(source.table->name, source.kind)) continue;
        isCollected_[at] = false;
        const std::string& server = servers_[at].server;
        Result result;
        result.rule = ruleIndex_;
        result.server = first_ + at;
        result.state = Result::State::kNotCollected;
        result.text = jsonStart({"server", server, server}) + "}";
        findings_.insert(result);
      }
    }
  }

  void runQuery() {
    const inventory::Dialect& dialect = session_.dialect();
    std::vector<std::string> columns;
    for (const Rule::EvidenceColumn& column : rule_->columns) columns.push_back(column.name);
    const std::string sql =
        inventory::withViews(dialect, selected_, inventory::objectsQuery(rule_->query(dialect), columns));
    const auto rows = session_.query(sql, rule_->parameterValues());
    while (rows->next()) {
      const auto result = readResult(*rows);
      if (!result) continue;
      findings_.insert(*result);
      if (++findings_.counts_[ruleIndex_].rows > options_.maxResults)
        throw inventory::Error("the query returned more than " + std::to_string(options_.maxResults) +
                               " rows (select fewer objects)");
    }
  }

  // Returns nothing for a server whose result addNotCollected() added.
  std::optional<Result> readResult(Cursor& row) {
    const std::int64_t id = row.number(inventory::kObjectId);
    const auto found = byCollection_.find(id >> 32);
    const bool isNone = row.number(inventory::kObjectKind) == 0 && (id & 0xFFFFFFFF) != 0;
    if (found == byCollection_.end() || isNone)
      throw inventory::Error("an object_id identifies no object (select the object_id of a view)");
    if (!isCollected_[found->second]) return std::nullopt;
    const CollectionInfo& server = servers_[found->second];
    const auto kind = static_cast<ObjectKind>(row.number(inventory::kObjectKind));
    Result result{ruleIndex_, first_ + found->second, Result::State::kUnknown, id, {}, {}, nullptr};
    if (row.cell(inventory::kObjectHolds)) result.state = Result::State::kFinding;
    if (!isItemCollected(server, kind, row)) result.state = Result::State::kNotCollected;
    const ObjectNames names = namesOf(row, kind, server.server);
    std::string identity = rule_->id + '\0' + inventory::folded(names.path);
    result.text = jsonStart(names) + ",\"evidence\":{";
    for (std::size_t at = 0; at < rule_->columns.size(); ++at) {
      const Rule::EvidenceColumn& column = rule_->columns[at];
      const inventory::Cell cell = row.cell(inventory::kObjectsColumns + at);
      if (cell && cell->size() > kMaxValueBytes)
        throw inventory::Error("the column " + column.name + " has a value longer than 64 KiB");
      const std::string value = toJson(cell, column.type);
      if (column.isIdentifying) identity += '\0' + value;
      result.text += (at == 0 ? "\"" : ",\"") + column.name + "\":" + value;
    }
    const std::string node = inventory::ObjectInfo{0, kind, row.text(inventory::kObjectKey), 0, 0, {}}.node();
    const std::int64_t line = row.number(inventory::kObjectLine);
    result.text += "},\"node\":" + (node.empty() ? "null" : jsonText(node)) +
                   ",\"line\":" + (line == 0 ? "null" : std::to_string(line));
    if (result.isFinding()) {
      // Equal in every collection of the object.
      const std::string fingerprint = sha256Hex(identity).substr(0, kFingerprintLength);
      result.text += ",\"fingerprint\":\"" + fingerprint + "\"";
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
  const EvaluationOptions& options_;
  const std::size_t first_;  // index of the first one among all servers
  std::unordered_map<std::int64_t, std::size_t> byCollection_;
  const Rule* rule_ = nullptr;
  std::size_t ruleIndex_ = 0;
  std::vector<inventory::ViewSource> sources_;
  std::vector<bool> isCollected_;  // by server
};

Findings::Findings(const std::vector<Rule>& rules, IgnoreFile ignored)
    : rules_(rules),
      ignored_(std::move(ignored)),
      counts_(rules.size()),
      database_("findings", kMemoryKibibytes) {
  database_.execute("create table result (rule, server, state, object_id, data, entry)");
  insertion_ = database_.prepare("insert into result values (?1, ?2, ?3, ?4, ?5, ?6)");
}

void Findings::evaluate(inventory::Reader& reader, const std::vector<CollectionInfo>& collections,
                        const EvaluationOptions& options) {
  std::vector<bool> hasFailed(rules_.size());
  sqlite::Transaction transaction(database_);
  reader.inViews(collections, [&](inventory::Session& session, std::span<const CollectionInfo> piece,
                                  const std::string& selected) {
    servers_.insert(servers_.end(), piece.begin(), piece.end());
    Evaluation evaluation(*this, session, piece, selected, options);
    for (std::size_t at = 0; at < rules_.size(); ++at) {
      if (hasFailed[at]) continue;
      if (auto failure = evaluation.tryEvaluate(at)) {
        hasFailed[at] = true;
        failures_.push_back(std::move(*failure));
      }
    }
    session.limitQueries(std::chrono::milliseconds(0));
  });
  // A rule that failed on one batch has no results at all.
  for (std::size_t at = 0; at < rules_.size(); ++at) {
    if (!hasFailed[at]) continue;
    database_.execute("delete from result where rule = " + std::to_string(at));
    counts_[at] = {};
  }
  transaction.commit();
}

void Findings::insert(const Result& result) {
  counts_[result.rule].add(result);
  insertion_.bind(1, static_cast<std::int64_t>(result.rule));
  insertion_.bind(2, static_cast<std::int64_t>(result.server));
  insertion_.bind(3, std::int64_t{static_cast<int>(result.state)});
  insertion_.bind(4, result.objectId);
  insertion_.bind(5, result.text);
  insertion_.bind(6,
                  std::int64_t{result.ignored == nullptr ? -1 : result.ignored - ignored_.entries().data()});
  insertion_.run();
}

void Findings::forEach(const std::function<void(const Result&)>& each, bool withData) {
  select("", withData, each);
}

void Findings::forEachOf(std::size_t server, const std::function<void(const Result&)>& each) {
  if (!std::exchange(isIndexed_, true)) database_.execute("create index result_server on result (server)");
  select(" where server = " + std::to_string(server), true, each);
}

void Findings::select(const std::string& condition, bool withData,
                      const std::function<void(const Result&)>& each) {
  sqlite::Statement rows =
      database_.prepare("select rule, server, state, object_id, data, entry from result" + condition +
                        " order by rule, server, object_id, data");
  while (rows.step()) {
    Result result{static_cast<std::size_t>(rows.number(0)),
                  static_cast<std::size_t>(rows.number(1)),
                  static_cast<Result::State>(rows.number(2)),
                  rows.number(3),
                  {},
                  std::string(*rows.text(4)),
                  nullptr};
    if (withData) result.data = Json::parse(result.text);
    if (const std::int64_t entry = rows.number(5); entry >= 0)
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

std::unique_ptr<Findings> evaluateRules(inventory::Reader& reader,
                                        const std::vector<inventory::CollectionInfo>& collections,
                                        const std::vector<Rule>& rules, const FindingsOptions& options) {
  if (options.usesUserRules && !options.force && reader.isPrivileged()) {
    throw inventory::Error(
        "cannot evaluate --rules: the database role may read files or run programs on its server (use a role "
        "that may only read, or --force)");
  }
  IgnoreFile ignored;
  if (!options.ignoreFile.empty())
    ignored = IgnoreFile(options.ignoreFile, inventory::utcNow().substr(0, 10));
  auto findings = std::make_unique<Findings>(rules, std::move(ignored));
  findings->evaluate(reader, collections, options.evaluation);
  return findings;
}

}  // namespace host
