// Archives and compressed files, read from beginning to end and never unpacked to the disk.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "os/file.h"

struct archive;
struct archive_entry;

namespace host {

// Why an archive cannot be read, without its name.
class ArchiveError : public std::runtime_error {
 public:
  ArchiveError(const std::string& why, bool isOver) : std::runtime_error(why), isOver_(isOver) {}
  // Whether nothing after it can be read; otherwise only this member cannot.
  bool isOver() const { return isOver_; }

 private:
  bool isOver_;
};

// One pass through an archive (zip, tar, 7z, cpio, cab or iso9660, compressed or not) or a file compressed by
// gzip, bzip2, xz, zstd, lz4 or compress. Starts no other program. Members throw ArchiveError.
class Archive {
 public:
  // Opens an archive; nothing for a file that is none.
  static std::optional<Archive> open(const std::filesystem::path& file);
  // Opens an archive within another one. The bytes must outlive it; `modified` is their time.
  static std::optional<Archive> open(std::string_view bytes, std::int64_t modified);

  // Moves to the next member, initially to the first. Returns false after the last one.
  bool next();

  // The member's path in the archive, with slashes; empty for that of a compressed file.
  std::string name() const;
  bool isSingle() const { return isSingle_; }
  bool isFile() const;
  // Whether the member is a link to another one and has no bytes of its own.
  bool isLink() const;
  bool isEncrypted() const;
  std::int64_t modified() const;  // seconds since 1970
  // The member's size, if it is known.
  std::optional<std::uint64_t> size() const;
  // A warning about the member's entry; empty if there is none.
  const std::string& warning() const { return warning_; }

  // Appends up to `most` bytes of the member to `bytes`. Returns whether there may be more.
  bool read(std::string& bytes, std::size_t most);
  // All bytes of a member after `head`, which has been read; nothing for more than `most`.
  std::optional<os::FileBytes> readAll(std::uint64_t most, std::string head = {});

 private:
  struct Closer {
    void operator()(archive* handle) const noexcept;
  };

  // Opens by `openHandle`, which returns a status.
  template <typename Open>
  static std::optional<Archive> openBy(const Open& openHandle, std::int64_t modified);
  [[noreturn]] void fail(int result) const;

  std::unique_ptr<archive, Closer> handle_;
  archive_entry* entry_ = nullptr;
  bool isSingle_ = false;
  bool hasEntry_ = false;  // the next entry has been read already
  std::string warning_;
  std::int64_t fileModified_ = 0;
};

}  // namespace host
