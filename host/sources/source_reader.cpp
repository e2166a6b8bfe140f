#include <ctime>
#include <optional>
#include <system_error>
#include <utility>

#include <fmt/core.h>

#include "host/sources/archive.h"
#include "host/sources/byte_blocks.h"
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

FileBytes readStream(const Source& source, std::uint64_t maxSize) {
  ByteBlocks blocks;
  try {
    os::readStream(source.path == kStandardInput ? std::filesystem::path() : source.path,
                   [&](std::string_view piece) {
                     blocks.append(std::string(piece));
                     return blocks.size() <= maxSize;
                   });
  } catch (const std::system_error& error) {
    failRead(source, error.code().message());
  }
  if (blocks.size() > maxSize) failLarge(source, maxSize);
  FileBytes bytes = blocks.join();
  bytes.stamp.seconds = std::time(nullptr);
  return bytes;
}

// Moves to the member with a number. Returns whether there is one.
bool moveTo(Archive& archive, std::size_t number) {
  for (std::size_t member = 0;; ++member) {
    try {
      if (!archive.next()) return false;
    } catch (const ArchiveError& error) {
      if (error.isOver() || member >= number) throw;
      continue;
    }
    if (member == number) return true;
  }
}

// Reads the member at `depth` of the source's members.
FileBytes readMember(Archive& archive, const Source& source, std::size_t depth, std::uint64_t maxSize) {
  if (!moveTo(archive, source.members[depth])) failRead(source, "it is no longer in the archive");
  auto bytes = archive.readAll(maxSize);
  if (!bytes) failLarge(source, maxSize);
  if (depth + 1 == source.members.size()) return *std::move(bytes);
  auto nested = Archive::open({bytes->bytes.get(), bytes->size}, source.modified);
  if (!nested) failRead(source, "it is no longer in the archive");
  return readMember(*nested, source, depth + 1, maxSize);
}

FileBytes readMember(const Source& source, std::uint64_t maxSize) {
  if (source.kept != nullptr && *source.kept) return *std::exchange(*source.kept, std::nullopt);
  const auto requireSame = [&] {
    if (hasChanged(source, source.archive)) failRead(source, "the archive has changed since it was searched");
  };
  requireSame();
  try {
    auto archive = Archive::open(source.path);
    if (!archive) failRead(source, "it is no longer an archive");
    FileBytes bytes = readMember(*archive, source, 0, maxSize);
    requireSame();
    return bytes;
  } catch (const ArchiveError& error) {
    requireSame();
    failRead(source, error.what());
  }
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
