#include "inventory/object_registry.h"

#include <algorithm>

#include "inventory/names.h"

namespace inventory {
namespace {

// A key of a directory: its path below the root of the directories, or its whole path.
std::string_view directoryKey(std::string_view path) {
  const std::string_view root = nodeRootOf(ObjectKind::kDirectory);
  return sameName(path.substr(0, root.size()), root) ? path.substr(root.size()) : path;
}

// Indexes of the columns that identify a row's object; the number of columns if missing.
struct Places {
  std::size_t site = 0, pool = 0, path = 0, directory = 0;
};

const Places& placesOf(const Table& table) {
  static const std::vector<Places> kAll = [] {
    std::vector<Places> all;
    for (const Table& each : tables())
      all.push_back({each.find(kSiteColumn), each.find(kPoolColumn), each.find(kPathColumn),
                     each.find(kDirectoryColumn)});
    return all;
  }();
  return kAll[static_cast<std::size_t>(&table - tables().data())];
}

std::string_view textAt(const Table& table, Rows& row, std::size_t place) {
  return place < table.columns.size() ? row.cell(place).value_or("") : std::string_view();
}

}  // namespace

std::string_view pathBelowServer(std::string_view address) {
  constexpr std::string_view kStart = "IIS://";
  if (!address.starts_with(kStart)) return {};
  const std::size_t slash = address.find('/', kStart.size());
  return slash == std::string_view::npos ? std::string_view() : address.substr(slash + 1);
}

ObjectKind kindOfRow(const Table& table, Rows& row) {
  if (table.kinds[1] == ObjectKind::kNone) return table.kinds[0];
  const std::size_t pool = placesOf(table).pool;
  const bool isPool = pool < table.columns.size() && row.cell(pool).has_value();
  return isPool ? ObjectKind::kPool : table.kinds[0];
}

std::size_t ObjectRegistry::Hash::operator()(const Key& key) const {
  const bool isAscii = std::ranges::all_of(key.text, [](char c) { return static_cast<signed char>(c) >= 0; });
  if (!isAscii) return std::hash<std::string>()(folded(key.text)) + static_cast<std::size_t>(key.kind);
  // FNV-1a of the folded name.
  std::size_t hash = 0xcbf29ce484222325U + static_cast<std::size_t>(key.kind);
  for (const char c : key.text)
    hash = (hash ^ static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c + 0x20 : c)) * 0x100000001b3U;
  return hash;
}

bool ObjectRegistry::Equal::operator()(const Key& key, std::uint32_t at) const {
  const ObjectInfo& object = (*objects)[at];
  return object.kind == key.kind && sameName(object.key, key.text);
}

ObjectRegistry::ObjectRegistry(std::int64_t collectionId, LineOf lineOf)
    : base_(collectionId << 32), lineOf_(std::move(lineOf)), byKey_(0, Hash{&objects_}, Equal{&objects_}) {}

std::int64_t ObjectRegistry::objectOf(const Table& table, ObjectKind kind, Rows& row) {
  const Places& places = placesOf(table);
  switch (kind) {
    case ObjectKind::kSite:
      return itemObject(kind, textAt(table, row, places.site));
    case ObjectKind::kPool:
      return itemObject(kind, textAt(table, row, places.pool));
    case ObjectKind::kDirectory: {
      return directoryObject(textAt(table, row, places.path), textAt(table, row, places.directory),
                             textAt(table, row, places.site));
    }
    case ObjectKind::kExtension: {
      const std::string_view name =
          row.cell(column("tblWSExtension", "Web service extension").column).value_or("");
      const std::int64_t found = find(kind, name);
      return found != 0 ? found : add(kind, name, 0);
    }
    case ObjectKind::kApplication: {
      // Several may share a name, so each row has its own object.
      const std::int64_t pool = find(ObjectKind::kPool, textAt(table, row, places.pool));
      return add(kind, row.cell(column("tblAppliedObject", "Object name").column).value_or(""), pool);
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

std::int64_t ObjectRegistry::add(ObjectKind kind, std::string_view key, std::int64_t parent) {
  ObjectInfo& object = objects_.emplace_back();
  last_ = objects_.size() - 1;
  object.id = base_ + static_cast<std::int64_t>(objects_.size());
  object.kind = kind;
  object.key = key;
  object.parent = parent;
  if (const std::string node = object.node(); !node.empty() && lineOf_) object.line = lineOf_(node);
  // Applications are not looked up, because many may share a name.
  if (kind != ObjectKind::kApplication) byKey_.insert(static_cast<std::uint32_t>(last_));
  return object.id;
}

// Rows are mostly about the object of the previous row, or the next one.
std::int64_t ObjectRegistry::find(ObjectKind kind, std::string_view key) const {
  for (std::size_t at = last_; at < objects_.size() && at < last_ + 2; ++at) {
    if (objects_[at].kind == kind && objects_[at].key == key) return objects_[last_ = at].id;
  }
  const auto found = byKey_.find(Key{kind, key});
  return found == byKey_.end() ? 0 : objects_[last_ = *found].id;
}

std::int64_t ObjectRegistry::itemObject(ObjectKind kind, std::string_view key) {
  if (key.empty()) return 0;
  const std::int64_t found = find(kind, key);
  return found != 0 ? found : add(kind, key, 0);
}

// A directory belongs to the one above it, or else to its site.
std::int64_t ObjectRegistry::directoryObject(std::string_view parentPath, std::string_view name,
                                             std::string_view site) {
  const std::string_view path = pathBelowServer(parentPath);
  if (path.empty()) return 0;
  const std::string_view parentKey = directoryKey(path);
  key_.assign(parentKey).append("/").append(name);
  if (const std::int64_t found = find(ObjectKind::kDirectory, key_); found != 0) return found;
  // Directories of one parent follow each other.
  if (parentPath_ != path || parentSite_ != site) {
    parentPath_ = path;
    parentSite_ = site;
    parent_ = find(ObjectKind::kDirectory, parentKey);
    if (parent_ == 0) parent_ = find(ObjectKind::kSite, site);
  }
  return add(ObjectKind::kDirectory, key_, parent_);
}

}  // namespace inventory
