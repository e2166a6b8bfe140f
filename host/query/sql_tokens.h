// Splits SQL into tokens.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace host {

struct SqlToken {
  enum class Kind { kWord, kQuotedName, kText, kNumber, kSymbol };
  Kind kind = Kind::kSymbol;
  std::string_view text;     // unchanged, with quotation marks
  std::size_t position = 0;  // in the SQL text
};

// Returns the tokens of a text, without line comments. An unterminated quotation ends with the text. A symbol
// is one character.
std::vector<SqlToken> sqlTokens(std::string_view sql);

}  // namespace host
