// Builds a snapshot from the bytes of a file.
#include <algorithm>
#include <pugixml.hpp>
#include <utility>

#include "platform/metabase/failures.h"
#include "platform/metabase/file.h"
#include "platform/metabase/metabase.h"
#include "platform/metabase/metabase_internal.h"
#include "platform/metabase/values.h"
#include "platform/metabase/xml.h"

namespace platform::metabase {
namespace {

constexpr std::size_t kMaxPathLength = 32767;  // in UTF-16 units; the limit of Windows
constexpr std::size_t kMaxWarnings = 10000;

// The classes of nodes that the file only implies, by the class of the parent.
struct ImpliedClass {
  std::string_view parent;
  std::string_view name;  // of the node; "#" is any number, "" any name
  std::string_view className;
};
constexpr ImpliedClass kImpliedClasses[] = {
    {"IIsComputer", "MSFTPSVC", "IIsFtpService"}, {"IIsFtpService", "#", "IIsFtpServer"},
    {"IIsFtpServer", "ROOT", "IIsFtpVirtualDir"}, {"IIsFtpVirtualDir", "", "IIsFtpVirtualDir"},
    {"IIsComputer", "W3SVC", "IIsWebService"},    {"IIsWebService", "#", "IIsWebServer"},
    {"IIsWebServer", "ROOT", "IIsWebVirtualDir"}, {"IIsWebService", "AppPools", "IIsApplicationPools"}};
constexpr std::string_view kUnknownNamePrefix = "UnknownName_";

// The attributes of a value ("METADATA_RECORD").
constexpr std::uint32_t kAttributeInherit = 0x00000001;
constexpr std::uint32_t kAttributeSecure = 0x00000004;
constexpr Flag kAttributes[] = {{"INHERIT", kAttributeInherit},
                                {"SECURE", kAttributeSecure},
                                {"NO_ATTRIBUTES", 0},
                                {"PARTIAL_PATH", 0},
                                {"REFERENCE", 0},
                                {"VOLATILE", 0},
                                {"ISINHERITED", 0},
                                {"INSERT_PATH", 0},
                                {"LOCAL_MACHINE_ONLY", 0},
                                {"NON_SECURE_ONLY", 0},
                                {"DONT_REPLICATE", 0}};

// Normalizes line ends and resolves references, but keeps white space in values: a line break separates
// values.
constexpr unsigned kParseOptions = pugi::parse_escapes | pugi::parse_eol;

}  // namespace

class Metabase::Builder {
 public:
  explicit Builder(Metabase& metabase)
      : metabase_(metabase), lines_({metabase.bytes_.get(), metabase.size_}) {}

  void build() {
    validateXml({metabase_.bytes_.get(), metabase_.size_}, metabase_.file_);
    {
      pugi::xml_document document;
      const pugi::xml_parse_result parsed = document.load_buffer_inplace(
          metabase_.bytes_.get(), metabase_.size_, kParseOptions, pugi::encoding_utf8);
      if (parsed.status == pugi::status_out_of_memory) throw std::bad_alloc();
      if (!parsed) {
        reject(number::kNotXml, lines_.lineAt(static_cast<std::size_t>(parsed.offset)),
               std::string("not XML: ") + parsed.description());
      }
      readDocument(document);
    }
    // Parents precede their children in `nodes`.
    std::vector<Node>& nodes = metabase_.nodes_;
    for (NodeId node = 1; node < nodes.size(); ++node) {
      const NodeId parentNode = nodes[node].parent;
      nodes[node].valueAncestor =
          nodes[parentNode].valueCount > 0 ? parentNode : nodes[parentNode].valueAncestor;
      if (nodes[node].line == 0) nodes[node].classId = metabase_.classes_.enter(impliedClass(node));
    }
    // The document's memory is free by now. Small excess capacity is not worth a copy.
    if (nodes.capacity() / 4 > nodes.size() / 3) nodes.shrink_to_fit();
    if (metabase_.values_.capacity() / 4 > metabase_.values_.size() / 3) metabase_.values_.shrink_to_fit();
    std::stable_sort(metabase_.warnings_.begin(), metabase_.warnings_.end(),
                     [](const ParseWarning& a, const ParseWarning& b) { return a.line < b.line; });
    if (furtherWarnings_ > 0) {
      metabase_.warnings_.back().reason = "further warnings: " + std::to_string(furtherWarnings_ + 1);
    }
  }

 private:
  std::string_view impliedClass(NodeId node) const {
    const NodeId parentNode = metabase_.nodes_[node].parent;
    const std::string_view name = metabase_.name(node);
    if (parentNode == metabase_.root() && equalFolded(name, std::string_view("LM"))) return "IIsComputer";
    const bool isNumber = name.find_first_not_of("0123456789") == std::string_view::npos;
    for (const ImpliedClass& each : kImpliedClasses) {
      if (!equalFolded(metabase_.className(parentNode), each.parent)) continue;
      if (each.name.empty() || (each.name == "#" ? isNumber : equalFolded(name, each.name)))
        return each.className;
    }
    return kNoClass;
  }

  [[noreturn]] void reject(std::int32_t failureNumber, std::size_t line, const std::string& what) const {
    fail(failureNumber, metabase_.file_ + ", line " + std::to_string(line) + ": " + what);
  }

  void addWarning(std::size_t line, std::int32_t failureNumber, std::string reason,
                  std::optional<NodeId> node = std::nullopt, std::string_view property = {}) {
    if (metabase_.warnings_.size() <= kMaxWarnings) {
      metabase_.warnings_.push_back({line, node, property, failureNumber, std::move(reason)});
    } else {
      ++furtherWarnings_;
    }
  }

  // Reports misplaced text or a misplaced element.
  void addStray(const pugi::xml_node& node, const char* outer, std::optional<NodeId> owner = std::nullopt) {
    const bool element = node.type() == pugi::node_element;
    addWarning(lineOf(node), number::kBadElement,
               (element ? "unexpected element " + quoteForMessage(node.name()) : "unexpected text") +
                   " inside " + outer,
               owner);
  }

  std::size_t lineOf(const pugi::xml_node& node) const {
    return lines_.lineAt(static_cast<std::size_t>(std::max<std::ptrdiff_t>(node.offset_debug(), 0)));
  }

  std::uint32_t offsetOf(const char* text) const {
    const char* const begin = metabase_.bytes_.get();
    const bool inside = text >= begin && text < begin + metabase_.size_;
    return inside ? static_cast<std::uint32_t>(text - begin) : 0;
  }

  void readDocument(const pugi::xml_document& document) {
    const pugi::xml_node configuration = document.document_element();
    if (localName(configuration.name()) != "configuration") {
      reject(number::kAnotherKind, lineOf(configuration),
             "not a metabase: the root element is " + quoteForMessage(configuration.name()) +
                 ", expected \"configuration\"");
    }
    bool found = false;
    for (const pugi::xml_node& part : configuration.children()) {
      if (localName(part.name()) != "MBProperty") {
        addStray(part, "\"configuration\"");
        continue;
      }
      if (!found) addRoot(part);
      found = true;
      for (const pugi::xml_node& element : part.children()) {
        if (element.type() == pugi::node_element) {
          readElement(element);
        } else {
          addStray(element, "\"MBProperty\"");
        }
      }
    }
    if (!found) {
      reject(number::kAnotherKind, lineOf(configuration),
             "not a metabase: \"configuration\" has no element \"MBProperty\"");
    }
  }

  // Reserves memory for all nodes and values and adds the root node.
  void addRoot(const pugi::xml_node& part) {
    std::size_t nodes = 1;
    std::size_t values = 0;
    for (const pugi::xml_node& element : part.children()) {
      ++nodes;
      for (auto attribute = element.first_attribute(); attribute; attribute = attribute.next_attribute())
        ++values;
      for (auto custom = element.first_child(); custom; custom = custom.next_sibling()) ++values;
    }
    metabase_.nodes_.reserve(nodes + nodes / 16 + 8);
    metabase_.values_.reserve(values);
    std::size_t capacity = 16;
    while (capacity * 3 < nodes * 4) capacity *= 2;
    metabase_.slots_.assign(capacity, Slot{0, kNoNode});
    unclassified_ = metabase_.classes_.enter(kNoClass);
    metabase_.nodes_.push_back(Node{kNoNode, kNoNode, kNoNode, kNoNode, 0, 0, 0, 0, unclassified_, 0});
  }

  void readElement(const pugi::xml_node& element) {
    const std::size_t line = lineOf(element);
    const pugi::xml_attribute location = element.attribute("Location");
    const std::string_view place = location.value();
    // IIS_Global, which describes the file.
    if (place == ".") return;
    if (!location) {
      addWarning(line, number::kBadElement,
                 "the element " + quoteForMessage(element.name()) + " has no Location");
      return;
    }
    if (const char* const wrong = pathError(place)) {
      addWarning(
          line, number::kBadLocation,
          "the Location " + quoteForMessage(place) + " of " + quoteForMessage(element.name()) + " " + wrong);
      return;
    }
    const NodeId node = enterPath(place, offsetOf(location.value()));
    Node& entered = metabase_.nodes_[node];
    if (entered.line != 0) {
      addWarning(line, number::kDuplicatePath,
                 "duplicate node: the element on line " + std::to_string(entered.line) + " is used", node);
      return;
    }
    entered.line = static_cast<std::uint32_t>(line);
    entered.classId = metabase_.classes_.enter(localName(element.name()));
    // An earlier Location may have spelled the name differently.
    const std::size_t name = place.rfind('/') + 1;
    entered.name = offsetOf(location.value()) + static_cast<std::uint32_t>(name);
    entered.nameLength = static_cast<std::uint32_t>(place.size() - name);
    entered.firstValue = static_cast<std::uint32_t>(metabase_.values_.size());
    readValues(element, node);
    sortValues(node, line);
  }

  // Why this is not the path of a node; null if it is.
  static const char* pathError(std::string_view place) {
    if (place.empty() || place.front() != '/') return "does not begin with \"/\"";
    if (place.size() == 1) return nullptr;
    if (place.back() == '/' || place.find("//") != std::string_view::npos) return "has an empty component";
    if (place.size() > kMaxPathLength && automation::fromUtf8(place).size() > kMaxPathLength) {
      return "is longer than 32767 characters";
    }
    return nullptr;
  }

  // Finds or adds the node at a path and its ancestors.
  NodeId enterPath(std::string_view place, std::uint32_t offset) {
    if (place.size() == 1) return metabase_.root();
    const auto step = [&](NodeId parentNode, std::string_view piece, std::size_t end) {
      const std::uint32_t hash = nodeHash(parentNode, foldedHash(piece));
      const auto found = metabase_.findChild(parentNode, piece, hash);
      // Without the leading slash.
      const auto start = static_cast<std::uint32_t>(offset + 1 + end - piece.size());
      return found ? *found : addNode(parentNode, start, static_cast<std::uint32_t>(piece.size()), hash);
    };
    return *pathCache_.follow(metabase_.root(), place.substr(1),
                              [&](auto... each) { return std::optional(step(each...)); });
  }

  NodeId addNode(NodeId parentNode, std::uint32_t nameOffset, std::uint32_t nameLength, std::uint32_t hash) {
    std::vector<Node>& nodes = metabase_.nodes_;
    const auto node = static_cast<NodeId>(nodes.size());
    nodes.push_back(Node{parentNode, kNoNode, node, kNoNode, nameOffset, nameLength, 0, 0, unclassified_, 0});
    const NodeId last = nodes[parentNode].lastChild;
    if (last != kNoNode) {
      nodes[node].nextSibling = nodes[last].nextSibling;
      nodes[last].nextSibling = node;
    }
    nodes[parentNode].lastChild = node;
    if (nodes.size() * 4 > metabase_.slots_.size() * 3) growSlots();
    placeSlot(Slot{hash, node});
    return node;
  }

  void placeSlot(const Slot& entry) {
    std::vector<Slot>& slots = metabase_.slots_;
    const std::size_t mask = slots.size() - 1;
    std::size_t slot = entry.hash & mask;
    while (slots[slot].node != kNoNode) slot = (slot + 1) & mask;
    slots[slot] = entry;
  }

  void growSlots() {
    std::vector<Slot> old(metabase_.slots_.size() * 2, Slot{0, kNoNode});
    old.swap(metabase_.slots_);
    for (const Slot& entry : old) {
      if (entry.node != kNoNode) placeSlot(entry);
    }
  }

  void readValues(const pugi::xml_node& element, NodeId node) {
    for (auto attribute = element.first_attribute(); attribute; attribute = attribute.next_attribute()) {
      const std::string_view name = attribute.name();
      if (name == "Location") continue;
      addValue(makeKey(nameId(name)), attribute.value());
    }
    for (const pugi::xml_node& inner : element.children()) {
      if (localName(inner.name()) == "Custom") {
        readCustom(inner, node);
      } else {
        addStray(inner, "a node", node);
      }
    }
  }

  void addValue(std::uint32_t key, const char* text) {
    const auto length = static_cast<std::uint32_t>(std::char_traits<char>::length(text));
    if (const auto bits = flagBits(key, {text, length})) {
      metabase_.values_.push_back(Value{(key & ~kKeyTypeMask) | kKeyParsedFlags, *bits, offsetOf(text)});
    } else {
      metabase_.values_.push_back(Value{key, offsetOf(text), length});
    }
  }

  // The bits of a value of flags, parsed once for all reads. nullopt for any other value, and for an unknown
  // flag, which is reported when the value is read.
  static std::optional<std::uint32_t> flagBits(std::uint32_t key, std::string_view text) {
    const NameTable::Id id = keyProperty(key);
    if (id >= properties().size() || properties()[id].type != Type::kFlags) return std::nullopt;
    const std::optional<Type> type = keyType(key);
    if (type && *type != Type::kDword && *type != Type::kBool) return std::nullopt;
    std::optional<std::string_view> invalidPiece;
    const std::uint32_t bits = parseFlags(text, properties()[id].flags, invalidPiece);
    return invalidPiece ? std::nullopt : std::optional(bits);
  }

  NameTable::Id nameId(std::string_view name) {
    const NameTable::Id id = metabase_.names_.enter(name);
    if (id >= kMaxNames) {
      fail(number::kFileTooLarge, metabase_.file_ + ": too many different property names");
    }
    return id;
  }

  void readCustom(const pugi::xml_node& custom, NodeId node) {
    for (const pugi::xml_node& inner : custom.children()) addStray(inner, "a \"Custom\"", node);
    const auto id = customId(custom.attribute("Name").value(), custom.attribute("ID").value());
    if (!id) {
      addWarning(lineOf(custom), number::kBadElement,
                 "a \"Custom\" element has no Name, and its ID is missing or unknown", node);
      return;
    }
    const auto addUnknown = [&](const char* what, std::string_view text) {
      addWarning(lineOf(custom), number::kBadElement,
                 std::string("unknown ") + what + " " + quoteForMessage(text) + " in a \"Custom\" element",
                 node, metabase_.names_.text(*id));
    };
    std::uint32_t key = makeKey(*id);
    if (const std::string_view type = trimSpace(custom.attribute("Type").value()); !type.empty()) {
      key |= typeBits(typeByName(type));
      if (keyType(key) == Type::kUnknown) addUnknown("type", type);
    }
    std::optional<std::string_view> invalidPiece;
    const std::uint32_t bits = parseFlags(custom.attribute("Attributes").value(), kAttributes, invalidPiece);
    if (invalidPiece) addUnknown("attribute", *invalidPiece);
    if ((bits & kAttributeSecure) != 0) key |= kKeySecured;
    if ((bits & kAttributeInherit) != 0) {
      key |= kKeyInherits;
      metabase_.fileSaysInherit_ = true;
    }
    addValue(key, custom.attribute("Value").value());
  }

  // By its name, or by its ID if the server that wrote the file had no name for it.
  std::optional<NameTable::Id> customId(std::string_view name, std::string_view identifier) {
    if (name.empty() || equalFolded(name.substr(0, kUnknownNamePrefix.size()), kUnknownNamePrefix)) {
      const auto id = parseDword(identifier);
      const auto property = id ? propertyByIdentifier(*id) : std::nullopt;
      if (property || name.empty()) return property;
    }
    return nameId(name);
  }

  // Sorts the values of the node that was read last for binary search and keeps the first one of each
  // property.
  void sortValues(NodeId node, std::size_t line) {
    Node& owner = metabase_.nodes_[node];
    std::vector<Value>& values = metabase_.values_;
    const auto first = values.begin() + static_cast<std::ptrdiff_t>(owner.firstValue);
    std::stable_sort(first, values.end(),
                     [](const Value& a, const Value& b) { return keyProperty(a.key) < keyProperty(b.key); });
    auto end = first;
    for (auto value = first; value != values.end(); ++value) {
      if (end == first || keyProperty(std::prev(end)->key) != keyProperty(value->key)) {
        *end++ = *value;
        continue;
      }
      const std::uint32_t offset = keyIsParsedFlags(value->key) ? value->length : value->text;
      addWarning(std::max(line, lines_.lineAt(offset)), number::kDuplicateProperty,
                 "duplicate property: the first one is used", node,
                 metabase_.names_.text(keyProperty(value->key)));
    }
    values.erase(end, values.end());
    owner.valueCount = static_cast<std::uint32_t>(values.size() - owner.firstValue);
  }

  Metabase& metabase_;
  const LineIndex lines_;
  std::size_t furtherWarnings_ = 0;
  NameTable::Id unclassified_ = 0;
  PathCache<char> pathCache_;
};

std::shared_ptr<const Metabase> Metabase::parse(os::FileBytes bytes, std::string name) {
  if (bytes.size == 0) fail(number::kFileEmpty, name + ": the file is empty");
  convertToUtf8(bytes, name);
  if (bytes.size > os::kLargestFile) fail(number::kFileTooLarge, name + ": the file is larger than 2 GiB");
  const std::shared_ptr<Metabase> metabase(new Metabase(std::move(bytes.bytes), bytes.size, std::move(name)));
  Builder(*metabase).build();
  return metabase;
}

std::shared_ptr<const Metabase> Metabase::parse(std::string_view bytes, std::string name) {
  os::FileBytes copy{std::unique_ptr<char[]>(new char[bytes.size() + 1]), bytes.size(), {}};
  std::copy(bytes.begin(), bytes.end(), copy.bytes.get());
  return parse(std::move(copy), std::move(name));
}

std::shared_ptr<const Metabase> Metabase::load(const std::filesystem::path& path) {
  return parse(readFile(path), os::shownPath(path));
}

}  // namespace platform::metabase
