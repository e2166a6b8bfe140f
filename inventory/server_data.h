// The data of a collection in memory.
#pragma once

#include <cstdint>
#include <map>
#include <memory_resource>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "inventory/model.h"

namespace inventory {

// An object: the subject of rows.
struct ObjectInfo {
  std::int64_t id = 0;  // the collection's id * 2^32 plus a number from 1
  ObjectKind kind = ObjectKind::kNone;
  std::string key;          // identifier, path below the service, or name
  std::int64_t parent = 0;  // 0 for none
  std::int64_t line = 0;    // in the file; 0 if it is unknown
  std::string incomplete;   // views that may lack rows of it, as "|view|"

  // Its path in the metabase; empty if it is unknown.
  std::string node() const {
    const std::string_view root = nodeRootOf(kind);
    return root.empty() ? std::string() : "/LM/" + std::string(root) + key;
  }
};

// The lower halves of ids from this number on belong to rows without an object and to duplicates.
inline constexpr std::int64_t kFirstExtra = std::int64_t{1} << 31;

// A row of one of tables(). Copies are cheap, and valid as long as the data.
class DataRow {
 public:
  DataRow(const Table& table, std::int64_t id, std::uint64_t unknown, const char* cells)
      : table_(&table), id_(id), unknown_(unknown), cells_(cells) {}

  const Table& table() const { return *table_; }
  // The id of its object, or an extra id if it has none or is a duplicate.
  std::int64_t id() const { return id_; }
  // The object; 0 for none.
  std::int64_t objectId() const { return (id_ & 0xFFFFFFFF) < kFirstExtra ? id_ : 0; }
  // The value of a column; nullopt for null.
  Cell cell(std::size_t column) const;
  Cell cell(ColumnRef column) const { return cell(column.column); }
  // The value of a column; empty for null.
  std::string text(std::size_t column) const { return std::string(cell(column).value_or("")); }
  std::string text(ColumnRef column) const { return text(column.column); }
  bool isUnknown(std::size_t column) const { return (unknown_ >> column & 1U) != 0; }
  bool isUnknown(ColumnRef column) const { return isUnknown(column.column); }
  bool hasUnknown() const { return unknown_ != 0; }

 private:
  const Table* table_;
  std::int64_t id_;
  std::uint64_t unknown_;  // a bit for each column
  const char* cells_;      // each cell is '+' and the value, or '-' for null, and a NUL character
};

// The data of one collection.
class ServerData {
 public:
  explicit ServerData(CollectionInfo info);

  const CollectionInfo& info() const { return info_; }
  const std::string& server() const { return info_.server; }

  // In the order of discovery.
  std::span<const ObjectInfo> objects() const { return objects_; }
  // Null if there is no object with the id.
  const ObjectInfo* object(std::int64_t id) const;

  // The rows of a table, given by its index in tables(), in order of collection.
  std::size_t rowCount(std::size_t table) const { return rows_[table].size(); }
  DataRow row(std::size_t table, std::size_t at) const { return rows_[table][at]; }
  // Those about an object.
  std::vector<DataRow> rowsOf(std::size_t table, std::int64_t object) const;

  std::span<const Problem> problems() const { return problems_; }
  // The object of a problem, given by its index; 0 for none.
  std::int64_t problemObject(std::size_t at) const { return problemObjects_[at]; }

  // The messages of problems that explain unknown cells or missing rows of an object in a table, without
  // duplicates.
  std::vector<std::string> reasons(std::string_view table, std::int64_t object) const;
  bool hasReasons(std::string_view table, std::int64_t object) const;

  // Whether the collection covers a table's rows about an object; 0 means any object.
  bool isCollected(std::string_view table, ObjectKind kind, std::int64_t object = 0) const;

  // Builds the data: add objects and rows in the order of ids, then problems.
  void addObject(ObjectInfo object);
  void addRow(std::size_t table, std::int64_t id, std::string_view notKnown, std::span<const Cell> cells);
  void addProblem(Problem problem, std::int64_t about);

 private:
  CollectionInfo info_;
  std::vector<ObjectInfo> objects_;
  std::vector<std::vector<DataRow>> rows_;  // by table, in the order of their ids
  std::vector<Problem> problems_;
  std::vector<std::int64_t> problemObjects_;
  // The places of problems by table and object, 0 for every object; of a directory's also under its site.
  std::map<std::pair<std::string, std::int64_t>, std::vector<std::size_t>> reasons_;
  std::pmr::monotonic_buffer_resource cells_;
};

}  // namespace inventory
