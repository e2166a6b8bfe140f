#include "host/query/findings_output.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>

#include "host/console/color.h"
#include "host/console/listing.h"
#include "host/console/terminal_text.h"
#include "host/console/text.h"
#include "host/usage_error.h"
#include "inventory/names.h"
#include "os/terminal.h"

namespace host {
namespace {

using Json = nlohmann::ordered_json;
using State = Result::State;

std::string toText(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// Returns the members of a result that come from its rule and its server.
Json commonMembers(const Findings& findings, const Result& result) {
  const Rule& rule = findings.rules()[result.rule];
  const inventory::CollectionInfo& server = findings.servers()[result.server];
  return {{"state", result.stateText()}, {"rule", rule.id},
          {"title", rule.title},         {"severity", wordFor(rule.severity)},
          {"category", rule.category},   {"server", server.server},
          {"file", server.file}};
}

void writeJson(Findings& findings, bool withSuppressed, bool isArray, Output& output) {
  std::string_view separator = isArray ? "[\n" : "";
  const auto write = [&](const Result& result) {
    if (result.ignored != nullptr && !withSuppressed) return;
    std::string object = toText(commonMembers(findings, result));
    object.back() = ',';
    object.append(result.text, 1);
    if (result.ignored != nullptr) {
      object.back() = ',';
      object += "\"suppression\":" +
                toText({{"reason", result.ignored->reason}, {"until", result.ignored->until}}) + "}";
    }
    output.write(separator);
    output.write(object);
    separator = isArray ? ",\n" : "\n";
  };
  findings.forEach(write, false);
  output.write(!isArray ? separator : separator == "[\n" ? "[]\n" : "\n]\n");
}

void writeCsv(Findings& findings, bool withSuppressed, bool forExcel, Output& output) {
  constexpr const char* kKeys[] = {"state",       "severity",    "rule",       "title", "server",
                                   "object_kind", "object",      "evidence",   "file",  "node",
                                   "line",        "fingerprint", "suppression"};
  Listing listing;
  for (const char* const key : kKeys) listing.columns.push_back({key});
  listing.forEachRow = [&](const std::function<void(const Row&)>& each) {
    findings.forEach([&](const Result& result) {
      if (result.ignored != nullptr && !withSuppressed) return;
      Json json = commonMembers(findings, result);
      json.update(result.data);
      json["evidence"] = evidenceText(result);
      if (result.ignored != nullptr) json["suppression"] = result.ignored->reason;
      Row row;
      for (const char* const key : kKeys)
        row.push_back(json[key].is_null() ? Value() : evidenceValue(json[key]));
      each(row);
    });
  };
  print(listing, {.format = Format::kCsv, .forExcel = forExcel}, output);
}

// Writes the format "table".
class TableWriter {
 public:
  TableWriter(Findings& findings, bool withSuppressed, Output& output)
      : findings_(findings),
        withSuppressed_(withSuppressed),
        output_(output),
        width_(std::max<std::size_t>(40, os::terminalColumns(output.descriptor()))) {}

  void write() {
    findings_.forEach([&](const Result& result) {
      if (result.ignored != nullptr && !withSuppressed_) return;
      if (rule_ != result.rule) beginRule(result.rule);
      if (result.state == State::kNotCollected && result.objectId == 0) {
        notCollected_.insert(findings_.servers()[result.server].server);
        return;
      }
      if (server_ != result.server) {
        server_ = result.server;
        output_.write("  " + escapeForTerminal(findings_.servers()[*server_].server) + "\n");
      }
      writeResult(result);
    });
    endRule();
    writeSummary();
  }

 private:
  void beginRule(std::size_t index) {
    endRule();
    rule_ = index;
    server_.reset();
    const Rule& rule = findings_.rules()[index];
    const Counts& counts = findings_.counts()[index];
    const bool hasFindings = counts.findings > 0;
    const std::string heading = std::string(wordFor(rule.severity)) + ": " + rule.title;
    output_.write(fmt::format(
        "{}{} [{}]\n", isFirst_ ? "" : "\n",
        colored(heading, hasFindings ? Ink::kProblem : Ink::kNotice, output_.descriptor()), rule.id));
    isFirst_ = false;
    if (!hasFindings) return;
    writeWrapped("  ", rule.why);
    writeWrapped("  Fix: ", rule.fix);
  }

  void endRule() {
    if (!notCollected_.empty()) {
      writeWrapped("  Not collected: ", joinNames({notCollected_.begin(), notCollected_.end()}, 5));
      notCollected_.clear();
    }
  }

  void writeResult(const Result& result) {
    const std::string object = result.objectText();
    if (!result.isFinding()) {
      const char* const reason =
          result.state == State::kUnknown ? ": could not be evaluated" : ": not collected";
      return writeWrapped("    ", object + reason);
    }
    const std::string evidence = evidenceText(result);
    writeWrapped("    ", object + (evidence.empty() ? "" : ": " + evidence));
    if (result.ignored == nullptr) return;
    const std::string& until = result.ignored->until;
    writeWrapped("      Suppressed: ",
                 result.ignored->reason + (until.empty() ? "" : " (until " + until + ")"));
  }

  void writeSummary() {
    Counts all;
    std::array<std::int64_t, kSeverities.size()> bySeverity{};
    for (std::size_t at = 0; at < findings_.rules().size(); ++at) {
      const Counts& counts = findings_.counts()[at];
      bySeverity[static_cast<std::size_t>(findings_.rules()[at].severity)] += counts.findings;
      all.findings += counts.findings;
      all.suppressed += counts.suppressed;
      all.unknown += counts.unknown;
      all.notCollected += counts.notCollected;
    }
    std::string severities;
    for (std::size_t at = kSeverities.size(); at-- > 0;) {
      if (bySeverity[at] > 0)
        severities += (severities.empty() ? " (" : ", ") + std::to_string(bySeverity[at]) + " " +
                      std::string(kSeverities[at]);
    }
    std::string line = pluralize(all.findings, "finding", "findings") +
                       (severities.empty() ? "" : severities + ")") + " of " +
                       pluralize(static_cast<std::int64_t>(findings_.rules().size()), "rule", "rules");
    if (all.suppressed > 0) line += ", " + std::to_string(all.suppressed) + " suppressed";
    if (all.unknown > 0) line += ", " + std::to_string(all.unknown) + " could not be evaluated";
    if (all.notCollected > 0) line += ", " + std::to_string(all.notCollected) + " not collected";
    output_.write(isFirst_ ? "" : "\n");
    writeWrapped("", line);
  }

  // Continuation lines are indented to the start of the text.
  void writeWrapped(const std::string& start, const std::string& text) {
    std::string prefix = start;
    for (const std::string& line : wrapToWidth(escapeForTerminal(text), width_ - displayWidth(start))) {
      output_.write(prefix + line + "\n");
      prefix = std::string(displayWidth(start), ' ');
    }
  }

  Findings& findings_;
  const bool withSuppressed_;
  Output& output_;
  const std::size_t width_;
  bool isFirst_ = true;
  std::optional<std::size_t> rule_, server_;
  std::set<std::string> notCollected_;
};

// SARIF 2.1.0: docs.oasis-open.org/sarif/sarif/v2.1.0

struct SarifSeverity {
  const char* level;
  const char* score;  // "security-severity", from which code scanning derives severities
};
constexpr SarifSeverity kSarif[] = {
    {"note", "1.0"}, {"note", "2.0"}, {"warning", "5.5"}, {"error", "8.0"}, {"error", "9.5"}};

Json sarifRule(const Rule& rule) {
  const SarifSeverity& severity = kSarif[static_cast<std::size_t>(rule.severity)];
  Json json{{"id", rule.id},
            {"shortDescription", {{"text", rule.title}}},
            {"fullDescription", {{"text", rule.why}}},
            {"help", {{"text", rule.fix}}},
            {"defaultConfiguration", {{"level", severity.level}}},
            {"properties", {{"tags", Json::array({rule.category})}, {"severity", wordFor(rule.severity)}}}};
  for (const Rule::Reference& each : rule.references) {
    if (!each.address.empty() && !json.contains("helpUri")) json["helpUri"] = each.address;
    const std::string tag = each.id.empty() ? each.name : each.name + " " + each.id;
    Json& tags = json["properties"]["tags"];
    if (std::find(tags.begin(), tags.end(), tag) == tags.end()) tags.push_back(tag);
  }
  if (rule.category == "security") json["properties"]["security-severity"] = severity.score;
  return json;
}

// Returns a path as a relative or absolute reference (RFC 3986).
std::string toUri(const std::string& file) {
  // Code scanning requires paths relative to its working directory.
  std::error_code error;
  const std::string relative =
      std::filesystem::path(file).lexically_relative(std::filesystem::current_path(error)).string();
  const std::string path = relative.empty() || relative.starts_with("..") ? file : relative;
  constexpr std::string_view kUnescaped =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/";
  std::string uri = path.starts_with('/') ? "file://" : "";
  for (const char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    if (kUnescaped.find(c) != kUnescaped.npos) {
      uri += c;
    } else {
      uri.append({'%', "0123456789ABCDEF"[byte >> 4], "0123456789ABCDEF"[byte & 15]});
    }
  }
  return uri;
}

Json sarifResult(const Findings& findings, const Result& result) {
  const Rule& rule = findings.rules()[result.rule];
  const inventory::CollectionInfo& server = findings.servers()[result.server];
  const std::string evidence = evidenceText(result);
  std::string message = rule.title + ": " + result.objectText() + " of " + server.server;
  if (result.state == State::kUnknown) message += " could not be evaluated";
  if (result.state == State::kNotCollected) message += " was not collected";
  if (result.isFinding() && !evidence.empty()) message += " (" + evidence + ")";
  Json location{{"physicalLocation", {{"artifactLocation", {{"uri", toUri(server.file)}}}}}};
  if (result.data.contains("line") && !result.data["line"].is_null())
    location["physicalLocation"]["region"] = {{"startLine", result.data["line"]}};
  location["logicalLocations"] = Json::array({{{"name", result.data["object"]},
                                               {"fullyQualifiedName", result.data["object_path"]},
                                               {"kind", result.data["object_kind"]}}});
  Json json{{"ruleId", rule.id},
            {"ruleIndex", result.rule},
            {"kind", result.isFinding()                ? "fail"
                     : result.state == State::kUnknown ? "open"
                                                       : "notApplicable"},
            {"level", result.isFinding() ? kSarif[static_cast<std::size_t>(rule.severity)].level : "none"},
            {"message", {{"text", message}}},
            {"locations", Json::array({location})},
            {"properties", result.data}};
  if (result.isFinding())
    json["partialFingerprints"] = {{"primaryLocationLineHash", result.data["fingerprint"]}};
  if (result.ignored != nullptr) {
    const Json until{{"until", result.ignored->until}};
    json["suppressions"] = Json::array({{{"kind", "external"},
                                         {"status", "accepted"},
                                         {"justification", result.ignored->reason},
                                         {"properties", until}}});
  }
  return json;
}

void writeSarif(Findings& findings, Output& output) {
  Json rules = Json::array();
  for (const Rule& rule : findings.rules()) rules.push_back(sarifRule(rule));
  Json notifications = Json::array();
  for (const std::string& failure : findings.failures())
    notifications.push_back({{"level", "error"}, {"message", {{"text", failure}}}});
  const Json driver{{"name", "iisinventory"}, {"version", IISINVENTORY_VERSION}, {"rules", rules}};
  const Json invocation{{"executionSuccessful", findings.failures().empty()},
                        {"toolExecutionNotifications", notifications}};
  output.write(
      "{\"$schema\":\"https://json.schemastore.org/"
      "sarif-2.1.0.json\",\"version\":\"2.1.0\",\"runs\":[{\"tool\":{\"driver\":" +
      toText(driver) + "},\"invocations\":[" + toText(invocation) + "],\"results\":[");
  std::string_view separator = "\n";
  findings.forEach([&](const Result& result) {
    output.write(separator);
    output.write(toText(sarifResult(findings, result)));
    separator = ",\n";
  });
  output.write("\n]}]}\n");
}

}  // namespace

FindingsFormat findingsFormatOf(const std::string& name) {
  constexpr std::array<std::string_view, 5> kNames = {"table", "csv", "json", "jsonl", "sarif"};
  const std::string folded = inventory::folded(name.starts_with('.') ? name.substr(1) : name);
  const auto found = std::ranges::find(kNames, folded == "txt" ? "table" : folded);
  if (found == kNames.end())
    throw UsageError("unknown format '" + name +
                     "' (use table, csv, json, jsonl or sarif, or the file extension .txt for table)");
  return static_cast<FindingsFormat>(found - kNames.begin());
}

void writeFindings(Findings& findings, FindingsFormat format, bool withSuppressed, bool forExcel,
                   Output& output) {
  switch (format) {
    case FindingsFormat::kTable:
      return TableWriter(findings, withSuppressed, output).write();
    case FindingsFormat::kCsv:
      return writeCsv(findings, withSuppressed, forExcel, output);
    case FindingsFormat::kJson:
    case FindingsFormat::kJsonl:
      return writeJson(findings, withSuppressed, format == FindingsFormat::kJson, output);
    case FindingsFormat::kSarif:
      return writeSarif(findings, output);
  }
}

std::string evidenceValue(const nlohmann::ordered_json& value) {
  if (value.is_null()) return "unknown";
  if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
  return value.is_string() ? value.get<std::string>() : value.dump();
}

std::string evidenceText(const Result& result) {
  std::string text;
  if (!result.data.contains("evidence")) return text;
  for (const auto& [name, json] : result.data["evidence"].items()) {
    const std::string value = evidenceValue(json);
    if (!value.empty()) text += (text.empty() ? "" : ", ") + name + " = " + value;
  }
  return text;
}

}  // namespace host
