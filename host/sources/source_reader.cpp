#include <algorithm>
#include <ctime>
#include <system_error>

#include <fmt/core.h>

#include "host/sources/archive.h"
#include "host/sources/sources.h"
#include "platform/metabase/failures.h"
#include "platform/metabase/file.h"

namespace host {
namespace {

using os::FileBytes;

[[noreturn]] void failRead(const Source& source, std::string_view why) {
  platform::metabase::fail(platform::metabase::number::kFileReadFault,
                           fmt::format("cannot read '{}': {}", source.shown(), why));
}

[[noreturn]] void failLarge(const Source& source, std::uint64_t maxSize) {
  platform::metabase::fail(platform::metabase::number::kFileTooLarge,
                           fmt::format("cannot read '{}': {}", source.shown(), tooLarge(maxSize)));
}

FileBytes bytesOf(std::string_view text) {
  FileBytes bytes;
  bytes.bytes.reset(new char[text.size() + 1]);
  std::copy(text.begin(), text.end(), bytes.bytes.get());
  bytes.size = text.size();
  return bytes;
}

FileBytes readStream(const Source& source, std::uint64_t maxSize) {
  std::string text;
  try {
    os::readStream(source.path == kStandardInput ? std::filesystem::path() : source.path,
                   [&](std::string_view piece) {
                     text += piece;
                     return text.size() <= maxSize;
                   });
  } catch (const std::system_error& error) {
    failRead(source, error.code().message());
  }
  if (text.size() > maxSize) failLarge(source, maxSize);
  FileBytes bytes = bytesOf(text);
  bytes.stamp.seconds = std::time(nullptr);
  return bytes;
}

FileBytes readMember(const Source& source, std::uint64_t maxSize) {
  if (source.kept != nullptr) return bytesOf(*source.kept);
  const auto requireSame = [&] {
    if (hasChanged(source, source.archive)) failRead(source, "the archive has changed since it was searched");
  };
  requireSame();
  try {
    auto archive = Archive::open(source.path);
    for (std::size_t member = 0; archive; ++member) {
      try {
        if (!archive->next()) break;
      } catch (const ArchiveError& error) {
        if (error.isOver() || member >= source.member) throw;
        continue;
      }
      if (member < source.member) continue;
      std::string text;
      if (archive->read(text, maxSize) && archive->read(text, 1)) failLarge(source, maxSize);
      requireSame();
      return bytesOf(text);
    }
  } catch (const ArchiveError& error) {
    requireSame();
    failRead(source, error.what());
  }
  failRead(source, "it is no longer in the archive");
}

}  // namespace

std::string tooLarge(std::uint64_t maxSize) {
  return fmt::format("it is larger than {} bytes (--max-size)", maxSize);
}

FileBytes readSource(const Source& source, std::uint64_t maxSize) {
  if (source.kind == Source::Kind::kFile) return platform::metabase::readFile(source.path);
  if (source.kind == Source::Kind::kStream) return readStream(source, maxSize);
  FileBytes bytes = readMember(source, maxSize);
  bytes.stamp.seconds = source.modified;
  return bytes;
}

bool hasChanged(const Source& source, const os::FileStamp& stamp) {
  if (source.kind == Source::Kind::kStream) return false;
  return os::stampOf(source.path) != (source.kind == Source::Kind::kMember ? source.archive : stamp);
}

}  // namespace host
