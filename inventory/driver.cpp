#include "inventory/driver.h"

#include <charconv>

namespace inventory {
namespace {

std::string quoted(std::string_view text, char quote) {
  std::string all(1, quote);
  for (const char c : text) all.append(c == quote ? 2 : 1, c);
  return all + quote;
}

}  // namespace

std::string quotedName(std::string_view name) {
  return quoted(name, '"');
}

std::string quotedText(std::string_view text) {
  return quoted(text, '\'');
}

std::string Dialect::table(std::string_view name) const {
  return (schema_.empty() ? "" : quotedName(schema_) + ".") + quotedName(name);
}

std::string_view Dialect::typeName(Type type) const {
  switch (type) {
    case Type::kInteger:
      return isPostgres() ? "bigint" : "integer";
    case Type::kReal:
      return isPostgres() ? "double precision" : "real";
    case Type::kBoolean:
      return isPostgres() ? "boolean" : "integer";
    case Type::kText:
    case Type::kTime:
      break;
  }
  return isPostgres() ? "text collate \"C\"" : "text";
}

std::int64_t Cursor::number(std::size_t column) {
  const std::string_view text = cell(column).value_or("");
  std::int64_t value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

std::string Session::value(const std::string& sql, const Parameters& parameters) {
  const auto rows = query(sql, parameters);
  return rows->next() ? rows->text(0) : "";
}

}  // namespace inventory
