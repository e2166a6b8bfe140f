// Recognises what a file is by its beginning.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace host {

// How many bytes of a file are read to recognise it.
inline constexpr std::size_t kHeadSize = 4096;

struct FileType {
  enum class Kind { kMetabase, kArchive, kUnsupportedArchive, kOther };

  Kind kind = Kind::kOther;
  std::string_view format = {};  // of an unsupported archive
};

// `name` decides if the beginning doesn't. A compressed file is an archive.
FileType recognizeFile(std::string_view head, const std::string& name);

// Why an unsupported archive is not read.
std::string unsupportedArchive(const FileType& type);

}  // namespace host
