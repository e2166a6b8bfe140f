#include "host/sources/archive.h"

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <new>
#include <utility>

#include "host/sources/byte_blocks.h"

namespace host {
namespace {

constexpr std::size_t kBlock = 64 * 1024;

std::string reasonOf(archive* handle) {
  const char* const why = archive_error_string(handle);
  // The library also reports an unknown format if decompression fails.
  const bool hasReason = why != nullptr && std::string_view(why) != "Unrecognized archive format";
  return hasReason ? why : "it is broken";
}

// Filters of compiled-in libraries only: without its library, a filter would start a program.
void supportFilters(archive* handle) {
  constexpr struct {
    const char* (*version)();
    int (*support)(archive*);
  } kFilters[] = {{archive_zlib_version, archive_read_support_filter_gzip},
                  {archive_bzlib_version, archive_read_support_filter_bzip2},
                  {archive_liblzma_version, archive_read_support_filter_xz},
                  {archive_libzstd_version, archive_read_support_filter_zstd},
                  {archive_liblz4_version, archive_read_support_filter_lz4}};
  for (const auto& filter : kFilters) {
    if (filter.version() != nullptr) filter.support(handle);
  }
  archive_read_support_filter_compress(handle);
}

void supportFormats(archive* handle, bool single) {
  if (single) {
    archive_read_support_format_raw(handle);
    return;
  }
  for (const auto support : {archive_read_support_format_zip, archive_read_support_format_tar,
                             archive_read_support_format_7zip, archive_read_support_format_cab,
                             archive_read_support_format_cpio, archive_read_support_format_iso9660})
    support(handle);
}

}  // namespace

void Archive::Closer::operator()(archive* handle) const noexcept {
  archive_read_free(handle);
}

void Archive::fail(int result) const {
  throw ArchiveError(reasonOf(handle_.get()), result == ARCHIVE_FATAL);
}

std::optional<Archive> Archive::open(const std::filesystem::path& file) {
  std::error_code error;
  const os::FileStatus status = os::statusOf(file, error);
  if (status.kind != os::FileKind::kRegular || status.size == 0) return std::nullopt;
  return openBy([&](archive* handle) { return archive_read_open_filename(handle, file.c_str(), kBlock); },
                status.modified);
}

std::optional<Archive> Archive::open(std::string_view bytes, std::int64_t modified) {
  return openBy([&](archive* handle) { return archive_read_open_memory(handle, bytes.data(), bytes.size()); },
                modified);
}

template <typename Open>
std::optional<Archive> Archive::openBy(const Open& openHandle, std::int64_t modified) {
  std::string why;  // of what is an archive, as far as it can be read
  // A compressed file that holds nothing but one file is an archive only because it is compressed.
  for (const bool single : {false, true}) {
    Archive opened;
    opened.handle_.reset(archive_read_new());
    archive* const handle = opened.handle_.get();
    if (handle == nullptr) throw std::bad_alloc();
    supportFilters(handle);
    supportFormats(handle, single);
    if (openHandle(handle) != ARCHIVE_OK) {
      // Reading as a single file fails only for damaged compressed data.
      if (single && why.empty()) why = reasonOf(handle);
      continue;
    }
    const int result = archive_read_next_header(handle, &opened.entry_);
    const bool isReadable = result == ARCHIVE_OK || result == ARCHIVE_WARN || result == ARCHIVE_EOF;
    const bool isCompressed = archive_filter_count(handle) > 1;
    if (!isReadable) why = reasonOf(handle);
    if (!isReadable || (single && !isCompressed)) continue;
    opened.isSingle_ = single;
    opened.hasEntry_ = result != ARCHIVE_EOF;
    if (result == ARCHIVE_EOF) opened.entry_ = nullptr;
    if (result == ARCHIVE_WARN) opened.warning_ = reasonOf(handle);
    opened.fileModified_ = modified;
    return opened;
  }
  if (!why.empty()) throw ArchiveError(why, true);
  return std::nullopt;
}

bool Archive::next() {
  if (hasEntry_) {
    hasEntry_ = false;
    return true;
  }
  if (entry_ == nullptr) return false;
  const int result = archive_read_next_header(handle_.get(), &entry_);
  warning_ = result == ARCHIVE_WARN ? reasonOf(handle_.get()) : "";
  if (result == ARCHIVE_EOF || result == ARCHIVE_FATAL) entry_ = nullptr;
  if (result != ARCHIVE_OK && result != ARCHIVE_WARN && result != ARCHIVE_EOF) fail(result);
  return result != ARCHIVE_EOF;
}

std::string Archive::name() const {
  if (isSingle_) return {};
  const char* const utf8 = archive_entry_pathname_utf8(entry_);
  const char* const raw = utf8 != nullptr ? utf8 : archive_entry_pathname(entry_);
  std::string name = raw != nullptr ? raw : "";
  // As some programs on Windows write them.
  std::replace(name.begin(), name.end(), '\\', '/');
  return name;
}

bool Archive::isFile() const {
  return archive_entry_filetype(entry_) == AE_IFREG && archive_entry_hardlink(entry_) == nullptr;
}

bool Archive::isLink() const {
  return archive_entry_hardlink(entry_) != nullptr;
}

bool Archive::isEncrypted() const {
  return archive_entry_is_encrypted(entry_) != 0;
}

std::int64_t Archive::modified() const {
  return isSingle_ || archive_entry_mtime_is_set(entry_) == 0 ? fileModified_ : archive_entry_mtime(entry_);
}

std::optional<std::uint64_t> Archive::size() const {
  if (isSingle_ || archive_entry_size_is_set(entry_) == 0) return std::nullopt;
  return static_cast<std::uint64_t>(std::max<la_int64_t>(archive_entry_size(entry_), 0));
}

bool Archive::read(std::string& bytes, std::size_t most) {
  const std::size_t end = bytes.size() + most;
  while (bytes.size() < end) {
    const std::size_t before = bytes.size();
    bytes.resize(std::min(end, before + kBlock));
    const la_ssize_t count = archive_read_data(handle_.get(), bytes.data() + before, bytes.size() - before);
    bytes.resize(before + static_cast<std::size_t>(std::max<la_ssize_t>(count, 0)));
    if (count < 0) fail(static_cast<int>(count));
    if (count == 0) return false;
  }
  return true;
}

std::optional<os::FileBytes> Archive::readAll(std::uint64_t most, std::string head) {
  if (size().value_or(0) > most) return std::nullopt;
  ByteBlocks blocks;
  blocks.append(std::move(head));
  for (bool more = true; more;) {
    std::string block;
    more = read(block, ByteBlocks::kBlock);
    blocks.append(std::move(block));
    if (blocks.size() > most) return std::nullopt;
  }
  return blocks.join();
}

}  // namespace host
