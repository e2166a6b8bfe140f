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
#include "platform/metabase/file.h"
#include "platform/metabase/names.h"
#include "platform/metabase/schema.h"

namespace platform::metabase {

// The tree of nodes with their properties, unchanging from the moment it is made, so that any thread may read
// it. Paths and names are compared without regard to case. A node is told by a number, which is good for the
// snapshot that gave it and no other.
class Metabase {
 public:
  using NodeId = std::uint32_t;
  using PropertyId = NameTable::Id;

  // Something in a file that is XML and has no place in a metabase. It costs what it tells and nothing else.
  struct ParseWarning {
    std::size_t line;
    std::optional<NodeId> node;  // where it belongs to one
    std::string_view property;   // of the node, as the snapshot spells it; empty where it is about none
    std::int32_t failureNumber;
    std::string reason;
  };

  // Reads a file. Fails, with a number for each cause, where the file cannot be read, where it is no XML in
  // UTF-8 or UTF-16, or cut off, and where it is no metabase; the message names the file and the line. What
  // else is wrong with it stands in `warnings()`.
  static std::shared_ptr<const Metabase> load(const std::filesystem::path& file);

  // The same from bytes in memory, which are taken over or copied. `name` stands for the file in messages.
  static std::shared_ptr<const Metabase> parse(FileBytes bytes, std::string name);
  static std::shared_ptr<const Metabase> parse(std::string_view bytes, std::string name);

  Metabase(const Metabase&) = delete;
  Metabase& operator=(const Metabase&) = delete;

  // The node at "/". It always exists.
  NodeId root() const { return 0; }

  // A child by its name, or nothing.
  std::optional<NodeId> child(NodeId parent, automation::TextView name) const;

  // The node at a path below another one, its pieces divided by "/" and none before the first; the empty
  // path is the node itself. Nothing where there is no such node, or where a piece is empty.
  std::optional<NodeId> find(NodeId from, automation::TextView path) const;

  // The tree. Children stand in the order in which the file names them first.
  std::optional<NodeId> parent(NodeId node) const;
  std::optional<NodeId> firstChild(NodeId node) const;
  std::optional<NodeId> nextSibling(NodeId node) const;

  // The line of the file at which the node begins; 0 for a node that the file only implies.
  std::size_t line(NodeId node) const { return nodes_[node].line; }

  // The last piece of the node's path, and the whole path, as the file spells them. UTF-8.
  std::string_view name(NodeId node) const;
  std::string path(NodeId node) const;

  // The node's class: its element's name, or "IIsConfigObject" for a node that the file only implies.
  std::string_view className(NodeId node) const;

  // Where a node is for whoever reaches this snapshot as `server`: "IIS://server" for /LM, and for what is
  // below it with the rest of the path. UTF-8.
  std::string address(NodeId node, automation::TextView server) const;

  // What every failure that concerns a node begins with: address, class and, where it is about one, the
  // property. "IIS://WEB01/MSFTPSVC/1 (IIsFtpServer), MaxConnections". In one line.
  std::string location(NodeId node, automation::TextView server, std::string_view property = {}) const;

  // The number of a property's name, or nothing where neither the schema nor the file knows it.
  std::optional<PropertyId> property(automation::TextView name) const;

  // A property's value, for whoever reaches this snapshot as `server`, which failures name: the node's own,
  // else, unless its class never has the property (0x8000500D), one inherited, else the schema's default,
  // else an array without elements for a multi-valued property, else Null. Where a <Custom> element gives a
  // property another type than the schema does, the schema's counts if the value can be read so, else the
  // element's. A flag reads as a Boolean, IPSecurity as an object. Status, ServerState and AppPoolState,
  // which exist only while a server runs, are what the node itself holds, else 2 (running) where it starts by
  // itself, else 4 (stopped). Fails where the value is not of its type, and where the property is secured.
  automation::Variant read(NodeId node, PropertyId property, automation::TextView server) const;

  // The text of a property that the node itself holds, or nothing. Not for properties of flags.
  std::optional<std::string_view> ownText(NodeId node, PropertyId property) const;

  // The odd places of the file in their order, at most the first 10000 and a word about the others: a
  // <Custom> element without a name, or of an unknown type, which makes the value unreadable, or with an
  // unknown attribute, which is ignored; an element without a Location or with one that is no path; text and
  // elements where none belong; a property or a node that stands twice, of which the first in the file
  // counts.
  const std::vector<ParseWarning>& warnings() const { return warnings_; }

  // An warning as a message: it begins with its place, as whoever reaches this snapshot as `server` has it,
  // else with the file, and tells the line.
  std::string describe(const ParseWarning& warning, automation::TextView server) const;

  // What messages call the file.
  const std::string& file() const { return file_; }

  std::size_t nodeCount() const { return nodes_.size(); }

 private:
  // Offsets and lengths are of `bytes_`. Siblings form a ring, from the last child on to the first.
  struct Node {
    NodeId parent;
    NodeId lastChild;
    NodeId nextSibling;
    NodeId valueAncestor;  // the nearest node above that holds values, so that long chains of empty ones cost
                           // nothing
    std::uint32_t name;
    std::uint32_t nameLength;
    std::uint32_t firstValue;
    std::uint32_t valueCount;
    std::uint32_t classId;
    std::uint32_t line;  // 0 for a node that the file only implies
  };

  // A property that a node holds. `key` is the name's number and what a <Custom> element says. Flags that
  // could be read stand as their bits in `text`, and the text's offset in `length`.
  struct Value {
    std::uint32_t key;
    std::uint32_t text;
    std::uint32_t length;
  };

  struct Slot {
    std::uint32_t hash;
    NodeId node;
  };

  // What is being read, and for whom.
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
  automation::Variant convert(const Reading& reading, Type type, std::string_view text) const;
  automation::Variant readFlag(const Reading& reading, const FlagProperty& flag) const;
  automation::Variant readState(const Reading& reading) const;
  [[noreturn]] void failRead(const Reading& reading, std::int32_t failureNumber, std::string_view why) const;
  [[noreturn]] void failValue(const Reading& reading, std::string_view text, std::string_view why) const;

  std::unique_ptr<char[]> bytes_;
  std::size_t size_;
  std::string file_;
  std::uint64_t serial_;  // told apart from every other snapshot of the process
  std::vector<ParseWarning> warnings_;
  std::vector<Node> nodes_;
  std::vector<Value> values_;
  std::vector<Slot> slots_;
  NameTable names_;
  NameTable classes_;
  bool fileSaysInherit_ = false;  // whether any value does, besides what the schema says
};

// Whether this may be the beginning of a metabase file, by its two outermost elements, in whatever encoding.
// 4096 bytes are enough for every file but one that begins with a long comment.
bool looksLikeMetabase(std::string_view head);

}  // namespace platform::metabase
