#include "inventory/object_registry.h"

#include "inventory/names.h"

namespace inventory {
namespace {

// Where the nodes of objects are: a key is what comes behind.
struct Root {
  ObjectKind kind;
  std::string_view path;
};
constexpr Root kRoots[] = {{ObjectKind::kSite, "MSFTPSVC/"},
                           {ObjectKind::kDirectory, "MSFTPSVC/"},
                           {ObjectKind::kPool, "W3SVC/AppPools/"}};

std::string_view rootOf(ObjectKind kind) {
  for (const Root& root : kRoots) {
    if (root.kind == kind) return root.path;
  }
  return {};
}

// A key of a directory: its path below the root of the directories, or its whole path.
std::string directoryKey(std::string_view path) {
  const std::string_view root = rootOf(ObjectKind::kDirectory);
  return std::string(sameName(path.substr(0, root.size()), root) ? path.substr(root.size()) : path);
}

std::string mapKey(ObjectKind kind, std::string_view key) {
  return static_cast<char>('0' + static_cast<int>(kind)) + folded(key);
}

Cell cellOf(const Table& table, Rows& row, std::string_view column) {
  const std::size_t at = table.find(column);
  return at < table.columns.size() ? row.cell(at) : Cell();
}

}  // namespace

std::string_view pathBelowServer(std::string_view address) {
  constexpr std::string_view kStart = "IIS://";
  if (!address.starts_with(kStart)) return {};
  const std::size_t slash = address.find('/', kStart.size());
  return slash == address.npos ? std::string_view() : address.substr(slash + 1);
}

ObjectKind kindOfRow(const Table& table, Rows& row) {
  if (table.kinds[1] == ObjectKind::kNone) return table.kinds[0];
  const bool isPool = table.isAbout(ObjectKind::kPool) && cellOf(table, row, kPoolColumn).has_value();
  return isPool ? ObjectKind::kPool : table.kinds[0];
}

ObjectRegistry::ObjectRegistry(std::int64_t collectionId, LineOf lineOf)
    : base_(collectionId << 32), lineOf_(std::move(lineOf)) {}

std::int64_t ObjectRegistry::objectOf(const Table& table, ObjectKind kind, Rows& row) {
  switch (kind) {
    case ObjectKind::kSite:
      return itemObject(kind, cellOf(table, row, kSiteColumn).value_or(""));
    case ObjectKind::kPool:
      return itemObject(kind, cellOf(table, row, kPoolColumn).value_or(""));
    case ObjectKind::kDirectory: {
      // Both are valid until the next row only.
      const Cell path = cellOf(table, row, kPathColumn), name = cellOf(table, row, kDirectoryColumn);
      return directoryObject(path.value_or(""), name.value_or(""),
                             cellOf(table, row, kSiteColumn).value_or(""));
    }
    case ObjectKind::kExtension: {
      const std::string_view name =
          row.cell(column("tblWSExtension", "Web service extension").column).value_or("");
      const std::int64_t found = find(kind, name);
      return found != 0 ? found : add(kind, std::string(name), 0);
    }
    case ObjectKind::kApplication: {
      // Several may have one name, so each row is about one of its own.
      const std::int64_t pool = find(ObjectKind::kPool, cellOf(table, row, kPoolColumn).value_or(""));
      return add(kind, std::string(row.cell(column("tblAppliedObject", "Object name").column).value_or("")),
                 pool);
    }
    case ObjectKind::kNone:
      break;
  }
  return 0;
}

std::int64_t ObjectRegistry::objectOf(const Problem& problem) const {
  const std::size_t table = findTable(problem.table);
  if (table < tables().size() && tables()[table].isAbout(ObjectKind::kDirectory) && !problem.node.empty()) {
    const std::int64_t directory = find(ObjectKind::kDirectory, directoryKey(pathBelowServer(problem.node)));
    if (directory != 0) return directory;
  }
  return problem.item.empty() ? 0 : find(problem.itemKind, problem.item);
}

const std::string& ObjectRegistry::itemOf(const ObjectInfo& object) const {
  static const std::string kNone;
  const ObjectInfo* each = &object;
  while (each->kind != itemKindOf(each->kind)) {
    if (each->parent == 0) return kNone;
    each = &this->object(each->parent);
  }
  return each->kind == ObjectKind::kNone ? kNone : each->key;
}

std::int64_t ObjectRegistry::add(ObjectKind kind, std::string key, std::int64_t parent) {
  ObjectInfo& object = objects_.emplace_back();
  object.id = base_ + static_cast<std::int64_t>(objects_.size());
  object.kind = kind;
  object.parent = parent;
  if (const std::string_view root = rootOf(kind); !root.empty()) {
    object.node = "/LM/" + std::string(root) + key;
    if (lineOf_) object.line = lineOf_(object.node);
  }
  byKey_.emplace(mapKey(kind, key), object.id);
  object.key = std::move(key);
  return object.id;
}

std::int64_t ObjectRegistry::find(ObjectKind kind, std::string_view key) const {
  const auto found = byKey_.find(mapKey(kind, key));
  return found == byKey_.end() ? 0 : found->second;
}

std::int64_t ObjectRegistry::itemObject(ObjectKind kind, std::string_view key) {
  if (key.empty()) return 0;
  const std::int64_t found = find(kind, key);
  return found != 0 ? found : add(kind, std::string(key), 0);
}

// A directory belongs to the one above it, or else to its site.
std::int64_t ObjectRegistry::directoryObject(std::string_view parentPath, std::string_view name,
                                             std::string_view site) {
  const std::string_view path = pathBelowServer(parentPath);
  if (path.empty()) return 0;
  std::string parentKey = directoryKey(path);
  std::string key = parentKey + "/" + std::string(name);
  if (const std::int64_t found = find(ObjectKind::kDirectory, key); found != 0) return found;
  std::int64_t parent = find(ObjectKind::kDirectory, parentKey);
  if (parent == 0) parent = find(ObjectKind::kSite, site);
  return add(ObjectKind::kDirectory, std::move(key), parent);
}

}  // namespace inventory
