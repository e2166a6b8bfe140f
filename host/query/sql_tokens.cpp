#include "host/query/sql_tokens.h"

#include <algorithm>

namespace host {
namespace {

bool isWordCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         static_cast<signed char>(c) < 0;
}

// Returns the end of the quotation that begins at `start`. A doubled quotation mark is an escaped one.
std::size_t endOfQuotation(std::string_view sql, std::size_t start) {
  for (std::size_t at = start + 1; at < sql.size(); ++at) {
    if (sql[at] != sql[start]) continue;
    if (at + 1 == sql.size() || sql[at + 1] != sql[start]) return at + 1;
    ++at;
  }
  return sql.size();
}

}  // namespace

std::vector<SqlToken> sqlTokens(std::string_view sql) {
  std::vector<SqlToken> tokens;
  for (std::size_t at = 0; at < sql.size();) {
    const char c = sql[at];
    const std::size_t start = at;
    if (c == ' ' || (c >= '\t' && c <= '\r')) {
      ++at;
      continue;
    }
    if (sql.substr(at).starts_with("--")) {
      at = std::min(sql.find('\n', at), sql.size());
      continue;
    }
    SqlToken::Kind kind = SqlToken::Kind::kSymbol;
    if (c == '\'' || c == '"') {
      kind = c == '"' ? SqlToken::Kind::kQuotedName : SqlToken::Kind::kText;
      at = endOfQuotation(sql, at);
    } else if (isWordCharacter(c)) {
      kind = c >= '0' && c <= '9' ? SqlToken::Kind::kNumber : SqlToken::Kind::kWord;
      while (at < sql.size() && isWordCharacter(sql[at])) ++at;
    } else {
      ++at;
    }
    tokens.push_back({kind, sql.substr(start, at - start), start});
  }
  return tokens;
}

}  // namespace host
