#include "host/report/page.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>

#include "host/console/terminal_text.h"
#include "host/console/text.h"
#include "host/report/render.h"
#include "host/report/report_parts.h"
#include "host/sha256.h"
#include "inventory/clock.h"

namespace host::page {
namespace {

// In base64, as a content security policy has it.
std::string hashOf(std::string_view text) {
  const std::string hash = sha256(text);
  std::array<unsigned char, 64> code{};
  const int length = EVP_EncodeBlock(code.data(), reinterpret_cast<const unsigned char*>(hash.data()),
                                     static_cast<int>(hash.size()));
  return {reinterpret_cast<const char*>(code.data()), static_cast<std::size_t>(length)};
}

ServerRow rowOf(const inventory::CollectionInfo& collection, const std::string& address,
                std::int64_t findings) {
  std::string time = collection.published.substr(0, 19);
  std::ranges::replace(time, 'T', ' ');
  return {address,
          escapeForTerminal(collection.server),
          escapeForTerminal(time),
          escapeForTerminal(collection.file),
          escapeForTerminal(collection.fileTime.substr(0, 10)),
          escapeForTerminal(collection.sha256),
          collection.selection.empty() ? "everything" : escapeForTerminal(collection.selection),
          collection.fileSize,
          collection.rows,
          collection.problems,
          findings};
}

}  // namespace

void StoredPart::write(const std::string& text) {
  output_.write(text);
  size_ += text.size();
}

void StoredPart::copyTo(Output& target) {
  output_.flush();
  std::rewind(file_.stream());
  std::array<char, 65536> bytes{};
  std::size_t copied = 0;
  while (const std::size_t size = std::fread(bytes.data(), 1, bytes.size(), file_.stream())) {
    target.write({bytes.data(), size});
    copied += size;
  }
  if (copied != size_) throw std::runtime_error("cannot read a temporary file");
}

void Page::add(const inventory::CollectionInfo& collection, const std::string& address,
               const ServerSummary& summary) {
  ++servers_;
  name_ = collection.server;
  sites_ += summary.sites;
  pools_ += summary.pools;
  const std::int64_t findings = overview_.add(name_, address, summary.counts);
  rows_.write(render(rowOf(collection, address, findings)));
}

void Page::write(Output& output) {
  output.write(render(head()));
  output.write(parts::servers_start);
  rows_.copyTo(output);
  output.write(parts::servers_end);
  output.write(render(overview_.view()));
  sections_.copyTo(output);
  output.write(render(PageEnd{parts::script}));
}

PageHead Page::head() const {
  const std::string servers = pluralize(servers_, "server", "servers");
  return {servers_ == 1 ? escapeForTerminal(name_) : servers,
          servers,
          pluralize(sites_, "FTP site", "FTP sites"),
          pluralize(pools_, "application pool", "application pools"),
          inventory::utcNow().substr(0, 16).replace(10, 1, " ") + " UTC",
          IISINVENTORY_VERSION,
          parts::style,
          hashOf(parts::style),
          hashOf(parts::script),
          index_};
}

}  // namespace host::page
