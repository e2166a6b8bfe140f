#include "host/report/report.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/console/terminal_text.h"
#include "host/console/text.h"
#include "host/query/findings_output.h"
#include "host/query/retry.h"
#include "host/query/servers.h"
#include "host/report/drawing.h"
#include "host/report/html.h"
#include "host/report/item_blocks.h"
#include "host/report/report_parts.h"
#include "host/sha256.h"
#include "host/usage_error.h"
#include "inventory/clock.h"
#include "inventory/inventory.h"
#include "os/new_file.h"
#include "os/scratch_file.h"
#include "os/termination_signals.h"

namespace host {
namespace {

using inventory::CollectionInfo;
using inventory::column;
using inventory::ColumnRef;
using inventory::DataRow;
using inventory::ObjectKind;
using inventory::ServerData;
using kainjow::mustache::data;

constexpr std::size_t kMaxLinks = 40;       // to servers, per rule
constexpr std::size_t kMaxProblems = 2000;  // of one server

constexpr std::size_t kSites = inventory::table("tblFTPSiteInfo");
constexpr std::size_t kPools = inventory::table("tblAppPoolInfo");
constexpr std::size_t kExtensions = inventory::table("tblWSExtension");
constexpr std::size_t kApplications = inventory::table("tblAppliedObject");
constexpr ColumnRef kPoolName = column("tblAppPoolInfo", "Application pool name");
constexpr ColumnRef kIdentifier = column("tblFTPSiteInfo", "Identifier");
constexpr ColumnRef kSiteName = column("tblFTPSiteInfo", "FTP site name");
constexpr ColumnRef kApplicationPool = column("tblAppliedObject", "Application pool name");
constexpr ColumnRef kApplicationName = column("tblAppliedObject", "Object name");
constexpr ColumnRef kLocalPath = column("tblAppliedObject", "Local path");

std::string numbered(const char* what, std::size_t number) {
  return what + std::to_string(number);
}

std::string countOfServers(std::size_t count) {
  return pluralize(static_cast<std::int64_t>(count), "server", "servers");
}

template <typename Each>
void forEachRow(const ServerData& server, std::size_t table, const Each& each) {
  for (std::size_t at = 0; at < server.rowCount(table); ++at) each(server.row(table, at));
}

// Returns the drive or share that a path is on.
std::string rootOf(const std::string& path) {
  if (!path.starts_with("\\\\")) return path.substr(0, path.size() > 1 && path[1] == ':' ? 2 : path.size());
  const std::size_t server = path.find('\\', 2);
  return path.substr(0, server == path.npos ? path.npos : path.find('\\', server + 1));
}

// Stores the sections of the servers until the head of the page, which depends on all of them, is written.
class SectionsFile {
 public:
  SectionsFile() : output_(file_.descriptor(), "a temporary file") {}

  Output& output() { return output_; }

  void copyTo(Output& target) {
    output_.flush();
    std::rewind(file_.stream());
    std::array<char, 65536> bytes{};
    while (const std::size_t size = std::fread(bytes.data(), 1, bytes.size(), file_.stream()))
      target.write({bytes.data(), size});
    if (std::ferror(file_.stream()) != 0) throw std::runtime_error("cannot read a temporary file");
  }

 private:
  os::ScratchFile file_;
  Output output_;
};

// A server's counts for the head of the page.
struct ServerSummary {
  std::vector<Counts> counts;  // by rule
  std::int64_t sites = 0;
  std::int64_t pools = 0;
};

// Writes the section of one server.
class ServerSection {
 public:
  // `findingsIndex`: index of the server in the findings.
  ServerSection(const ServerData& server, Findings& findings, std::size_t findingsIndex, std::string anchor,
                Output& output)
      : server_(server),
        findings_(findings),
        findingsIndex_(findingsIndex),
        anchor_(std::move(anchor)),
        output_(output) {
    summary_.counts.resize(findings.rules().size());
    summary_.sites = static_cast<std::int64_t>(server.rowCount(kSites));
    summary_.pools = static_cast<std::int64_t>(server.rowCount(kPools));
  }

  ServerSummary write() {
    writeFindings();
    writePoolDrawing();
    writeContentDrawing();
    const ItemBlocks blocks(server_);
    writeHeading("FTP sites", kSites, ObjectKind::kSite);
    std::size_t count = 0;
    forEachRow(server_, kSites, [&](const DataRow& row) {
      output_.write(blocks.site(row, anchor_ + numbered("-site-", ++count), marks_[row.objectId()]));
    });
    writeHeading("Application pools", kPools, ObjectKind::kPool);
    count = 0;
    forEachRow(server_, kPools, [&](const DataRow& row) {
      output_.write(blocks.pool(row, anchor_ + numbered("-pool-", ++count), marks_[row.objectId()]));
    });
    const std::string extensions = blocks.extensions();
    if (extensions.empty()) {
      writeHeading("Web service extensions", kExtensions, ObjectKind::kExtension);
    } else {
      output_.write(extensions);
    }
    writeProblems();
    output_.write("</section>\n");
    return std::move(summary_);
  }

 private:
  void writeHeading(const std::string& title, std::size_t table, ObjectKind kind) {
    const std::size_t count = server_.rowCount(table);
    output_.write("<h3>" + title + " <span class=\"faint\">" + std::to_string(count) + "</span></h3>\n");
    if (count == 0) output_.write(missingParagraph(missingReason(server_, table, kind, 0), "None."));
  }

  void writeFindings() {
    data unevaluated{data::type::list};
    std::string findings, ruleRows;
    const Rule* rule = nullptr;
    const auto closeRule = [&] {
      if (!ruleRows.empty()) findings += ruleStart(*rule) + ruleRows + parts::rule_end;
      ruleRows.clear();
    };
    findings_.forEachOf(findingsIndex_, [&](const Result& result) {
      if (const Rule* const next = &findings_.rules()[result.rule]; next != rule) {
        closeRule();
        rule = next;
      }
      summary_.counts[result.rule].add(result);
      if (result.isFinding()) {
        if (result.ignored == nullptr) marks_[result.objectId].push_back(rule);
        ruleRows += findingRow(result);
        return;
      }
      data entry;
      entry.set("title", rule->title);
      entry.set("reason",
                escapeForTerminal((result.objectId == 0 ? "" : result.objectText() + ": ") +
                                  (result.state == Result::State::kUnknown ? "not known" : "not collected")));
      unevaluated.push_back(entry);
    });
    closeRule();
    data page, rest;
    page.set("anchor", anchor_);
    page.set("name", escapeForTerminal(server_.server()));
    page.set("rules", ruleCounts());
    output_.write(render(parts::server_start, page));
    output_.write(findings);
    if (unevaluated.is_empty_list()) return;
    rest.set("unevaluated", unevaluated);
    output_.write(render(parts::unevaluated, rest));
  }

  // Returns how many rules passed, failed and so on. Each rule counts once.
  std::string ruleCounts() const {
    if (findingsIndex_ >= findings_.servers().size())
      return "Not evaluated: collected again while the report was written.";
    std::int64_t failed = 0, suppressed = 0, unknown = 0, notCollected = 0;
    for (const Counts& counts : summary_.counts) {
      if (counts.findings > 0) {
        ++failed;
      } else if (counts.suppressed > 0) {
        ++suppressed;
      } else if (counts.unknown > 0) {
        ++unknown;
      } else if (counts.notCollected > 0) {
        ++notCollected;
      }
    }
    const auto all = static_cast<std::int64_t>(summary_.counts.size());
    std::string text = "Of " + pluralize(all, "rule", "rules") + " " +
                       std::to_string(all - failed - suppressed - unknown - notCollected) + " passed, " +
                       std::to_string(failed) + " failed";
    if (suppressed > 0) text += ", " + std::to_string(suppressed) + " suppressed";
    if (unknown > 0) text += ", " + std::to_string(unknown) + " could not be evaluated";
    if (notCollected > 0) text += ", " + std::to_string(notCollected) + " not collected";
    return text + ".";
  }

  std::string ruleStart(const Rule& rule) const {
    data entry, columns{data::type::list}, references{data::type::list};
    entry.set("title", rule.title);
    entry.set("why", rule.why);
    entry.set("fix", rule.fix);
    entry.set("severity", std::string(wordFor(rule.severity)));
    entry.set(
        "count",
        std::to_string(summary_.counts[static_cast<std::size_t>(&rule - findings_.rules().data())].findings));
    for (const Rule::EvidenceColumn& column : rule.columns) {
      data item;
      std::string name = column.name;
      std::ranges::replace(name, '_', ' ');
      item.set("name", name);
      columns.push_back(item);
    }
    for (const Rule::Reference& reference : rule.references) {
      data item;
      item.set("name", reference.name + (reference.id.empty() ? "" : " " + reference.id));
      if (reference.address.starts_with("http")) item.set("address", reference.address);
      references.push_back(item);
    }
    entry.set("columns", columns);
    entry.set("references", references);
    return render(parts::rule_start, entry);
  }

  static std::string findingRow(const Result& result) {
    data item, cells{data::type::list};
    item.set("subject", escapeForTerminal(result.objectText()));
    for (const auto& value : result.data["evidence"]) {
      data cell;
      cell.set("value", escapeForTerminal(evidenceValue(value)));
      cells.push_back(cell);
    }
    item.set("cells", cells);
    if (result.ignored != nullptr) {
      const std::string& until = result.ignored->until;
      item.set("ignored",
               escapeForTerminal(result.ignored->reason + (until.empty() ? "" : " (until " + until + ")")));
    }
    return render(parts::finding, item);
  }

  void writePoolDrawing() {
    Drawing pools;
    forEachRow(server_, kPools, [&](const DataRow& pool) {
      const std::size_t place = pools.addLeft(pool.text(kPoolName));
      if (!missingReason(server_, kApplications, ObjectKind::kApplication, pool.objectId()).empty())
        pools.markUnknown(place);
    });
    forEachRow(server_, kApplications, [&](const DataRow& row) {
      const std::string path = row.isUnknown(kLocalPath) ? "" : row.text(kLocalPath);
      pools.connect(pools.addLeft(row.text(kApplicationPool)),
                    pools.addRight(row.text(kApplicationName) + (path.empty() ? "" : " \u2013 " + path),
                                   path.starts_with("\\\\") ? "share" : ""));
    });
    if (!pools.empty())
      output_.write(pools.render("Application pools and their applications (network shares are coloured)"));
  }

  void writeContentDrawing() {
    Drawing content;
    std::unordered_map<std::string, std::size_t> sites;
    forEachRow(server_, kSites, [&](const DataRow& site) {
      const std::string id = site.text(kIdentifier);
      sites[id] = content.addLeft(id + " \u2013 " + site.text(kSiteName));
    });
    const auto connect = [&](ColumnRef identifier, ColumnRef pathColumn, ColumnRef write) {
      forEachRow(server_, identifier.table, [&](const DataRow& row) {
        const auto site = sites.find(row.text(identifier));
        const std::string path = row.text(pathColumn);
        if (site == sites.end() || row.isUnknown(pathColumn) || path.empty()) return;
        const std::string root = rootOf(path);
        content.connect(site->second, content.addRight(root, root.starts_with("\\\\") ? "share" : ""),
                        !row.isUnknown(write) && row.text(write) == "Yes");
      });
    };
    connect(column("tblHomeDirectorySetting", "Identifier"), column("tblHomeDirectorySetting", "Path"),
            column("tblHomeDirectorySetting", "Write"));
    connect(column("tblvirtualDirectory", "Identifier"), column("tblvirtualDirectory", "Path"),
            column("tblvirtualDirectory", "Write"));
    if (!content.empty())
      output_.write(
          content.render("FTP sites and the drives and shares of their directories (red lines: writable)"));
  }

  void writeProblems() {
    const std::span<const inventory::Problem> problems = server_.problems();
    if (problems.empty()) return;
    data page, list{data::type::list};
    for (const inventory::Problem& problem : problems.first(std::min(problems.size(), kMaxProblems))) {
      data entry;
      const std::string item =
          problem.item.empty() ? "" : std::string(inventory::wordFor(problem.itemKind)) + " " + problem.item;
      char number[16] = "";
      if (problem.number)
        std::snprintf(number, sizeof number, "0x%X", static_cast<unsigned>(*problem.number));
      entry.set("location", escapeForTerminal(problem.node.empty() ? item : problem.node));
      entry.set("table", escapeForTerminal(problem.table));
      entry.set("property", escapeForTerminal(problem.property));
      entry.set("number", number);
      entry.set("message", escapeForTerminal(problem.message));
      entry.set("isNote", toFlag(problem.isNote));
      list.push_back(entry);
    }
    page.set("rows", list);
    if (problems.size() > kMaxProblems) {
      page.set("more", numbered("The first ", kMaxProblems) + numbered(" of ", problems.size()) +
                           "; list all: iisinventory show Problems.");
    }
    output_.write(render(parts::problems, page));
  }

  const ServerData& server_;
  Findings& findings_;
  const std::size_t findingsIndex_;
  const std::string anchor_;
  Output& output_;
  ServerSummary summary_;
  std::unordered_map<std::int64_t, Marks> marks_;  // by object
};

// A rule's counts for the overview.
struct RuleSummary {
  std::int64_t findings = 0;
  std::size_t servers = 0;  // with findings
  std::size_t unevaluated = 0;
  data links{data::type::list};
};

// Builds the page. Servers are added one by one; write() then writes all of it.
class Page {
 public:
  Page(SectionsFile& sections, Findings& findings, std::string profile)
      : sections_(sections),
        findings_(findings),
        profile_(std::move(profile)),
        rules_(findings.rules().size()) {
    for (std::size_t at = 0; at < findings.servers().size(); ++at)
      findingsIndexes_[findings.servers()[at].id] = at;
  }

  void add(const ServerData& server) {
    const std::string anchor = numbered("server-", ++servers_);
    name_ = server.server();
    // A server that was collected again after the evaluation has no findings here.
    const auto found = findingsIndexes_.find(server.info().id);
    const std::size_t place = found == findingsIndexes_.end() ? findingsIndexes_.size() : found->second;
    const ServerSummary summary = ServerSection(server, findings_, place, anchor, sections_.output()).write();
    sites_ += summary.sites;
    pools_ += summary.pools;
    std::int64_t findings = 0;
    for (std::size_t at = 0; at < rules_.size(); ++at) {
      RuleSummary& rule = rules_[at];
      const Counts& counts = summary.counts[at];
      findings += counts.findings;
      rule.findings += counts.findings;
      rule.unevaluated += counts.unknown + counts.notCollected > 0 ? 1U : 0U;
      if (counts.findings == 0 || ++rule.servers > kMaxLinks) continue;
      data link;
      link.set("anchor", anchor);
      link.set("name", escapeForTerminal(server.server()));
      link.set("count", std::to_string(counts.findings));
      rule.links.push_back(link);
    }
    addServerRow(server.info(), anchor, findings);
  }

  void write(Output& output) {
    writeStart(output);
    data servers, end;
    servers.set("servers", serverRows_);
    output.write(render(parts::servers, servers));
    writeOverview(output);
    sections_.copyTo(output);
    end.set("script", std::string(parts::script));
    output.write(render(parts::page_end, end));
  }

 private:
  // In base64, as a content security policy has it.
  static std::string hashOf(std::string_view text) {
    const std::string hash = sha256(text);
    std::array<unsigned char, 64> code{};
    const int length = EVP_EncodeBlock(code.data(), reinterpret_cast<const unsigned char*>(hash.data()),
                                       static_cast<int>(hash.size()));
    return {reinterpret_cast<const char*>(code.data()), static_cast<std::size_t>(length)};
  }

  void writeStart(Output& output) const {
    data page;
    page.set("title", servers_ == 1 ? escapeForTerminal(name_) : countOfServers(servers_));
    page.set("serverCount", countOfServers(servers_));
    page.set("siteCount", pluralize(sites_, "FTP site", "FTP sites"));
    page.set("poolCount", pluralize(pools_, "application pool", "application pools"));
    page.set("written", inventory::utcNow().substr(0, 16).replace(10, 1, " ") + " UTC");
    page.set("version", IISINVENTORY_VERSION);
    page.set("style", std::string(parts::style));
    page.set("styleHash", hashOf(parts::style));
    page.set("scriptHash", hashOf(parts::script));
    output.write(render(parts::page_start, page));
  }

  void addServerRow(const CollectionInfo& collection, const std::string& anchor, std::int64_t findings) {
    data row;
    std::string time = collection.published.substr(0, 19);
    std::ranges::replace(time, 'T', ' ');
    row.set("anchor", anchor);
    row.set("name", escapeForTerminal(collection.server));
    row.set("time", escapeForTerminal(time));
    row.set("file", escapeForTerminal(collection.file));
    row.set("size", std::to_string(collection.fileSize) + " bytes");
    row.set("fileTime", escapeForTerminal(collection.fileTime.substr(0, 10)));
    row.set("hash", escapeForTerminal(collection.sha256));
    row.set("selection",
            collection.selection.empty() ? "everything" : escapeForTerminal(collection.selection));
    row.set("rows", std::to_string(collection.rows));
    row.set("problems", std::to_string(collection.problems));
    row.set("hasProblems", toFlag(collection.problems > 0));
    row.set("findings", std::to_string(findings));
    serverRows_ += render(parts::server_row, row);
  }

  void writeOverview(Output& output) const {
    data page, list{data::type::list};
    std::int64_t most = 1, all = 0;
    for (const RuleSummary& rule : rules_) {
      most = std::max(most, rule.findings);
      all += rule.findings;
    }
    for (std::size_t at = 0; at < rules_.size(); ++at) {
      const std::vector<Rule>& rules = findings_.rules();
      data entry = overviewRow(rules[at], rules_[at], most);
      if (at == 0 || rules[at].severity != rules[at - 1].severity)
        entry.set("group", std::string(wordFor(rules[at].severity)));
      list.push_back(entry);
    }
    const bool isComplete =
        std::ranges::all_of(rules_, [](const RuleSummary& each) { return each.unevaluated == 0; });
    page.set("selection",
             profile_.empty() ? "selected by options" : "profile " + escapeForTerminal(profile_));
    page.set("summary", all > 0      ? "Matches per rule; evidence is under each server."
                        : isComplete ? "No findings."
                                     : "No findings in what could be evaluated.");
    page.set("barTitle", servers_ == 1 ? "Server" : "Servers");
    page.set("rules", list);
    output.write(render(parts::overview, page));
  }

  static data overviewRow(const Rule& rule, const RuleSummary& summary, std::int64_t most) {
    data entry;
    entry.set("title", rule.title);
    entry.set("why", rule.why);
    entry.set("count", std::to_string(summary.findings));
    entry.set("isNone", toFlag(summary.findings == 0));
    if (summary.findings > 0) {
      entry.set("bar", std::to_string(std::max<std::int64_t>(2, 160 * summary.findings / most)));
      entry.set("barLabel", pluralize(summary.findings, "finding", "findings"));
    }
    entry.set("servers", summary.links);
    if (summary.servers > kMaxLinks)
      entry.set("more", numbered("and ", summary.servers - kMaxLinks) + " more");
    if (summary.unevaluated > 0) entry.set("unevaluated", countOfServers(summary.unevaluated));
    return entry;
  }

  SectionsFile& sections_;
  Findings& findings_;
  const std::string profile_;
  std::unordered_map<std::int64_t, std::size_t>
      findingsIndexes_;  // of servers in the findings, by collection
  std::size_t servers_ = 0;
  std::string name_;  // of the latest server
  std::int64_t sites_ = 0;
  std::int64_t pools_ = 0;
  std::string serverRows_;
  std::vector<RuleSummary> rules_;
};

}  // namespace

void report(const ReportOptions& options, Output& output) {
  std::error_code ignored;
  if (!inventory::isOnServer(options.database) &&
      std::filesystem::equivalent(options.output, options.database, ignored)) {
    throw UsageError("--output '" + options.output.string() + "': it is the database");
  }
  std::optional<os::NewFile> file;
  std::optional<Output> fileOutput;
  if (!options.output.empty()) {
    file.emplace(options.output);
    fileOutput.emplace(file->descriptor(), "'" + options.output.string() + "'");
  }
  os::TerminationSignals signals;
  signals.await([&](int signalNumber) {
    if (file) file->remove();
    os::endBySignal(signalNumber);
  });
  std::optional<SectionsFile> sections;
  std::unique_ptr<Findings> findings;
  std::optional<Page> page;
  retryOnDisconnect([&] {
    sections.emplace();
    const auto inventory = inventory::openForReading(options.database, options.access);
    inventory::Reader reader = inventory->read(reportSuccessor);
    const std::vector<CollectionInfo> collections = chosenServers(reader, options.servers, options.at);
    findings = evaluateRules(reader, collections, options.rules, options.findings);
    if (!findings->failures().empty()) throw RuleError(findings->failures().front());
    page.emplace(*sections, *findings, options.profile);
    reader.forEach(collections, [&](std::unique_ptr<ServerData> server) { page->add(*server); });
  });
  page->write(fileOutput ? *fileOutput : output);
  if (fileOutput) fileOutput->flush();
  signals.ignore();
  if (file) file->finish();
  output.flush();
}

}  // namespace host
