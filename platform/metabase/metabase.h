// A snapshot of an IIS 6 metabase, read from a MetaBase.xml or an export file ("Metabase Configuration
// File").
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "automation/object.h"
#include "os/file.h"
#include "platform/metabase/names.h"
#include "platform/metabase/schema.h"

namespace platform::metabase {

// The tree of nodes and their properties. Immutable, so any thread may read it. Paths and names are compared
// case-insensitively. Node and property ids are valid only for the snapshot that returned them.
class Metabase {
 public:
  using NodeId = std::uint32_t;
  using PropertyId = NameTable::Id;

  // A part of a well-formed file that is not valid in a metabase. The rest of the file is read normally.
  struct ParseWarning {
    std::size_t line;
    std::optional<NodeId> node;  // the node concerned, if any
    std::string_view property;   // of the node, as spelled by the snapshot; empty if none is concerned
    std::int32_t failureNumber;
    std::string reason;
  };

  // Reads a file. Throws Failure, with a number per cause, if the file cannot be read, is not XML in UTF-8 or
  // UTF-16, is truncated, or is not a metabase; the message names the file and the line. Anything else that
  // is wrong with it is listed in `warnings()`.
  static std::shared_ptr<const Metabase> load(const std::filesystem::path& file);

  // Parses bytes in memory, moved or copied. Messages use `name` as the file's name.
  static std::shared_ptr<const Metabase> parse(os::FileBytes bytes, std::string name);
  static std::shared_ptr<const Metabase> parse(std::string_view bytes, std::string name);

  Metabase(const Metabase&) = delete;
  Metabase& operator=(const Metabase&) = delete;

  // The node at "/". It always exists.
  NodeId root() const { return 0; }

  // The child with a name, or nullopt.
  std::optional<NodeId> child(NodeId parent, automation::TextView name) const;

  // The node at a path relative to `from`, without a leading "/"; the empty path is `from` itself. Returns
  // nullopt if there is no such node or if a path component is empty.
  std::optional<NodeId> find(NodeId from, automation::TextView path) const;

  // Children are in the order in which the file first mentions them.
  std::optional<NodeId> parent(NodeId node) const;
  std::optional<NodeId> firstChild(NodeId node) const;
  std::optional<NodeId> nextSibling(NodeId node) const;

  // The line of the node's element; 0 if the file only implies the node as an ancestor.
  std::size_t line(NodeId node) const { return nodes_[node].line; }

  // The last component of the node's path, and the whole path, as spelled in the file. UTF-8.
  std::string_view name(NodeId node) const;
  std::string path(NodeId node) const;

  // The name of the node's element. Of a node that the file only implies, the class that follows from its
  // place, as of the parents that a partial export lacks, or else "IIsConfigObject".
  std::string_view className(NodeId node) const;

  // The node's ADsPath if the server is called `server`: "IIS://server" for /LM, followed by the rest of the
  // path for nodes below it. UTF-8.
  std::string address(NodeId node, automation::TextView server) const;

  // The prefix of every message about a node: address, class and property, if any, as in
  // "IIS://WEB01/MSFTPSVC/1 (IIsFtpServer), MaxConnections". A single line.
  std::string location(NodeId node, automation::TextView server, std::string_view property = {}) const;

  // The id of a property name, or nullopt if neither the schema nor the file has it.
  std::optional<PropertyId> property(automation::TextView name) const;

  // A property's value: the node's own; else the inherited one; else the schema's default; else an empty
  // array if the property is multi-valued; else Null. If a <Custom> element and the schema disagree on the
  // type, the schema's is used if the value is compatible with it, else the element's. A flag is a Boolean,
  // IPSecurity an object. Status, ServerState and AppPoolState, which exist only while a server runs, are the
  // node's own value, else 2 (running) if the node starts automatically, else 4 (stopped). Throws Failure,
  // naming `server`, if the node's class does not have the property (0x8000500D), if the value does not match
  // its type or is longer than 1 MiB, or if the property is secured. A node's own value counts whatever its
  // class. For a node of no class, IIsConfigObject, every default counts except that of a text that is empty.
  automation::Variant read(NodeId node, PropertyId property, automation::TextView server) const;

  // A read that returned Null because nothing sets the property.
  struct UnsetRead {
    const Metabase* metabase = nullptr;  // null if there was none
    NodeId node = 0;
    std::string_view property = {};
  };
  // The last such read on this thread since the previous call.
  static UnsetRead takeUnsetRead();

  // The text of the node's own value, or nullopt. Not available for properties of type kFlags.
  std::optional<std::string_view> ownText(NodeId node, PropertyId property) const;

  // The warnings in the order of the file, at most 10000 and a last one with the number of the others: a
  // <Custom> element without a name, of an unknown type (the value cannot be read) or with an unknown
  // attribute (ignored); an element without a valid Location; misplaced text and elements; a duplicate
  // property or node (the first one in the file is used).
  const std::vector<ParseWarning>& warnings() const { return warnings_; }

  // A warning as a message that begins with the node's location, or with the file if no node is concerned,
  // and ends with the line.
  std::string describe(const ParseWarning& warning, automation::TextView server) const;

  // The file's name in messages.
  const std::string& file() const { return file_; }

  // Whether the file has nodes below a service of IIS but no element of a service, as an export of a single
  // site or pool. IIS 6 is the first version that writes such a file.
  bool isPartialExport() const;

  std::size_t nodeCount() const { return nodes_.size(); }

 private:
  // Offsets and lengths refer to `bytes_`. Siblings form a ring: the last child's nextSibling is the first
  // child.
  struct Node {
    NodeId parent;
    NodeId lastChild;
    NodeId nextSibling;
    NodeId valueAncestor;  // the nearest ancestor that has values
    std::uint32_t name;
    std::uint32_t nameLength;
    std::uint32_t firstValue;
    std::uint32_t valueCount;
    std::uint32_t classId;
    std::uint32_t line;  // 0 if the file only implies the node
  };

  // A node's own value. `key` combines the property's id with what a <Custom> element declares (see makeKey).
  // For parsed flags `text` holds the bits and `length` the offset of the text.
  struct Value {
    std::uint32_t key;
    std::uint32_t text;
    std::uint32_t length;
  };

  struct Slot {
    std::uint32_t hash;
    NodeId node;
  };

  // The context of a read, for messages.
  struct Reading {
    NodeId node;
    PropertyId property;
    automation::TextView server;
  };

  class Builder;

  Metabase(std::unique_ptr<char[]> bytes, std::size_t size, std::string file);

  template <typename View>
  std::optional<NodeId> findChild(NodeId parent, View name, std::uint32_t hash) const;

  std::string_view text(std::uint32_t offset, std::uint32_t length) const {
    return {bytes_.get() + offset, length};
  }
  const Value* ownValue(NodeId node, PropertyId property) const;
  const Value* effectiveValue(NodeId node, PropertyId property) const;
  Type typeOf(const Value* value, PropertyId property) const;
  bool isExcludedByClass(NodeId node, PropertyId property) const;
  bool isEmptyTextOfNoClass(NodeId node, PropertyId property) const;
  automation::Variant convert(const Reading& reading, Type type, std::string_view text) const;
  automation::Variant readFlag(const Reading& reading, const FlagProperty& flag) const;
  automation::Variant readState(const Reading& reading) const;
  [[noreturn]] void failRead(const Reading& reading, std::int32_t failureNumber, std::string_view why) const;
  [[noreturn]] void failValue(const Reading& reading, std::string_view text, std::string_view why) const;

  std::unique_ptr<char[]> bytes_;
  std::size_t size_;
  std::string file_;
  std::uint64_t serial_;  // unique within the process
  std::vector<ParseWarning> warnings_;
  std::vector<Node> nodes_;
  std::vector<Value> values_;
  std::vector<Slot> slots_;
  NameTable names_;
  NameTable classes_;
  bool fileSaysInherit_ = false;  // whether a <Custom> element has the INHERIT attribute
};

// Whether these bytes may be the start of a metabase file, judging by its two outermost elements, in any
// encoding. 4096 bytes suffice unless the file starts with a long comment.
bool looksLikeMetabase(std::string_view head);

}  // namespace platform::metabase
