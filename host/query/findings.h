// The findings of rules about the servers of an inventory.
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
    kUnknown,       // could not be evaluated: a value that it needs is unknown
    kNotCollected,  // the collection did not look at what it needs
  };

  std::size_t rule = 0;    // place in the rules
  std::size_t server = 0;  // place in the servers
  State state = State::kFinding;
  std::int64_t objectId = 0;
  // What it is about, as JSON has it: object_kind, object, object_path, evidence, node, line, fingerprint.
  nlohmann::ordered_json data;
  std::string text;                            // the same as text
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
  std::int64_t rows = 0;  // that the queries gave

  void add(const Result& result);
};

struct EvaluationOptions {
  std::chrono::milliseconds timeout{10000};  // of a query, for each thousand servers
  std::int64_t mostResults = 1000000;        // of a rule
};

struct FindingsOptions {
  std::filesystem::path ignoreFile;  // empty for none
  EvaluationOptions evaluation;
  bool usesUserRules = false;
  bool force = false;  // evaluates the user's rules also with a role that may do more than read
};

// Evaluates rules and keeps the results, in a temporary file where they are many.
class Findings {
 public:
  // The rules must outlive it.
  Findings(const std::vector<Rule>& rules, IgnoreFile ignored);

  // Evaluates the rules for some collections, a query for many of them. A rule that fails is left out from
  // then on.
  void evaluate(inventory::Reader& reader, const std::vector<inventory::CollectionInfo>& collections,
                const EvaluationOptions& options);

  // The results by rules, then servers, then objects. Without `data` they have it as text alone.
  void forEach(const std::function<void(const Result&)>& each, bool withData = true);
  // The same of one server.
  void forEachOf(std::size_t server, const std::function<void(const Result&)>& each);

  const std::vector<Rule>& rules() const { return rules_; }
  const IgnoreFile& ignoreFile() const { return ignored_; }
  // What was evaluated, in the order of the servers' names.
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

// Evaluates rules, which must outlive the result. Throws Error where the user's rules would run with a role
// that may do more than read tables.
std::unique_ptr<Findings> evaluateRules(inventory::Reader& reader,
                                        const std::vector<inventory::CollectionInfo>& collections,
                                        const std::vector<Rule>& rules, const FindingsOptions& options);

}  // namespace host
