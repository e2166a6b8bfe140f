// Evaluates rules for the servers of an inventory.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/query/ignore_file.h"
#include "host/query/rule.h"
#include "inventory/inventory.h"
#include "sqlite/database.h"

namespace host {

// The result of a rule for an object, or for a whole server.
struct Result {
  enum class State {
    kFinding,
    kUnknown,       // could not be evaluated: a required value is unknown
    kNotCollected,  // the collection does not cover a required table
  };

  std::size_t rule = 0;    // index in Findings::rules()
  std::size_t server = 0;  // index in Findings::servers()
  State state = State::kFinding;
  std::int64_t objectId = 0;
  // The members of the JSON output: object_kind, object, object_path, evidence, node, line, fingerprint.
  nlohmann::ordered_json data;
  std::string text;                            // `data` as JSON text
  const IgnoreFile::Entry* ignored = nullptr;  // the entry that suppresses it

  bool isFinding() const { return state == State::kFinding; }
  // "site 1 (Default FTP Site)", or "server".
  std::string objectText() const;
  // "finding", "suppressed", "unknown" or "not collected".
  std::string_view stateText() const;
};

struct Counts {
  std::int64_t findings = 0;  // without suppressed ones
  std::int64_t suppressed = 0;
  std::int64_t unknown = 0;
  std::int64_t notCollected = 0;
  std::int64_t rows = 0;  // returned by the queries

  void add(const Result& result);
};

struct FindingsOptions {
  std::filesystem::path ignoreFile;          // empty for none
  std::chrono::milliseconds timeout{10000};  // of a query, per thousand servers
  bool usesUserRules = false;
  bool force = false;  // evaluate the user's rules even with a role that may do more than read
};

// The results of rules, stored in a temporary file if there are many.
class Findings {
 public:
  // Evaluates rules, which must outlive the object, for collections, with one query for many of them. A rule
  // that fails has no results, only an entry in failures(). Throws inventory::Error if the database fails or
  // the user's rules would run with a role that may do more than read tables, and std::runtime_error for an
  // invalid ignore file.
  Findings(inventory::Reader& reader, const std::vector<inventory::CollectionInfo>& collections,
           const std::vector<Rule>& rules, const FindingsOptions& options);

  // Passes the results in the order of rules, servers and objects. If not `withData`, `Result::data` is
  // empty.
  void forEach(const std::function<void(const Result&)>& each, bool withData = true);
  // Passes the results of one server, an index in servers().
  void forEachOf(std::size_t server, const std::function<void(const Result&)>& each);

  const std::vector<Rule>& rules() const { return rules_; }
  const IgnoreFile& ignoreFile() const { return ignored_; }
  // The evaluated collections, sorted by server name.
  const std::vector<inventory::CollectionInfo>& servers() const { return servers_; }
  // By rule.
  const std::vector<Counts>& counts() const { return counts_; }
  // The messages of rules that failed, with their files.
  const std::vector<std::string>& failures() const { return failures_; }

 private:
  class Evaluation;

  void insert(const Result& result);
  void select(const std::string& condition, bool withData, const std::function<void(const Result&)>& each);

  const std::vector<Rule>& rules_;
  IgnoreFile ignored_;
  std::vector<inventory::CollectionInfo> servers_;
  std::vector<Counts> counts_;
  std::vector<std::string> failures_;
  sqlite::Database database_;
  sqlite::Statement insertion_;
  bool isIndexed_ = false;
};

inline std::unique_ptr<Findings> evaluateRules(inventory::Reader& reader,
                                               const std::vector<inventory::CollectionInfo>& collections,
                                               const std::vector<Rule>& rules,
                                               const FindingsOptions& options) {
  return std::make_unique<Findings>(reader, collections, rules, options);
}

}  // namespace host
