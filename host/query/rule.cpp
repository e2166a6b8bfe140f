#include "host/query/rule.h"

#include <fmt/core.h>

#include <algorithm>
#include <charconv>
#include <functional>
#include <map>
#include <span>

#include "host/query/sql_tokens.h"
#include "host/usage_error.h"
#include "inventory/catalog/views.h"
#include "inventory/names.h"
#include "inventory/sqlite/query_check.h"

namespace host {
namespace {

using inventory::Type;

// Words and symbols whose meaning differs between SQLite and PostgreSQL, or that make the order of rows
// matter.
constexpr std::array<std::string_view, 17> kRefusedWords = {
    "_rowid_", "cast",    "collate", "glob", "ilike",  "isnull", "like",    "limit", "main",
    "match",   "notnull", "offset",  "oid",  "regexp", "rowid",  "similar", "temp"};
constexpr std::string_view kRefusedSymbols = ";[]`$?@#~{}\\";

// Returns the trimmed parts of a text, without empty ones.
std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> pieces;
  while (true) {
    const std::size_t end = std::min(text.find(separator), text.size());
    if (std::string piece = trimmed(text.substr(0, end)); !piece.empty()) pieces.push_back(std::move(piece));
    if (end == text.size()) return pieces;
    text.remove_prefix(end + 1);
  }
}

bool isName(std::string_view text) {
  return !text.empty() && text.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_") == text.npos &&
         (text.front() < '0' || text.front() > '9');
}

std::optional<Type> typeOf(std::string_view word) {
  if (word == "text") return Type::kText;
  if (word == "integer") return Type::kInteger;
  if (word == "boolean") return Type::kBoolean;
  return std::nullopt;
}

bool isOfType(std::string_view value, Type type) {
  if (type == Type::kBoolean) return value == "true" || value == "false";
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
  return type == Type::kText || (error == std::errc() && end == value.data() + value.size());
}

// Reads the lines of a rule's header: "-- KEY: VALUE", continued by "--   MORE".
class HeaderParser {
 public:
  explicit HeaderParser(Rule& rule) : rule_(rule) {}

  void parse() {
    std::size_t at = 0;
    for (; rule_.text.compare(at, 2, "--") == 0;
         at = std::min(rule_.text.find('\n', at), rule_.text.size() - 1) + 1) {
      addLine(at, std::string_view(rule_.text).substr(at + 2, rule_.text.find('\n', at) - at - 2));
    }
    finishValue();
    rule_.queryStart = at;
    for (const char* const key : {"title", "severity", "category", "why", "fix", "requires"}) {
      if (!seen_.contains(key)) throw rule_.errorAt(0, std::string("the header has no '") + key + "'");
    }
  }

 private:
  void addLine(std::size_t position, std::string_view line) {
    const std::size_t colon = line.find(':');
    if (line.starts_with("   ") || line.starts_with("\t") || trimmed(line).empty()) {
      if (!key_.empty()) value_ += " " + trimmed(line);
      return;
    }
    finishValue();
    position_ = position;
    key_ = trimmed(line.substr(0, std::min(colon, line.size())));
    if (colon == line.npos) fail(fmt::format("'{}' is not a header line 'KEY: VALUE'", key_));
    value_ = trimmed(line.substr(colon + 1));
  }

  void finishValue() {
    if (key_.empty()) return;
    value_ = trimmed(value_);
    if (value_.empty()) fail(fmt::format("'{}' has no value", key_));
    const bool isList = key_ == "references" || key_ == "param" || key_ == "requires" || key_ == "columns";
    if (seen_[key_]++ > 0 && !isList) fail(fmt::format("'{}' is given twice", key_));
    setValue();
    key_.clear();
  }

  void setValue() {
    if (key_ == "title") {
      rule_.title = value_;
    } else if (key_ == "why") {
      rule_.why = value_;
    } else if (key_ == "fix") {
      rule_.fix = value_;
    } else if (key_ == "severity") {
      const auto severity = severityOf(value_);
      if (!severity)
        fail(fmt::format("unknown severity '{}' (use info, low, medium, high or critical)", value_));
      rule_.severity = *severity;
    } else if (key_ == "category") {
      if (std::ranges::find(kCategories, value_) == kCategories.end())
        fail(fmt::format("unknown category '{}' (use security, reliability, migration or housekeeping)",
                         value_));
      rule_.category = value_;
    } else if (key_ == "references") {
      addReference();
    } else if (key_ == "requires") {
      for (const std::string& each : split(value_, ' ')) addRequirement(each);
    } else if (key_ == "columns") {
      for (const std::string& each : split(value_, ',')) addColumn(split(each, ' '));
    } else if (key_ == "param") {
      addParameter(split(value_, ' '));
    } else {
      fail(fmt::format("unknown key '{}'", key_));
    }
  }

  void addReference() {
    std::vector<std::string> parts = split(value_, '|');
    if (parts.empty() || parts.size() > 3) fail("invalid reference (use NAME | ID | ADDRESS)");
    Rule::Reference reference{parts[0], "", ""};
    for (const std::string& part : std::span(parts).subspan(1))
      (part.find("://") == part.npos ? reference.id : reference.address) = part;
    rule_.references.push_back(std::move(reference));
  }

  void addRequirement(const std::string& text) {
    const std::size_t dot = text.find('.');
    const Rule::Requirement requirement{text.substr(0, dot), dot == text.npos ? "" : text.substr(dot + 1)};
    const auto views = inventory::views(inventory::Dialect(inventory::Dialect::Kind::kSqlite), "s");
    const auto view = std::ranges::find(views, requirement.view, &inventory::View::name);
    if (view == views.end()) fail(fmt::format("'requires': no view '{}'", requirement.view));
    if (!requirement.column.empty() && std::ranges::find(view->columns, requirement.column,
                                                         &inventory::ViewColumn::name) == view->columns.end())
      fail(fmt::format("'requires': the view {} has no column '{}'", view->name, requirement.column));
    rule_.requirements.push_back(requirement);
  }

  void addColumn(const std::vector<std::string>& words) {
    const auto type = words.size() >= 2 ? typeOf(words[1]) : std::nullopt;
    const bool isIdentifying = words.size() == 3 && words[2] == "identifying";
    if (!type || !isName(words[0]) || words.size() > 3 || (words.size() == 3 && !isIdentifying))
      fail("invalid column (use NAME TYPE [identifying], of type text, integer or boolean)");
    rule_.columns.push_back({words[0], *type, isIdentifying});
  }

  void addParameter(const std::vector<std::string>& words) {
    const auto type = words.size() >= 3 ? typeOf(words[1]) : std::nullopt;
    if (!type || !isName(words[0]))
      fail("invalid parameter (use NAME TYPE DEFAULT, of type text, integer or boolean)");
    std::string value = words[2];
    for (const std::string& word : std::span(words).subspan(3)) value += " " + word;
    if (!isOfType(value, *type))
      fail(fmt::format("'{}' is not a valid value of the parameter {}", value, words[0]));
    rule_.parameters.push_back({words[0], *type, value});
  }

  [[noreturn]] void fail(const std::string& message) const { throw rule_.errorAt(position_, message); }

  Rule& rule_;
  std::string key_, value_;
  std::size_t position_ = 0;
  std::map<std::string, int> seen_;
};

using Tokens = std::vector<SqlToken>;

bool isSymbol(const Tokens& tokens, std::size_t at, char symbol) {
  return at < tokens.size() && tokens[at].kind == SqlToken::Kind::kSymbol && tokens[at].text[0] == symbol;
}
bool isWord(const Tokens& tokens, std::size_t at, std::string_view word) {
  return at < tokens.size() && tokens[at].kind == SqlToken::Kind::kWord &&
         inventory::sameName(tokens[at].text, word);
}

// Returns what a rule may not use, for a message; empty if the token is allowed.
std::string describeRefused(const Tokens& tokens, std::size_t at) {
  const SqlToken& token = tokens[at];
  if (token.kind == SqlToken::Kind::kSymbol) {
    const bool isDoubled =
        isSymbol(tokens, at + 1, token.text[0]) && tokens[at + 1].position == token.position + 1;
    const bool isComment = token.text == "/" && isSymbol(tokens, at + 1, '*');
    const bool isRefused = kRefusedSymbols.find(token.text[0]) != kRefusedSymbols.npos || isComment ||
                           (isDoubled && (token.text == ":" || token.text == "="));
    return isRefused ? "'" + std::string(token.text) +
                           (isDoubled   ? std::string(token.text)
                            : isComment ? "*"
                                        : "") +
                           "'"
                     : "";
  }
  if (token.kind != SqlToken::Kind::kWord) return {};
  // In PostgreSQL a prefix such as E'' changes the meaning of characters in the text.
  const bool isPrefix =
      at + 1 < tokens.size() && tokens[at + 1].position == token.position + token.text.size() &&
      (tokens[at + 1].kind == SqlToken::Kind::kText || tokens[at + 1].kind == SqlToken::Kind::kQuotedName);
  if (isPrefix) return "a word directly before a quotation mark";
  const std::string word = inventory::folded(token.text);
  if (word == "not" && isWord(tokens, at + 1, "null") && (at == 0 || !isWord(tokens, at - 1, "is")))
    return "'not null' without 'is'";
  if (std::ranges::find(kRefusedWords, word) != kRefusedWords.end()) return "'" + word + "'";
  if (word != "is") return {};
  const std::size_t next = isWord(tokens, at + 1, "not") ? at + 2 : at + 1;
  for (const char* const allowed : {"null", "true", "false", "distinct"}) {
    if (isWord(tokens, next, allowed)) return {};
  }
  return "'is' without null, true, false or distinct after it";
}

}  // namespace

std::string trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r");
  if (first == text.npos) return {};
  return std::string(text.substr(first, text.find_last_not_of(" \t\r") - first + 1));
}

std::optional<Severity> severityOf(std::string_view word) {
  const auto found = std::ranges::find(kSeverities, inventory::folded(word));
  if (found == kSeverities.end()) return std::nullopt;
  return static_cast<Severity>(found - kSeverities.begin());
}

Rule Rule::parse(std::string id, std::string file, std::string text) {
  Rule rule;
  rule.id = std::move(id);
  rule.file = std::move(file);
  rule.text = std::move(text);
  HeaderParser(rule).parse();
  return rule;
}

std::string Rule::query(const inventory::Dialect& dialect) const {
  const std::string_view sql = std::string_view(text).substr(queryStart);
  const Tokens tokens = sqlTokens(sql);
  std::string result;
  std::size_t copied = 0;
  const auto replace = [&](std::size_t first, std::size_t last, const std::string& with) {
    result.append(sql.substr(copied, tokens[first].position - copied)).append(with);
    copied = tokens[last].position + tokens[last].text.size();
  };
  int depth = 0;
  std::vector<int> folds;  // depths of the parentheses of fold() calls
  for (std::size_t at = 0; at < tokens.size(); ++at) {
    if (isSymbol(tokens, at, '(')) {
      ++depth;
    } else if (isSymbol(tokens, at, ')')) {
      if (!folds.empty() && folds.back() == depth) {
        folds.pop_back();
        replace(at, at, ") collate \"und-x-icu\") collate \"C\")");
      }
      --depth;
    } else if (isSymbol(tokens, at, ':') && at + 1 < tokens.size()) {
      const auto found = std::ranges::find(parameters, tokens[at + 1].text, &Parameter::name);
      if (found == parameters.end()) continue;
      const std::string placeholder = "$" + std::to_string(found - parameters.begin() + 1);
      replace(at, at + 1,
              found->type == Type::kBoolean   ? "(cast(" + placeholder + " as bigint) <> 0)"
              : found->type == Type::kInteger ? "cast(" + placeholder + " as bigint)"
                                              : "cast(" + placeholder + " as text)");
      ++at;
    } else if (dialect.isPostgres() && isWord(tokens, at, "fold") && isSymbol(tokens, at + 1, '(')) {
      replace(at, at + 1, "(lower((");
      folds.push_back(++depth);
      ++at;
    }
  }
  return result.append(sql.substr(copied));
}

inventory::Parameters Rule::parameterValues() const {
  inventory::Parameters values;
  for (const Parameter& parameter : parameters) {
    if (parameter.type == Type::kText) {
      values.emplace_back(parameter.value);
    } else {
      values.emplace_back(parameter.type == Type::kBoolean ? std::int64_t{parameter.value == "true"}
                                                           : std::int64_t{std::stoll(parameter.value)});
    }
  }
  return values;
}

void Rule::setParameter(const std::string& name, const std::string& value) {
  const auto found = std::ranges::find(parameters, name, &Parameter::name);
  if (found == parameters.end()) throw UsageError(fmt::format("the rule {} has no parameter '{}'", id, name));
  if (!isOfType(value, found->type))
    throw UsageError(
        fmt::format("the rule {}: '{}' is not a valid value of the parameter {}", id, value, name));
  found->value = value;
}

void Rule::check() const {
  const std::string_view sql = std::string_view(text).substr(queryStart);
  const Tokens tokens = sqlTokens(sql);
  // In PostgreSQL a carriage return alone ends a comment.
  for (std::size_t at = sql.find('\r'); at != sql.npos; at = sql.find('\r', at + 1)) {
    if (at + 1 == sql.size() || sql[at + 1] != '\n')
      throw errorAt(queryStart + at, "a carriage return without a line feed is not available in rules");
  }
  for (std::size_t at = 0; at < tokens.size(); ++at) {
    if (const std::string refused = describeRefused(tokens, at); !refused.empty())
      throw errorAt(queryStart + tokens[at].position, refused + " is not available in rules");
    if (isSymbol(tokens, at, ':') && at + 1 < tokens.size() &&
        std::ranges::find(parameters, tokens[at + 1].text, &Parameter::name) == parameters.end())
      throw errorAt(queryStart + tokens[at].position,
                    "the header has no 'param: " + std::string(tokens[at + 1].text) + " TYPE DEFAULT'");
  }
  std::string columnList = "object_id, holds";
  for (const EvidenceColumn& column : columns) columnList += ", " + inventory::quotedName(column.name);
  const inventory::Dialect dialect(inventory::Dialect::Kind::kSqlite);
  const std::string query = this->query(dialect), start = "select " + columnList + " from (";
  if (const auto error = inventory::checkQuery(query)) {
    // Placeholders shift the positions in the query against those in the file.
    const bool isExact = parameters.empty() && error->position < query.size();
    throw errorAt(isExact ? queryStart + error->position : queryStart, error->message);
  }
  if (const auto error = inventory::checkQuery(start + query + "\n) r"))
    throw errorAt(queryStart, error->message);
}

RuleError Rule::errorAt(std::size_t position, const std::string& message) const {
  const auto end = text.begin() + static_cast<std::ptrdiff_t>(std::min(position, text.size()));
  return RuleError(file + ":" + std::to_string(std::count(text.begin(), end, '\n') + 1) + ": " + message);
}

}  // namespace host
