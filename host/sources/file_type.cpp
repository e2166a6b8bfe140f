#include "host/sources/file_type.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include <fmt/core.h>

#include "inventory/names.h"
#include "platform/metabase/metabase.h"

namespace host {
namespace {

using namespace std::string_view_literals;

struct Signature {
  std::string_view pattern;           // '?' is any byte, '#' a hexadecimal digit
  std::string_view unsupported = {};  // the format's name, if it cannot be read
  std::size_t offset = 0;
  std::string_view extension = {};  // of the file, if the pattern also occurs in other files
};

constexpr Signature kSignatures[] = {
    {"PK\3\4"sv},
    {"PK\5\6"sv},
    {"PK\7\b"sv},
    {"7z\xBC\xAF\x27\x1C"sv},
    {"MSCF"sv},
    {"070701########"sv},
    {"070702########"sv},
    {"070707########"sv},
    {"ustar"sv, {}, 257},
    {"\x1F\x8B"sv},  // gzip
    {"BZh"sv},       // bzip2
    {"\xFD"
     "7zXZ\0"sv},            // xz
    {"\x28\xB5\x2F\xFD"sv},  // zstd
    {"\x04\x22\x4D\x18"sv},  // lz4
    {"\x1F\x9D"sv},          // compress
    {"Rar!\x1A\x07"sv, "RAR"},
    {"LZIP"sv, "lzip"},
    {"LRZI"sv, "lrzip"},
    {"GRZipII"sv, "grzip"},
    {"\x89LZO\0"sv, "lzop"},
    {"\x5D\0\0"sv, "LZMA", 0, ".lzma"},
    {"xar!"sv, "XAR"},
    {"-lh?-"sv, "LHA", 2},
    {"\x60\xEA"sv, "ARJ", 0, ".arj"},
};

// Formats without a signature in the head, or without any.
constexpr std::string_view kExtensions[] = {".tar", ".iso", ".cpio"};

bool begins(std::string_view head, const Signature& signature) {
  if (head.size() < signature.offset + signature.pattern.size()) return false;
  return std::ranges::equal(signature.pattern, head.substr(signature.offset, signature.pattern.size()),
                            [](char expected, char byte) {
                              if (expected == '#')
                                return std::isxdigit(static_cast<unsigned char>(byte)) != 0;
                              return expected == '?' || expected == byte;
                            });
}

}  // namespace

FileType recognizeFile(std::string_view head, const std::string& name) {
  if (platform::metabase::looksLikeMetabase(head)) return {FileType::Kind::kMetabase};
  const std::string extension = inventory::folded(std::filesystem::path(name).extension().string());
  for (const Signature& each : kSignatures) {
    if (!begins(head, each) || (!each.extension.empty() && each.extension != extension)) continue;
    if (each.unsupported.empty()) return {FileType::Kind::kArchive};
    return {FileType::Kind::kUnsupportedArchive, each.unsupported};
  }
  const bool isNamed = std::ranges::find(kExtensions, extension) != std::end(kExtensions);
  return {isNamed ? FileType::Kind::kArchive : FileType::Kind::kOther};
}

std::string unsupportedArchive(const FileType& type) {
  return fmt::format("the format {} is not supported (unpack it)", type.format);
}

}  // namespace host
