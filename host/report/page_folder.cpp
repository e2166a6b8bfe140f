#include "host/report/page_folder.h"

#include <fmt/core.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "host/report/report_parts.h"
#include "host/sha256.h"
#include "inventory/names.h"
#include "os/file.h"

namespace host::page {
namespace {

constexpr std::size_t kLongestName = 64;  // bytes that a page's name keeps of a server's
constexpr std::size_t kHashLength = 32;
constexpr std::string_view kPrefix = "server-";
constexpr std::string_view kSuffix = ".html";

// How each page begins, with the name of its generator.
std::string_view pageStart() {
  const std::string_view page(parts::page_start);
  return page.substr(0, page.find("{{"));
}

bool isSafe(char c) {
  return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
}

}  // namespace

// The prefix keeps a name from being special to a system. A name that is not kept whole has a hash, behind a
// character that no other has.
std::string pageNameOf(std::string_view server) {
  const std::string name = inventory::folded(server);
  if (name.size() <= kLongestName && std::ranges::all_of(name, isSafe))
    return fmt::format("{}{}{}", kPrefix, name, kSuffix);
  std::string kept;
  std::ranges::copy_if(std::string_view(name).substr(0, kLongestName), std::back_inserter(kept), isSafe);
  return fmt::format("{}{}~{}{}", kPrefix, kept, sha256Hex(name).substr(0, kHashLength), kSuffix);
}

PageFolder::PageFolder(std::filesystem::path directory) : directory_(std::move(directory)) {
  std::error_code error;
  std::filesystem::create_directory(directory_, error);
  if (error)
    throw std::runtime_error(fmt::format("cannot create '{}': {}", directory_.string(), error.message()));
}

void PageFolder::write(const std::string& name, Page& page) {
  const std::filesystem::path path = directory_ / name;
  std::error_code ignored;
  // Opening a pipe waits for its reader.
  if (os::statusOf(path, ignored).kind == os::FileKind::kStream)
    throw std::runtime_error(fmt::format("cannot write '{}': it is not a regular file", path.string()));
  {
    const std::lock_guard lock(mutex_);
    file_.emplace(path);
  }
  Output output(file_->descriptor(), fmt::format("'{}'", path.string()));
  page.write(output);
  output.flush();
  file_->finish();
  written_.insert(name);
}

void PageFolder::removeOldPages() const {
  try {
    for (const auto& entry : std::filesystem::directory_iterator(directory_)) {
      const std::string name = entry.path().filename().string();
      if (name.starts_with(kPrefix) && name.ends_with(kSuffix) && !written_.contains(name) &&
          entry.symlink_status().type() == std::filesystem::file_type::regular &&
          os::readHead(entry.path(), pageStart().size()) == pageStart())
        std::filesystem::remove(entry.path());
    }
  } catch (const std::system_error& error) {
    throw std::runtime_error(
        fmt::format("cannot remove old pages from '{}': {}", directory_.string(), error.code().message()));
  }
}

void PageFolder::discard() noexcept {
  mutex_.lock();
  if (file_) file_->remove();
}

}  // namespace host::page
