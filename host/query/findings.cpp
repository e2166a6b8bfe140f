#include "host/query/findings.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <unordered_map>
#include <utility>

#include "inventory/catalog/views.h"
#include "inventory/clock.h"
#include "inventory/names.h"

namespace host {
namespace {

using inventory::CollectionInfo;
using inventory::Cursor;
using inventory::ObjectKind;

constexpr int kMemoryKibibytes = 8 * 1024;
constexpr std::size_t kMostBytes = 64 * 1024;  // of a value
constexpr std::size_t kFingerprintBytes = 16;

std::string hashOf(const std::string& text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned length = 0;
  if (EVP_Digest(text.data(), text.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1)
    throw std::runtime_error("cannot compute a SHA-256 hash");
  std::string hex;
  for (std::size_t at = 0; at < kFingerprintBytes; ++at) {
    hex += "0123456789abcdef"[digest[at] >> 4];
    hex += "0123456789abcdef"[digest[at] & 15];
  }
  return hex;
}

// The same in each collection of the object.
std::string fingerprintOf(const Rule& rule, const std::string& server, const Result& result) {
  std::string text = rule.id + '\0' + server + '\0' + result.kind + '\0' + inventory::folded(result.key);
  for (std::size_t at = 0; at < rule.columns.size(); ++at) {
    if (rule.columns[at].isIdentifying) text += '\0' + result.evidence[at].value_or("");
  }
  return hashOf(text);
}

nlohmann::json evidenceOf(const Result& result) {
  nlohmann::json all = nlohmann::json::array();
  for (const auto& value : result.evidence) all.push_back(value ? nlohmann::json(*value) : nlohmann::json());
  return all;
}

void describe(Cursor& row, Result& result) {
  const auto kind = static_cast<ObjectKind>(row.number(inventory::kObjectKind));
  const std::string key = row.text(inventory::kObjectKey);
  result.objectId = row.number(inventory::kObjectId);
  result.kind = wordFor(kind);
  result.key = result.name = key;
  result.line = row.number(inventory::kObjectLine);
  result.node = inventory::ObjectInfo{0, kind, key, 0, 0, {}}.node();
  if (kind == ObjectKind::kSite && row.cell(inventory::kSiteName))
    result.name += " (" + row.text(inventory::kSiteName) + ")";
  if (kind == ObjectKind::kApplication) {
    result.key = row.text(inventory::kParentKey) + "/" + key;
    result.name = row.text(inventory::kParentKey) + ": " + key;
  }
  if (kind == ObjectKind::kExtension && key.empty()) result.name = "(no name)";
}

}  // namespace

// Evaluates all rules for the servers of one piece of a reading.
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
    session_.limitQueries(options.timeout);
    for (std::size_t at = 0; at < servers.size(); ++at) byCollection_[servers[at].id] = at;
  }

  void evaluate(std::size_t place) {
    rule_ = &findings_.rules_[place];
    place_ = place;
    sources_.clear();
    for (const Rule::Requirement& each : rule_->requirements) {
      const auto more = inventory::sourcesOf(each.view, each.column);
      sources_.insert(sources_.end(), more.begin(), more.end());
    }
    skipServers();
    if (std::ranges::find(isCollected_, true) != isCollected_.end()) run();
  }

 private:
  void skipServers() {
    isCollected_.assign(servers_.size(), true);
    for (std::size_t at = 0; at < servers_.size(); ++at) {
      for (const inventory::ViewSource& source : sources_) {
        if (!isCollected_[at] || servers_[at].coverage.includes(source.table->name, source.kind)) continue;
        isCollected_[at] = false;
        Result result;
        result.rule = place_;
        result.server = first_ + at;
        result.state = Result::State::kNotCollected;
        findings_.insert(std::move(result));
      }
    }
  }

  void run() {
    const inventory::Dialect& dialect = session_.dialect();
    std::vector<std::string> columns;
    for (const Rule::EvidenceColumn& column : rule_->columns) columns.push_back(column.name);
    const std::string sql = inventory::withViews(
        dialect, selected_, inventory::objectsQuery(dialect, rule_->query(dialect), columns));
    const auto rows = session_.query(sql, rule_->parameterValues());
    while (rows->next()) take(*rows);
  }

  void take(Cursor& row) {
    const auto found = byCollection_.find(row.number(inventory::kObjectId) >> 32);
    if (found == byCollection_.end()) throw inventory::Error("object_id is no object of a server");
    if (!isCollected_[found->second]) return;
    Result result;
    result.rule = place_;
    result.server = first_ + found->second;
    describe(row, result);
    const bool holds = row.cell(inventory::kObjectHolds).has_value();
    result.state = holds ? Result::State::kFinding : Result::State::kUnknown;
    if (!isItemCollected(servers_[found->second], result)) result.state = Result::State::kNotCollected;
    for (std::size_t at = 0; at < rule_->columns.size(); ++at) {
      const inventory::Cell cell = row.cell(inventory::kObjectsColumns + at);
      if (cell && cell->size() > kMostBytes)
        throw inventory::Error("the column " + rule_->columns[at].name + " has a text of more than 64 KiB");
      result.evidence.emplace_back(cell);
    }
    const Counts& counts = findings_.counts_[place_];
    if (counts.findings + counts.suppressed + counts.unknown >= options_.mostResults)
      throw inventory::Error("more than " + std::to_string(options_.mostResults) + " rows");
    findings_.insert(std::move(result));
  }

  // A collection may be restricted to some sites or pools.
  bool isItemCollected(const CollectionInfo& server, const Result& result) const {
    const ObjectKind kind = inventory::objectKind(result.kind);
    return std::ranges::all_of(sources_, [&](const inventory::ViewSource& source) {
      return kind == ObjectKind::kNone || inventory::itemKindOf(source.kind) != kind ||
             server.coverage.includes(source.table->name, source.kind, result.key);
    });
  }

  Findings& findings_;
  inventory::Session& session_;
  const std::span<const CollectionInfo> servers_;
  const std::string& selected_;
  const EvaluationOptions& options_;
  const std::size_t first_;  // place of the first one among all servers
  std::unordered_map<std::int64_t, std::size_t> byCollection_;
  const Rule* rule_ = nullptr;
  std::size_t place_ = 0;
  std::vector<inventory::ViewSource> sources_;
  std::vector<bool> isCollected_;  // by server
};

Findings::Findings(const std::vector<Rule>& rules, IgnoreFile ignored)
    : rules_(rules),
      ignored_(std::move(ignored)),
      counts_(rules.size()),
      database_("findings", kMemoryKibibytes) {
  database_.execute(
      "create table result (rule, server, object_id, evidence, state, kind, key, name, node, line, "
      "fingerprint, "
      "entry, number integer, primary key (rule, server, object_id, evidence, number)) without rowid");
  insertion_ =
      database_.prepare("insert into result values (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13)");
}

void Findings::evaluate(inventory::Reader& reader, const std::vector<CollectionInfo>& collections,
                        const EvaluationOptions& options) {
  std::vector<bool> hasFailed(rules_.size());
  reader.inViews(collections, [&](inventory::Session& session, std::span<const CollectionInfo> piece,
                                  const std::string& selected) {
    servers_.insert(servers_.end(), piece.begin(), piece.end());
    Evaluation evaluation(*this, session, piece, selected, options);
    for (std::size_t at = 0; at < rules_.size(); ++at) {
      if (hasFailed[at]) continue;
      session.execute("savepoint rule");
      const auto start = std::chrono::steady_clock::now();
      try {
        evaluation.evaluate(at);
      } catch (const inventory::Unreachable&) {
        throw;
      } catch (const inventory::Interrupted&) {
        throw;
      } catch (const inventory::Error& error) {
        session.execute("rollback to savepoint rule");
        hasFailed[at] = true;
        const bool isOverdue = std::chrono::steady_clock::now() - start >= options.timeout;
        failures_.push_back(rules_[at]
                                .errorAt(rules_[at].queryStart,
                                         isOverdue ? "it took too long (--rule-timeout)" : error.what())
                                .what());
      }
      session.execute("release savepoint rule");
    }
  });
  // A rule that failed has no results.
  for (std::size_t at = 0; at < rules_.size(); ++at) {
    if (!hasFailed[at]) continue;
    database_.execute("delete from result where rule = " + std::to_string(at));
    counts_[at] = {};
  }
}

void Findings::insert(Result result) {
  const Rule& rule = rules_[result.rule];
  const CollectionInfo& server = servers_[result.server];
  Counts& counts = counts_[result.rule];
  std::int64_t entry = -1;
  if (result.state == Result::State::kFinding) {
    result.fingerprint = fingerprintOf(rule, server.serverKey, result);
    result.ignored = ignored_.match(result.fingerprint, rule.id, objectName(server.server, result));
    ++(result.ignored != nullptr ? counts.suppressed : counts.findings);
    if (result.ignored != nullptr) entry = result.ignored - ignored_.entries().data();
  } else {
    ++(result.state == Result::State::kUnknown ? counts.unknown : counts.notCollected);
  }
  const std::string evidence =
      evidenceOf(result).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  const std::array<std::int64_t, 3> place{static_cast<std::int64_t>(result.rule),
                                          static_cast<std::int64_t>(result.server), result.objectId};
  for (int at = 0; at < 3; ++at) insertion_.bind(at + 1, place[static_cast<std::size_t>(at)]);
  insertion_.bind(4, evidence);
  insertion_.bind(5, std::int64_t{static_cast<int>(result.state)});
  insertion_.bind(6, result.kind);
  insertion_.bind(7, result.key);
  insertion_.bind(8, result.name);
  insertion_.bind(9, result.node);
  insertion_.bind(10, result.line);
  insertion_.bind(11, result.fingerprint);
  insertion_.bind(12, entry);
  insertion_.bind(13, ++rows_);
  insertion_.run();
}

void Findings::forEach(const std::function<void(const Result&)>& each) {
  select("", each);
}

void Findings::forEachOf(std::size_t server, const std::function<void(const Result&)>& each) {
  if (!std::exchange(isIndexed_, true)) database_.execute("create index result_server on result (server)");
  select(" where server = " + std::to_string(server), each);
}

void Findings::select(const std::string& condition, const std::function<void(const Result&)>& each) {
  sqlite::Statement rows = database_.prepare(
      "select rule, server, object_id, evidence, state, kind, key, name, node, line, fingerprint, entry from "
      "result" +
      condition + " order by rule, server, object_id, evidence, number");
  while (rows.step()) {
    const auto text = [&](int column) { return std::string(rows.text(column).value_or("")); };
    Result result;
    result.rule = static_cast<std::size_t>(rows.number(0));
    result.server = static_cast<std::size_t>(rows.number(1));
    result.objectId = rows.number(2);
    for (const nlohmann::json& value : nlohmann::json::parse(text(3)))
      result.evidence.push_back(value.is_null() ? std::nullopt : std::optional(value.get<std::string>()));
    result.state = static_cast<Result::State>(rows.number(4));
    result.kind = text(5);
    result.key = text(6);
    result.name = text(7);
    result.node = text(8);
    result.line = rows.number(9);
    result.fingerprint = text(10);
    if (const std::int64_t entry = rows.number(11); entry >= 0)
      result.ignored = &ignored_.entries()[static_cast<std::size_t>(entry)];
    each(result);
  }
}

std::unique_ptr<Findings> evaluateRules(inventory::Reader& reader,
                                        const std::vector<inventory::CollectionInfo>& collections,
                                        const std::vector<Rule>& rules, const FindingsOptions& options) {
  if (options.usesUserRules && !options.force && reader.isPrivileged()) {
    throw inventory::Error(
        "cannot evaluate --rules: the database role may read files or run programs on its server (use a role "
        "that "
        "may only read, or --force)");
  }
  IgnoreFile ignored;
  if (!options.ignoreFile.empty())
    ignored = IgnoreFile(options.ignoreFile, inventory::utcNow().substr(0, 10));
  auto findings = std::make_unique<Findings>(rules, std::move(ignored));
  findings->evaluate(reader, collections, options.evaluation);
  return findings;
}

std::string objectName(const std::string& server, const Result& result) {
  return result.kind.empty() ? server : server + "/" + result.kind + "/" + result.key;
}

}  // namespace host
