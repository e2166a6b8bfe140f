// The words of an SQL text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace host {

struct SqlToken {
  enum class Kind { kWord, kQuotedName, kText, kNumber, kSymbol };
  Kind kind = Kind::kSymbol;
  std::string_view text;     // as it is written
  std::size_t position = 0;  // in the SQL text
};

// Divides a text into tokens and leaves comments out. An unclosed quotation ends with the text. A symbol is
// one character.
std::vector<SqlToken> sqlTokens(std::string_view sql);

}  // namespace host
