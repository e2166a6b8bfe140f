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

std::string namesOf(std::span<const InsertColumn> columns) {
  return joined(columns, [](const InsertColumn& column) { return quotedName(column.name); });
}

std::string_view Dialect::typeName(Type type) const {
  constexpr std::string_view kNames[][2] = {{"text", "text collate \"C\""},
                                            {"integer", "bigint"},
                                            {"real", "double precision"},
                                            {"integer", "boolean"},
                                            {"text", "text collate \"C\""}};
  return kNames[static_cast<std::size_t>(type)][isPostgres() ? 1 : 0];
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
