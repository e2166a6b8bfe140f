#include "inventory/catalog/catalog.h"

#include "inventory/names.h"

namespace inventory {
namespace {

constexpr std::string_view kKinds[] = {"", "site", "directory", "pool", "extension", "application"};
constexpr std::string_view kNodeRoots[] = {"", "MSFTPSVC/", "MSFTPSVC/", "W3SVC/AppPools/", "", ""};
constexpr std::string_view kTypes[] = {"text", "integer", "real", "boolean", "time"};

bool isMadeOf(const Column& column, const std::string& property) {
  const std::string all = " " + folded(column.properties) + " ";
  return all.find(" " + property + " ") != all.npos;
}

}  // namespace

std::string_view wordFor(ObjectKind kind) {
  return kKinds[static_cast<std::size_t>(kind)];
}

ObjectKind objectKind(std::string_view word) {
  const auto found = std::ranges::find(kKinds, word);
  return found == std::end(kKinds) ? ObjectKind::kNone : static_cast<ObjectKind>(found - std::begin(kKinds));
}

std::string_view nodeRootOf(ObjectKind kind) {
  return kNodeRoots[static_cast<std::size_t>(kind)];
}

std::string_view wordFor(Type type) {
  return kTypes[static_cast<std::size_t>(type)];
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
