// What a metabase file must be before it is parsed: the checks that an XML parser may leave out, made on the
// raw bytes in one pass.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace platform::metabase {

// Which line an offset lies on, kept from before the bytes are changed by parsing in place.
class LineIndex {
 public:
  explicit LineIndex(std::string_view bytes);

  // The line of the byte at `offset`, counted from 1.
  std::size_t lineAt(std::size_t offset) const;

 private:
  std::vector<std::uint32_t> lineFeeds_;
};

// How a scan ended.
struct ScanResult {
  // Empty where every construct and element that begins also ends, else what the file ends in the middle of.
  std::string unfinished;
};

// Checks that the bytes are UTF-8 without NUL and other characters that XML does not have, that there is no
// document type declaration, and that every entity is one of XML's five or a numeric reference to a legal
// character. `file` is the file's name for messages. Throws automation::Failure, which names file and line.
ScanResult scan(std::string_view bytes, std::string_view file);

}  // namespace platform::metabase
