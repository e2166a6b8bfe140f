// Archives and compressed files, read from beginning to end and never unpacked to the disk.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

struct archive;
struct archive_entry;

namespace host {

// What is wrong with an archive, the reason alone.
class ArchiveError : public std::runtime_error {
 public:
  ArchiveError(const std::string& why, bool isOver) : std::runtime_error(why), isOver_(isOver) {}
  // Whether nothing behind it can be read; else only the member that it is about can't.
  bool isOver() const { return isOver_; }

 private:
  bool isOver_;
};

// One pass through an archive: .zip, .tar, .7z and their like, compressed or not, and single compressed
// files. Members that fail throw ArchiveError.
class Archive {
 public:
  // Nothing for a file that is no archive; fails for one that is, but can't be read.
  static std::optional<Archive> open(const std::filesystem::path& file);

  // Goes to the next member, the first one at first. False when there is none left.
  bool next();

  // The member's path, with slashes; empty for the one member of a compressed file. It is no path here.
  std::string name() const;
  bool isSingle() const { return isSingle_; }
  bool isFile() const;
  // Another member under a second name, without bytes of its own.
  bool isLink() const;
  bool isEncrypted() const;
  std::int64_t modified() const;  // seconds since 1970
  // What is odd about the member's entry, though it can be read; empty where nothing is.
  const std::string& warning() const { return warning_; }

  // Appends up to `most` bytes of the member's to `bytes`, and tells whether there may be more.
  bool read(std::string& bytes, std::size_t most);

 private:
  struct Closer {
    void operator()(archive* handle) const noexcept;
  };

  [[noreturn]] void fail(int result) const;

  std::unique_ptr<archive, Closer> handle_;
  archive_entry* entry_ = nullptr;
  bool isSingle_ = false;
  bool hasEntry_ = false;  // the entry has been looked at ahead
  std::string warning_;
  std::int64_t fileModified_ = 0;
};

}  // namespace host
