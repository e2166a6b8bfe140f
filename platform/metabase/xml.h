// Checks before a metabase file is parsed: its encoding and well-formed XML.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "os/file.h"

namespace platform::metabase {

// Converts UTF-16, detected by a byte order mark or a zero byte in the first character, to UTF-8; other
// encodings are left unchanged. `name` is the file's name in messages, here and below. Throws Failure for
// malformed UTF-16.
void convertToUtf8(os::FileBytes& file, const std::string& name);

// Checks that the bytes are a well-formed XML 1.0 document in UTF-8, without a document type, that declares
// no encoding other than UTF-8 or UTF-16. Throws Failure with the line and the reason.
void validateXml(std::string_view bytes, const std::string& name);

// Maps offsets to lines. Built before the bytes are modified by parsing in place.
class LineIndex {
 public:
  explicit LineIndex(std::string_view bytes);

  // The line of the byte at `offset`, counted from 1.
  std::size_t lineAt(std::size_t offset) const;

 private:
  std::vector<std::uint32_t> lineFeeds_;
};

// A qualified name without its namespace prefix.
std::string_view localName(std::string_view qualified);

}  // namespace platform::metabase
