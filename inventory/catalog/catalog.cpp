#include "inventory/catalog/catalog.h"

#include "inventory/names.h"

namespace inventory {
namespace {

template <typename Value, std::size_t kCount>
std::string_view wordOf(const std::pair<std::string_view, Value> (&words)[kCount], Value value) {
  for (const auto& [word, each] : words) {
    if (each == value) return word;
  }
  return {};
}

bool isMadeOf(const Column& column, const std::string& property) {
  std::string_view rest = column.properties;
  while (!rest.empty()) {
    if (folded(declarations::take(rest, ' ')) == property) return true;
  }
  return false;
}

}  // namespace

std::string_view wordFor(ObjectKind kind) {
  return wordOf(declarations::kKinds, kind);
}

ObjectKind objectKind(std::string_view word) {
  for (const auto& [text, kind] : declarations::kKinds) {
    if (text == word) return kind;
  }
  return ObjectKind::kNone;
}

std::string_view wordFor(Type type) {
  return wordOf(declarations::kTypes, type);
}

std::vector<std::size_t> columnsMadeOf(const Table& table, ObjectKind kind, std::string_view property) {
  const std::string wanted = folded(property);
  std::vector<std::size_t> made, all;
  for (std::size_t at = 0; at < table.columns.size(); ++at) {
    const Column& column = table.columns[at];
    if (column.properties == "-" || (column.onlyOf != ObjectKind::kNone && column.onlyOf != kind)) continue;
    all.push_back(at);
    if (!wanted.empty() && isMadeOf(column, wanted)) made.push_back(at);
  }
  return made.empty() ? all : made;
}

}  // namespace inventory
