// A page of the report: its head, the table of servers, the overview of findings, and the servers' sections.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/console/output.h"
#include "host/report/overview.h"
#include "inventory/model.h"
#include "os/scratch_file.h"

namespace host::page {

struct PageHead {
  std::string title;
  std::string serverCount, siteCount, poolCount;
  std::string written, version;
  std::string style, styleHash, scriptHash;
  std::string index;  // the page that links to this one; empty for none

  void visit(auto& add) const {
    add("index", index)("title", title)("serverCount", serverCount)("siteCount", siteCount)(
        "poolCount", poolCount)("written", written)("version", version)("style", style)(
        "styleHash", styleHash)("scriptHash", scriptHash);
  }
};

// A row of the table of servers.
struct ServerRow {
  std::string address, name, time;
  std::string file, fileTime, hash, selection;
  std::int64_t fileSize = 0;
  std::int64_t rows = 0, problems = 0, findings = 0;

  void visit(auto& add) const {
    add("address", address)("name", name)("time", time)("file", file)("fileTime", fileTime)("hash", hash)(
        "selection", selection)("fileSize", fileSize)("rows", rows)("problems", problems)(
        "hasProblems", problems > 0)("findings", findings);
  }
};

struct PageEnd {
  std::string script;

  void visit(auto& add) const { add("script", script); }
};

// A part of the page that is stored until the parts before it, which depend on all servers, are written.
class StoredPart {
 public:
  StoredPart() : output_(file_.descriptor(), "a temporary file") {}

  void write(const std::string& text);
  std::size_t size() const { return size_; }
  void copyTo(Output& target);

 private:
  os::ScratchFile file_;
  Output output_;
  std::size_t size_ = 0;  // in bytes
};

// What a server adds to the parts that are about all servers.
struct ServerSummary {
  std::vector<Counts> counts;  // by rule
  std::int64_t sites = 0;
  std::int64_t pools = 0;
};

// Builds a page. The section of each server, if it has one, is written before the server is added.
class Page {
 public:
  // `index`: the page that links to this one; empty for none.
  Page(const std::vector<Rule>& rules, std::string profile, std::string index = {})
      : overview_(rules, std::move(profile)), index_(std::move(index)) {}

  StoredPart& sections() { return sections_; }
  // `address`: where its section is.
  void add(const inventory::CollectionInfo& collection, const std::string& address,
           const ServerSummary& summary);
  void write(Output& output);

  // What grows with the number of servers and of their objects, in bytes.
  std::size_t size() const { return rows_.size() + sections_.size(); }

 private:
  PageHead head() const;

  Overview overview_;
  const std::string index_;
  StoredPart rows_;  // of the table of servers
  StoredPart sections_;
  std::int64_t servers_ = 0;
  std::string name_;  // of the latest server
  std::int64_t sites_ = 0;
  std::int64_t pools_ = 0;
};

}  // namespace host::page
