// A directory of linked pages: one for each server, and an index of them.
#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "host/report/page.h"
#include "os/new_file.h"

namespace host::page {

inline constexpr const char* kIndexName = "index.html";

// The name of a server's page: safe on every system, and different for each server of an inventory.
std::string pageNameOf(std::string_view server);

class PageFolder {
 public:
  // Creates the directory unless it exists. Throws std::runtime_error.
  explicit PageFolder(std::filesystem::path directory);

  // Writes a page completely or not at all; a page of that name is replaced. Throws std::runtime_error.
  void write(const std::string& name, Page& page);

  // Removes the servers' pages that an earlier run wrote and this one did not. Throws std::runtime_error.
  void removeOldPages() const;

  // Discards the page that is being written. Later calls of write() wait for ever. For another thread that
  // ends the process.
  void discard() noexcept;

 private:
  const std::filesystem::path directory_;
  std::set<std::string> written_;
  std::mutex mutex_;  // guards file_
  std::optional<os::NewFile> file_;
};

}  // namespace host::page
