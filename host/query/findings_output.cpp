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
  findings.forEach(
      [&](const Result& result) {
        if (result.ignored != nullptr && !withSuppressed) return;
        std::string object = toText(commonMembers(findings, result));
        object.back() = ',';
        object.append(result.text, 1);
        if (result.ignored != nullptr) {
          const Json suppression{{"reason", result.ignored->reason}, {"until", result.ignored->until}};
          object.back() = ',';
          object += "\"suppression\":" + toText(suppression) + "}";
        }
        output.write(separator);
        output.write(object);
        separator = isArray ? ",\n" : "\n";
      },
      false);
  output.write(!isArray ? separator : separator == "[\n" ? "[]\n" : "\n]\n");
}

void writeCsv(Findings& findings, bool withSuppressed, bool forExcel, Output& output) {
  Listing listing;
  for (const char* const key : {"state", "severity", "rule", "title", "server", "object_kind", "object",
                                "evidence", "file", "node", "line", "fingerprint", "suppression"})
    listing.columns.push_back({key});
  listing.forEachRow = [&](const std::function<void(const Row&)>& each) {
    findings.forEach([&](const Result& result) {
      if (result.ignored != nullptr && !withSuppressed) return;
      Json json = commonMembers(findings, result);
      json.update(result.data);
      json["evidence"] = evidenceText(result);
      if (result.ignored != nullptr) json["suppression"] = result.ignored->reason;
      Row row;
      for (const Listing::Column& column : listing.columns) {
        const Json& value = json[column.name];
        row.push_back(value.is_null() ? Value() : evidenceValue(value));
      }
      each(row);
    });
  };
  print(listing, {.format = Format::kCsv, .forExcel = forExcel}, output);
}

// Writes the format "table".
class TableWriter {
 public:
  TableWriter(Findings& findings, Output& output)
      : findings_(findings),
        output_(output),
        width_(std::max<std::size_t>(40, os::terminalColumns(output.descriptor()))) {}

  void write(bool withSuppressed) {
    findings_.forEach([&](const Result& result) {
      if (result.ignored != nullptr && !withSuppressed) return;
      if (rule_ != result.rule) beginRule(result.rule);
      const std::string& server = findings_.servers()[result.server].server;
      if (result.state == State::kNotCollected && result.objectId == 0) {
        notCollected_.insert(server);
        return;
      }
      if (server_ != result.server) output_.write("  " + escapeForTerminal(server) + "\n");
      server_ = result.server;
      writeResult(result);
    });
    endRule();
    output_.write(rule_ ? "\n" : "");
    writeWrapped("", summary());
  }

 private:
  void beginRule(std::size_t index) {
    endRule();
    const Rule& rule = findings_.rules()[index];
    const bool hasFindings = findings_.counts()[index].findings > 0;
    output_.write(fmt::format("{}{} [{}]\n", rule_ ? "\n" : "",
                              colored(fmt::format("{}: {}", wordFor(rule.severity), rule.title),
                                      hasFindings ? Ink::kProblem : Ink::kNotice, output_.descriptor()),
                              rule.id));
    rule_ = index;
    server_.reset();
    if (!hasFindings) return;
    writeWrapped("  ", rule.why);
    writeWrapped("  Fix: ", rule.fix);
  }

  void endRule() {
    if (!notCollected_.empty())
      writeWrapped("  Not collected: ", joinNames({notCollected_.begin(), notCollected_.end()}, 5));
    notCollected_.clear();
  }

  void writeResult(const Result& result) {
    std::string evidence = evidenceText(result);
    if (result.state == State::kUnknown) evidence = "could not be evaluated";
    if (result.state == State::kNotCollected) evidence = "not collected";
    writeWrapped("    ", result.objectText() + (evidence.empty() ? "" : ": ") + evidence);
    if (result.ignored == nullptr) return;
    const IgnoreFile::Entry& entry = *result.ignored;
    writeWrapped("      Suppressed: ",
                 entry.reason + (entry.until.empty() ? "" : fmt::format(" (until {})", entry.until)));
  }

  std::string summary() const {
    const auto sum = [&](auto member, std::optional<Severity> severity = {}) {
      std::int64_t total = 0;
      for (std::size_t at = 0; at < findings_.rules().size(); ++at) {
        if (!severity || findings_.rules()[at].severity == *severity) total += findings_.counts()[at].*member;
      }
      return total;
    };
    std::string severities;
    for (std::size_t at = kSeverities.size(); at-- > 0;) {
      if (const std::int64_t count = sum(&Counts::findings, static_cast<Severity>(at)); count > 0)
        severities += fmt::format("{}{} {}", severities.empty() ? " (" : ", ", count, kSeverities[at]);
    }
    std::string line =
        fmt::format("{}{}{} of {}", pluralize(sum(&Counts::findings), "finding", "findings"), severities,
                    severities.empty() ? "" : ")", pluralize(std::ssize(findings_.rules()), "rule", "rules"));
    const auto add = [&](std::int64_t count, const char* what) {
      if (count > 0) line += fmt::format(", {} {}", count, what);
    };
    add(sum(&Counts::suppressed), "suppressed");
    add(sum(&Counts::unknown), "could not be evaluated");
    add(sum(&Counts::notCollected), "not collected");
    return line;
  }

  // Continuation lines are indented to the start of the text.
  void writeWrapped(std::string start, const std::string& text) {
    const std::size_t indent = displayWidth(start);
    for (const std::string& line : wrapToWidth(escapeForTerminal(text), width_ - indent)) {
      output_.write(start + line + "\n");
      start.assign(indent, ' ');
    }
  }

  Findings& findings_;
  Output& output_;
  const std::size_t width_;
  std::optional<std::size_t> rule_, server_;
  std::set<std::string> notCollected_;
};

// SARIF 2.1.0: docs.oasis-open.org/sarif/sarif/v2.1.0

// Levels, and "security-severity", from which code scanning derives severities.
constexpr std::array<const char*, 5> kLevels = {"note", "note", "warning", "error", "error"},
                                     kScores = {"1.0", "2.0", "5.5", "8.0", "9.5"};

Json sarifRule(const Rule& rule) {
  const auto severity = static_cast<std::size_t>(rule.severity);
  Json tags = Json::array({rule.category});
  Json json{{"id", rule.id},
            {"shortDescription", {{"text", rule.title}}},
            {"fullDescription", {{"text", rule.why}}},
            {"help", {{"text", rule.fix}}},
            {"defaultConfiguration", {{"level", kLevels[severity]}}},
            {"properties", Json::object()}};
  for (const Rule::Reference& each : rule.references) {
    if (!each.address.empty() && !json.contains("helpUri")) json["helpUri"] = each.address;
    const std::string tag = each.id.empty() ? each.name : each.name + " " + each.id;
    if (std::find(tags.begin(), tags.end(), tag) == tags.end()) tags.push_back(tag);
  }
  json["properties"] = {{"tags", tags}, {"severity", wordFor(rule.severity)}};
  if (rule.category == "security") json["properties"]["security-severity"] = kScores[severity];
  return json;
}

// Code scanning requires paths relative to its working directory.
std::string toUri(const std::string& file) {
  std::error_code error;
  const std::string relative =
      std::filesystem::path(file).lexically_relative(std::filesystem::current_path(error)).string();
  const std::string path = relative.empty() || relative.starts_with("..") ? file : relative;
  std::string uri = path.starts_with('/') ? "file://" : "";
  for (const char c : path) {
    const bool isPlain =
        (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '-' && c <= '9') || c == '_' || c == '~';
    uri += isPlain ? std::string(1, c) : fmt::format("%{:02X}", static_cast<unsigned char>(c));
  }
  return uri;
}

Json sarifResult(const Findings& findings, const Result& result) {
  const Rule& rule = findings.rules()[result.rule];
  const inventory::CollectionInfo& server = findings.servers()[result.server];
  const Json& data = result.data;
  const std::string evidence = evidenceText(result);
  std::string_view kind = "fail", level = kLevels[static_cast<std::size_t>(rule.severity)];
  std::string end = evidence.empty() ? "" : " (" + evidence + ")";
  if (!result.isFinding()) {
    const bool isUnknown = result.state == State::kUnknown;
    level = "none";
    kind = isUnknown ? "open" : "notApplicable";
    end = isUnknown ? " could not be evaluated" : " was not collected";
  }
  Json location{{"artifactLocation", {{"uri", toUri(server.file)}}}};
  if (data.contains("line") && !data["line"].is_null()) location["region"] = {{"startLine", data["line"]}};
  const Json place{
      {"name", data["object"]}, {"fullyQualifiedName", data["object_path"]}, {"kind", data["object_kind"]}};
  const std::string message =
      fmt::format("{}: {} of {}{}", rule.title, result.objectText(), server.server, end);
  Json json{{"ruleId", rule.id},
            {"ruleIndex", result.rule},
            {"kind", kind},
            {"level", level},
            {"message", {{"text", message}}},
            {"locations",
             Json::array({{{"physicalLocation", location}, {"logicalLocations", Json::array({place})}}})},
            {"properties", data}};
  if (result.isFinding()) json["partialFingerprints"] = {{"primaryLocationLineHash", data["fingerprint"]}};
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
      return TableWriter(findings, output).write(withSuppressed);
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
