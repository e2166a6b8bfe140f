#include "host/collect/run_document.h"

#include <nlohmann/json.hpp>

#include "automation/failure.h"
#include "automation/text.h"

namespace host {
namespace {

using Value = nlohmann::ordered_json;

constexpr int kFailed = 2;

const char* stateName(const ServerResult& result, bool isDryRun) {
  switch (result.state) {
    case PublishState::kPublished:
      return isDryRun ? "not written" : "published";
    case PublishState::kUnknown:
      return "unknown";
    case PublishState::kOpen:
    case PublishState::kFailed:
      break;
  }
  return "not published";
}

Value groupsOf(const ProblemGroups& groups, bool notes) {
  Value list = Value::array();
  for (const ProblemGroup& group : groups.sorted(notes)) {
    list.push_back({{"message", group.message},
                    {"number", group.number.empty() ? Value() : Value(group.number)},
                    {"records", group.count},
                    {"places", group.places},
                    {"routines", group.routines}});
  }
  return list;
}

Value countOf(const std::optional<std::int64_t>& count) {
  return count ? Value(*count) : Value();
}

}  // namespace

struct RunDocument::Json {
  Value document;
  Value servers = Value::array();
  Value sources{{"ignored", Value::array()}, {"problems", Value::array()}};
  Value errors = Value::array();
};

RunDocument::RunDocument(const char* command) : json_(std::make_unique<Json>()) {
  json_->document = {{"command", command}, {"version", IISINVENTORY_VERSION}};
}

RunDocument::~RunDocument() = default;

void RunDocument::add(const Server& server, const ServerResult& result, bool isDryRun) {
  const std::int64_t rows = inventory::sumOf(result.rows);
  Value tables = Value::object();
  for (std::size_t at = 0; at < result.rows.size(); ++at) {
    if (result.rows[at] > 0) tables[std::string(inventory::tables()[at].name)] = result.rows[at];
  }
  json_->servers.push_back({{"server", server.name},
                            {"file", server.source.shown()},
                            {"state", stateName(result, isDryRun)},
                            {"rows", rows},
                            {"tables", tables},
                            {"replaced_rows", result.replacedRows},
                            {"ftp_sites", countOf(result.sites)},
                            {"application_pools", countOf(result.pools)},
                            {"lacks", result.remarks},
                            {"problems", groupsOf(result.groups, false)},
                            {"notes", groupsOf(result.groups, true)},
                            {"errors", result.errors}});
  ++totals_.servers;
  totals_.replacedRows += result.replacedRows;
  totals_.problems += result.groups.problems();
  totals_.notes += result.groups.notes();
  if (result.state != PublishState::kPublished) return;
  ++totals_.published;
  totals_.rows += rows;
}

void RunDocument::addSources(const std::vector<std::string>& ignored,
                             const std::vector<std::string>& problems) {
  json_->sources["ignored"] = ignored;
  json_->sources["problems"] = problems;
}

void RunDocument::addError(const std::string& error) {
  json_->errors.push_back(error);
}

std::string RunDocument::text(std::optional<int> status, const std::string& database, bool isDryRun) {
  Value& document = json_->document;
  document["end"] = !status                                      ? "interrupted"
                    : *status == kFailed && totals_.servers == 0 ? "failed"
                                                                 : "complete";
  document["status"] = status ? Value(*status) : Value();
  document["dry_run"] = isDryRun;
  document["database"] = database.empty() ? Value() : Value(database);
  document["servers"] = std::move(json_->servers);
  document["sources"] = std::move(json_->sources);
  document["errors"] = std::move(json_->errors);
  document["totals"] = {{"servers", totals_.servers},
                        {"published", isDryRun ? 0 : totals_.published},
                        {"rows", totals_.rows},
                        {"replaced_rows", totals_.replacedRows},
                        {"problem_records", totals_.problems},
                        {"note_records", totals_.notes}};
  // ASCII only, so that no character can act on a terminal.
  return document.dump(2, ' ', true, Value::error_handler_t::replace) + "\n";
}

int withFailureDocument(const char* command, Output& output, const std::function<int()>& run) {
  const auto printFailure = [&](const std::string& error) {
    RunDocument document(command);
    document.addError(error);
    output.write(document.text(kFailed, "", false));
    output.flush();
  };
  try {
    return run();
  } catch (const OutputClosed&) {
    throw;
  } catch (const automation::Failure& failure) {
    printFailure(automation::toUtf8(failure.description()));
    throw;
  } catch (const std::exception& error) {
    printFailure(error.what());
    throw;
  }
}

}  // namespace host
