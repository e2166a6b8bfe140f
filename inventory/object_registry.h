// The objects of a collection, derived from its rows.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "inventory/model.h"
#include "inventory/server_data.h"

namespace inventory {

// Adds an object for the first row about it. Ids are the collection's id * 2^32 plus a number from 1 in the
// order of discovery.
class ObjectRegistry {
 public:
  using LineOf = std::function<std::int64_t(const std::string& node)>;

  ObjectRegistry(std::int64_t collectionId, LineOf lineOf);
  ObjectRegistry(const ObjectRegistry&) = delete;
  ObjectRegistry& operator=(const ObjectRegistry&) = delete;

  // The object of a row, added if it is new; 0 if the row names none.
  std::int64_t objectOf(const Table& table, ObjectKind kind, Rows& row);

  // The object of a problem: the directory at its node, else its site or pool; 0 if there is none.
  std::int64_t objectOf(const Problem& problem) const;

  std::span<ObjectInfo> objects() { return objects_; }
  const ObjectInfo& object(std::int64_t id) const { return objects_[static_cast<std::uint32_t>(id) - 1]; }

  // The key of an object's site or pool.
  const std::string& itemOf(const ObjectInfo& object) const;

 private:
  struct Key {
    ObjectKind kind;
    std::string_view text;
  };
  // Finds an object's index by kind and key, ignoring case.
  struct Hash {
    using is_transparent = void;
    const std::vector<ObjectInfo>* objects;
    std::size_t operator()(const Key& key) const;
    std::size_t operator()(std::uint32_t at) const {
      return (*this)(Key{(*objects)[at].kind, (*objects)[at].key});
    }
  };
  struct Equal {
    using is_transparent = void;
    const std::vector<ObjectInfo>* objects;
    bool operator()(const Key& key, std::uint32_t at) const;
    bool operator()(std::uint32_t at, const Key& key) const { return (*this)(key, at); }
    bool operator()(std::uint32_t left, std::uint32_t right) const { return left == right; }
  };

  std::int64_t add(ObjectKind kind, std::string_view key, std::int64_t parent);
  std::int64_t find(ObjectKind kind, std::string_view key) const;
  std::int64_t itemObject(ObjectKind kind, std::string_view key);
  std::int64_t directoryObject(std::string_view parentPath, std::string_view name, std::string_view site);

  const std::int64_t base_;
  const LineOf lineOf_;
  std::vector<ObjectInfo> objects_;
  std::unordered_set<std::uint32_t, Hash, Equal> byKey_;
  mutable std::size_t last_ = 0;  // index of the object found last
  std::string key_;               // of a directory
  // The parent that was found last, for a path and a site.
  std::string parentPath_, parentSite_;
  std::int64_t parent_ = 0;
};

// The kind of object that a row of a table is about.
ObjectKind kindOfRow(const Table& table, Rows& row);

// The path of a node below its server: of "IIS://WEB01/MSFTPSVC/1" it is "MSFTPSVC/1". Empty for another
// text.
std::string_view pathBelowServer(std::string_view address);

}  // namespace inventory
