// What a metabase file must be before it is read: text in UTF-8 or UTF-16, and XML by the letter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/metabase/file.h"

namespace platform::metabase {

// Turns UTF-16, known by its byte order mark or by the zero byte of its first character, into UTF-8 and
// leaves everything else as it is. `name` is the file's name for messages, here and below. Fails where it
// isn't whole UTF-16.
void convertToUtf8(FileBytes& file, const std::string& name);

// Checks that the bytes are one XML 1.0 document in UTF-8 that declares no other version and no encoding but
// UTF-8 or UTF-16, and no document type. Fails with the line and the reason.
void validateXml(std::string_view bytes, const std::string& name);

// Which line an offset lies on, kept from before the bytes are changed by parsing in place.
class LineIndex {
 public:
  explicit LineIndex(std::string_view bytes);

  // The line of the byte at `offset`, counted from 1.
  std::size_t lineAt(std::size_t offset) const;

 private:
  std::vector<std::uint32_t> lineFeeds_;
};

// What follows the namespace's prefix in a qualified name.
std::string_view localName(std::string_view qualified);

}  // namespace platform::metabase
