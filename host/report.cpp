#include "host/report.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <system_error>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/findings.h"
#include "host/new_file.h"
#include "host/private_folder.h"
#include "host/problem_groups.h"
#include "host/report_book.h"
#include "host/report_drawing.h"
#include "host/report_items.h"
#include "host/report_parts.h"
#include "host/report_text.h"
#include "host/signals.h"
#include "host/terminal_text.h"
#include "inventory/clock.h"
#include "inventory/coverage.h"
#include "inventory/not_known.h"
#include "inventory/records.h"

namespace host {
namespace {

using inventory::ItemKind;
using kainjow::mustache::data;
using Strings = std::vector<std::string>;

constexpr std::size_t kMostLinks = 40;        // to servers behind a bar
constexpr std::size_t kMostProblems = 2000;   // of one server
constexpr std::size_t kMostCollections = 20;  // of one server, the latest

// The drive or share that a path is on.
std::string rootOf(const std::string& path) {
  if (!path.starts_with("\\\\")) return path.substr(0, path.size() > 1 && path[1] == ':' ? 2 : path.size());
  const std::size_t server = path.find('\\', 2);
  return path.substr(0, server == path.npos ? path.npos : path.find('\\', server + 1));
}

class Page {
 public:
  Page(Book& book, Output& output) : book_(book), output_(output) {}

  void write() {
    writeStart();
    writeServers();
    writeOverview();
    for (std::size_t at = 0; at < book_.servers().size(); ++at) writeServer(at);
    data end;
    end.set("script", std::string(parts::script));
    output_.write(render(parts::page_end, end));
  }

 private:
  static std::string anchor(std::size_t server) { return "server-" + std::to_string(server + 1); }

  static std::string hashOf(std::string_view text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> hash{};
    unsigned size = 0;
    if (EVP_Digest(text.data(), text.size(), hash.data(), &size, EVP_sha256(), nullptr) != 1)
      throw std::runtime_error("can't make the report: no SHA-256");
    std::array<unsigned char, 2 * EVP_MAX_MD_SIZE> code{};
    const int length = EVP_EncodeBlock(code.data(), hash.data(), static_cast<int>(size));
    return {reinterpret_cast<const char*>(code.data()), static_cast<std::size_t>(length)};
  }

  void writeStart() {
    std::int64_t sites = 0, pools = 0;
    // Counted while the servers are judged, so that nothing of them is kept.
    for (const std::string& server : book_.servers()) {
      Counts& counts = counts_.emplace_back();
      counts.sites = book_.count("select count(*) from tblFTPSiteInfo where \"Server name\" = ?1", server);
      counts.pools = book_.count("select count(*) from tblAppPoolInfo where \"Server name\" = ?1", server);
      judge(book_.snapshot(), server, book_.notKnown(), book_.coverage(),
            {[&](const Finding& finding) { ++counts.findings[finding.rule]; },
             [&](const Unjudged& unjudged) { counts.unjudged.insert(unjudged.rule); }});
      sites += counts.sites;
      pools += counts.pools;
    }
    const Strings& servers = book_.servers();
    data page;
    page.set("title", servers.empty() ? "no server"
                      : servers.size() == 1
                          ? harmless(servers.front())
                          : counted(static_cast<std::int64_t>(servers.size()), "server", "servers"));
    page.set("serverCount", counted(static_cast<std::int64_t>(servers.size()), "server", "servers"));
    page.set("siteCount", counted(sites, "FTP site", "FTP sites"));
    page.set("poolCount", counted(pools, "application pool", "application pools"));
    page.set("written", inventory::utcNow().substr(0, 16).replace(10, 1, " ") + " UTC");
    page.set("version", IISINVENTORY_VERSION);
    page.set("style", std::string(parts::style));
    page.set("styleHash", hashOf(parts::style));
    page.set("scriptHash", hashOf(parts::script));
    output_.write(render(parts::page_start, page));
  }

  void writeServers() {
    data page, servers{data::type::list};
    for (std::size_t at = 0; at < book_.servers().size(); ++at) {
      const std::string& name = book_.servers()[at];
      data server, collections{data::type::list};
      std::int64_t rows = 0;
      const std::int64_t former = std::max<std::int64_t>(
          0, book_.count("select count(*) from Collections where \"Server name\" = ?1", name) -
                 static_cast<std::int64_t>(kMostCollections));
      if (former > 0) server.set("former", counted(former, "earlier collection", "earlier collections"));
      std::size_t lines = 0;
      for (auto& row : book_.own("Collections", name, kMostCollections, static_cast<std::size_t>(former))) {
        data collection;
        collection.set("isFirst", flag(lines++ == 0));
        collection.set("isKnown", flag(true));
        std::string time = row["Published"].substr(0, 19);
        std::ranges::replace(time, 'T', ' ');
        collection.set("time", harmless(time));
        collection.set("file", harmless(row["File"]));
        collection.set("size", row["File size"] + " bytes");
        collection.set("fileTime", harmless(row["File time"].substr(0, 10)));
        collection.set("hash", harmless(row["SHA-256"]));
        collection.set("selection", row["Selection"].empty() ? "everything" : harmless(row["Selection"]));
        collections.push_back(collection);
      }
      if (lines == 0) {
        data unknown;
        unknown.set("isFirst", flag(true));
        unknown.set("isKnown", flag(false));
        collections.push_back(unknown);
        ++lines;
      }
      server.set("lines", std::to_string(lines + (former > 0 ? 1 : 0)));
      for (const inventory::Table& table : inventory::tables()) rows += rowsOf(table, name);
      std::int64_t findings = 0;
      for (const auto& [rule, count] : counts_[at].findings) findings += count;
      const std::int64_t problems =
          book_.count("select count(*) from Problems where Kind = 'problem' and \"Server name\" = ?1", name);
      server.set("anchor", anchor(at));
      server.set("name", harmless(name));
      server.set("collections", collections);
      server.set("rows", std::to_string(rows));
      server.set("problems", std::to_string(problems));
      server.set("hasProblems", flag(problems > 0));
      server.set("findings", std::to_string(findings));
      servers.push_back(server);
    }
    page.set("servers", servers);
    output_.write(render(parts::servers, page));
  }

  std::int64_t rowsOf(const inventory::Table& table, const std::string& server) {
    const auto rows = book_.snapshot().rowsOf(std::string(table.name), {server});
    std::int64_t count = 0;
    while (rows->next()) ++count;
    return count;
  }

  void writeOverview() {
    const Strings& servers = book_.servers();
    data page, list{data::type::list};
    std::int64_t most = 1, all = 0;
    const auto total = [&](const Rule& rule) {
      std::int64_t sum = 0;
      for (const Counts& counts : counts_) {
        const auto found = counts.findings.find(&rule);
        sum += found == counts.findings.end() ? 0 : found->second;
      }
      return sum;
    };
    for (const Rule& rule : rules()) {
      most = std::max(most, total(rule));
      all += total(rule);
    }
    for (const Rule& rule : rules()) {
      const std::int64_t count = total(rule);
      data entry, links{data::type::list};
      std::size_t linked = 0, unjudged = 0;
      for (std::size_t at = 0; at < servers.size(); ++at) {
        unjudged += counts_[at].unjudged.contains(&rule) ? 1U : 0U;
        const auto found = counts_[at].findings.find(&rule);
        if (found == counts_[at].findings.end() || ++linked > kMostLinks) continue;
        data link;
        link.set("anchor", anchor(at));
        link.set("name", harmless(servers[at]));
        link.set("count", std::to_string(found->second));
        links.push_back(link);
      }
      entry.set("title", std::string(rule.title));
      entry.set("why", std::string(rule.why));
      if (!rule.source.empty()) entry.set("source", std::string(rule.source));
      entry.set("count", std::to_string(count));
      entry.set("isNone", flag(count == 0));
      if (count > 0) {
        entry.set("bar", std::to_string(std::max<std::int64_t>(2, 160 * count / most)));
        entry.set("barLabel", counted(count, "finding", "findings"));
      }
      entry.set("servers", links);
      if (linked > kMostLinks) entry.set("more", "and " + std::to_string(linked - kMostLinks) + " more");
      if (unjudged > 0)
        entry.set("unjudged", counted(static_cast<std::int64_t>(unjudged), "server", "servers"));
      list.push_back(entry);
    }
    const bool isJudged =
        std::ranges::all_of(counts_, [](const Counts& each) { return each.unjudged.empty(); });
    page.set("lead",
             all == 0
                 ? isJudged ? "None of the rules holds for anything."
                            : "None of the rules holds for what could be judged."
                 : "Each rule with what it holds for; the rows that it rests on stand with each server.");
    page.set("barTitle", servers.size() == 1 ? "Server" : "Servers");
    page.set("rules", list);
    output_.write(render(parts::overview, page));
  }

  void writeServer(std::size_t place) {
    const std::string& server = book_.servers()[place];
    const Counts& counts = counts_[place];
    writeFindings(place);
    writeDrawings(server);
    heading("FTP sites", "tblFTPSiteInfo", ItemKind::kSite, server, counts.sites);
    std::int64_t count = 0;
    book_.forEach("tblFTPSiteInfo", server, [&](const Cells& site) {
      const Marks& marks =
          marks_["site\n" + site.at(inventory::kSiteColumn) + " (" + site.at("FTP site name") + ")"];
      output_.write(
          siteBlock(book_, server, site, anchor(place) + "-site-" + std::to_string(++count), marks));
    });
    heading("Application pools", "tblAppPoolInfo", ItemKind::kPool, server, counts.pools);
    count = 0;
    book_.forEach("tblAppPoolInfo", server, [&](const Cells& pool) {
      const Marks& marks = marks_["pool\n" + pool.at(inventory::kPoolColumn)];
      output_.write(
          poolBlock(book_, server, pool, anchor(place) + "-pool-" + std::to_string(++count), marks));
    });
    const auto extensions = book_.rows("tblWSExtension", server);
    if (extensions.empty()) {
      heading("Web service extensions", "tblWSExtension", ItemKind::kNone, server, 0);
    } else {
      output_.write(extensionsTable(extensions));
    }
    writeProblems(server);
    output_.write("</section>\n");
  }

  void heading(const std::string& title, std::string_view table, ItemKind kind, const std::string& server,
               std::int64_t count) {
    output_.write("<h3>" + title + " <span class=\"faint\">" + std::to_string(count) + "</span></h3>\n");
    if (count > 0) return;
    const Strings why = book_.notKnown().whyMissing(server, table, {});
    output_.write(!book_.coverage().hasSome(server, table, kind) ? "<p class=\"unknown\">Not collected.</p>\n"
                  : why.empty()
                      ? "<p class=\"faint\">None.</p>\n"
                      : "<p class=\"unknown\">Not known: " + escaped(harmless(why.front())) + "</p>\n");
  }

  // Judges the server, and writes as it goes.
  void writeFindings(std::size_t place) {
    const std::string& server = book_.servers()[place];
    const Counts& counts = counts_[place];
    data page, unjudged{data::type::list};
    page.set("anchor", anchor(place));
    page.set("name", harmless(server));
    page.set("hasFindings", flag(!counts.findings.empty()));
    output_.write(render(parts::server_start, page));
    marks_.clear();
    const Rule* rule = nullptr;
    bool isUnjudged = false;
    const auto close = [&] {
      if (rule != nullptr) output_.write(parts::rule_end);
      rule = nullptr;
    };
    const auto found = [&](const Finding& finding) {
      if (finding.rule != rule) {
        close();
        rule = finding.rule;
        data entry;
        entry.set("title", std::string(rule->title));
        entry.set("why", std::string(rule->why));
        entry.set("count", std::to_string(counts.findings.at(rule)));
        output_.write(render(parts::rule_start, entry));
      }
      if (finding.thing == "site" || finding.thing == "pool")
        marks_[std::string(finding.thing) + '\n' + finding.name].push_back(finding.rule);
      data each, rows{data::type::list};
      each.set("thing", std::string(finding.thing));
      each.set("subject", harmless(finding.name));
      for (const std::string& text : finding.rows) {
        data row;
        row.set("row", harmless(text));
        rows.push_back(row);
      }
      each.set("rows", rows);
      output_.write(render(parts::finding, each));
    };
    const auto notJudged = [&](const Unjudged& each) {
      data entry;
      entry.set("title", std::string(each.rule->title));
      entry.set("reason", harmless(each.reason));
      unjudged.push_back(entry);
      isUnjudged = true;
    };
    judge(book_.snapshot(), server, book_.notKnown(), book_.coverage(), {found, notJudged});
    close();
    if (!isUnjudged) return;
    data rest;
    rest.set("unjudged", unjudged);
    output_.write(render(parts::unjudged, rest));
  }

  void writeDrawings(const std::string& server) {
    Drawing pools, content;
    book_.forEach("tblAppPoolInfo", server, [&](const Cells& pool) {
      const std::string name = pool.at(inventory::kPoolColumn);
      const std::size_t place = pools.left(name);
      if (!book_.coverage().has(server, "tblAppliedObject", ItemKind::kPool, name) ||
          !book_.notKnown().whyMissing(server, "tblAppliedObject", name).empty()) {
        pools.leaveOpen(place);
      }
    });
    book_.forEach("tblAppliedObject", server, [&](const Cells& object) {
      const std::string path = object.isUnknown("Local path") ? "" : object.at("Local path");
      pools.join(pools.left(object.at(inventory::kPoolColumn)),
                 pools.right(object.at("Object name") + (path.empty() ? "" : " \u2013 " + path),
                             path.starts_with("\\\\") ? "share" : ""));
    });
    std::unordered_map<std::string, std::size_t> sites;
    book_.forEach("tblFTPSiteInfo", server, [&](const Cells& site) {
      const std::string id = site.at(inventory::kSiteColumn);
      sites[id] = content.left(id + " \u2013 " + site.at("FTP site name"));
    });
    for (const char* const table : {"tblHomeDirectorySetting", "tblvirtualDirectory"}) {
      book_.forEach(table, server, [&](const Cells& row) {
        const auto site = sites.find(row.at(inventory::kSiteColumn));
        if (site == sites.end() || row.isUnknown("Path") || row.at("Path").empty()) return;
        const std::string root = rootOf(row.at("Path"));
        content.join(site->second, content.right(root, root.starts_with("\\\\") ? "share" : ""),
                     !row.isUnknown("Write") && row.at("Write") == "Yes");
      });
    }
    if (!pools.empty())
      output_.write(pools.html("Application pools and what they serve; a network share is coloured"));
    if (!content.empty())
      output_.write(content.html(
          "FTP sites and the drives and shares that their directories lead to; a red line: may be "
          "written to"));
  }

  void writeProblems(const std::string& server) {
    auto rows = book_.own("Problems", server, kMostProblems + 1);
    if (rows.empty()) return;
    data page, list{data::type::list};
    const std::size_t shownRows = std::min(rows.size(), kMostProblems);
    for (std::size_t at = 0; at < shownRows; ++at) {
      auto& row = rows[at];
      data entry;
      const std::string item = row["Item"].empty() ? "" : row["Item kind"] + " " + row["Item"];
      entry.set("where", harmless(row["Node"].empty() ? item : row["Node"]));
      entry.set("table", harmless(row["Table"]));
      entry.set("property", harmless(row["Property"]));
      entry.set("number", harmless(row["Number"]));
      entry.set("message", harmless(row["Message"]));
      entry.set("isNote", flag(row["Kind"] == "note"));
      list.push_back(entry);
    }
    page.set("rows", list);
    if (rows.size() > kMostProblems) {
      const std::int64_t all =
          book_.count("select count(*) from Problems where \"Server name\" = ?1", server);
      page.set("more", "The first " + std::to_string(kMostProblems) + " of " + std::to_string(all) +
                           "; 'iisinventory show Problems' has them all.");
    }
    output_.write(render(parts::problems, page));
  }

  struct Counts {
    std::int64_t sites = 0;
    std::int64_t pools = 0;
    std::map<const Rule*, std::int64_t> findings;
    std::set<const Rule*> unjudged;
  };

  Book& book_;
  Output& output_;
  std::vector<Counts> counts_;
  std::unordered_map<std::string, Marks> marks_;  // by kind and name
};

}  // namespace

void report(const ReportOptions& options, Output& output) {
  std::error_code ignored;
  if (!inventory::isOnServer(options.database) &&
      std::filesystem::equivalent(options.output, options.database, ignored)) {
    throw UsageError("--output '" + options.output.string() + "': it is the database");
  }
  std::optional<NewFile> file;
  if (!options.output.empty()) file.emplace(options.output);
  PrivateFolder folder;
  EndingSignals signals;
  signals.await([&](int signalNumber) {
    if (file) file->remove();
    folder.remove();
    endBySignal(signalNumber);
  });
  std::optional<Book> book;
  try {
    book.emplace(options, folder.path());
  } catch (const inventory::Unreachable&) {
    // Once more, as a whole.
    book.emplace(options, folder.path());
  }
  book->open();
  Page(*book, file ? file->output() : output).write();
  signals.ignore();
  if (file) file->finish();
  output.flush();
}

}  // namespace host
