// From the bytes of a file to a snapshot.
#include <algorithm>
#include <pugixml.hpp>
#include <utility>

#include "platform/metabase/failures.h"
#include "platform/metabase/metabase.h"
#include "platform/metabase/metabase_internal.h"
#include "platform/metabase/scan.h"
#include "platform/metabase/values.h"

namespace platform::metabase {
namespace {

constexpr std::string_view kUnclassified = "IIsConfigObject";
constexpr std::string_view kUnknownNamePrefix = "UnknownName_";

// The attributes of a value in a file, as numbers ("METADATA_RECORD").
constexpr std::uint32_t kAttributeInherit = 0x00000001;
constexpr std::uint32_t kAttributeSecure = 0x00000004;

// Line ends as XML has them, and references resolved; white space in values stays, for lines are values.
constexpr unsigned kParseOptions = pugi::parse_escapes | pugi::parse_eol;

// The name behind a namespace prefix.
std::string_view localName(const char* qualified) {
  const std::string_view whole = qualified;
  const std::size_t colon = whole.rfind(':');
  return colon == std::string_view::npos ? whole : whole.substr(colon + 1);
}

bool isText(const pugi::xml_node& node) {
  return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata;
}

}  // namespace

class Metabase::Builder {
 public:
  explicit Builder(Metabase& metabase) : metabase_(metabase) {}

  void build() {
    const std::string_view bytes(metabase_.bytes_.get(), metabase_.size_);
    const ScanResult scanned = scan(bytes, metabase_.file_);
    const LineIndex lines(bytes);
    lines_ = &lines;
    {
      pugi::xml_document document;
      const pugi::xml_parse_result parsed = document.load_buffer_inplace(
          metabase_.bytes_.get(), metabase_.size_, kParseOptions, pugi::encoding_utf8);
      if (!parsed || !scanned.unfinished.empty()) refuseBroken(parsed, scanned);
      readDocument(document);
    }
    // By now the document has given its memory back. Exact room is not worth a copy.
    if (metabase_.nodes_.capacity() / 4 > metabase_.nodes_.size() / 3) metabase_.nodes_.shrink_to_fit();
    if (metabase_.values_.capacity() / 4 > metabase_.values_.size() / 3) metabase_.values_.shrink_to_fit();
    lines_ = nullptr;
  }

 private:
  [[noreturn]] void refuse(std::int32_t failureNumber, std::size_t line, const std::string& what) const {
    fail(failureNumber, metabase_.file_ + ", line " + std::to_string(line) + ": " + what);
  }

  [[noreturn]] void refuseBroken(const pugi::xml_parse_result& parsed, const ScanResult& scanned) const {
    if (parsed.status == pugi::status_out_of_memory) throw std::bad_alloc();
    const std::size_t end = metabase_.size_;
    if (!scanned.unfinished.empty()) {
      refuse(number::kCutOff, lines_->lineAt(end),
             "the file is cut off in the middle of " + scanned.unfinished);
    }
    const auto at = static_cast<std::size_t>(std::max<std::ptrdiff_t>(parsed.offset, 0));
    if (parsed.status == pugi::status_no_document_element) {
      refuse(number::kNotXml, lines_->lineAt(end), "not XML: the file has no element");
    }
    refuse(number::kNotXml, lines_->lineAt(at), std::string("not XML: ") + parsed.description());
  }

  std::size_t lineOf(const pugi::xml_node& node) const {
    return lines_->lineAt(static_cast<std::size_t>(std::max<std::ptrdiff_t>(node.offset_debug(), 0)));
  }

  std::uint32_t offsetOf(const char* text) const {
    const char* const begin = metabase_.bytes_.get();
    const bool inside = text >= begin && text < begin + metabase_.size_;
    return inside ? static_cast<std::uint32_t>(text - begin) : 0;
  }

  void refuseText(const pugi::xml_node& node, const char* where) const {
    if (isText(node))
      refuse(number::kBadElement, lineOf(node), std::string("text between the elements of ") + where);
  }

  void readDocument(const pugi::xml_document& document) {
    const pugi::xml_node configuration = document.document_element();
    if (localName(configuration.name()) != "configuration") {
      refuse(number::kAnotherKind, lineOf(configuration),
             "not a metabase: the outermost element is " + inQuotes(configuration.name()) +
                 " and not \"configuration\"");
    }
    for (pugi::xml_node next = configuration.next_sibling(); next; next = next.next_sibling()) {
      refuse(number::kNotXml, lineOf(next), "not XML: something stands behind the outermost element");
    }
    bool found = false;
    for (const pugi::xml_node& part : configuration.children()) {
      refuseText(part, "<configuration>");
      if (localName(part.name()) != "MBProperty") continue;
      if (!found) begin(part);
      found = true;
      for (const pugi::xml_node& element : part.children()) readElement(element);
    }
    if (!found) {
      refuse(number::kAnotherKind, lineOf(configuration),
             "not a metabase: \"configuration\" has no element \"MBProperty\"");
    }
  }

  // Makes room for what is to come and enters the node at "/".
  void begin(const pugi::xml_node& part) {
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
    unclassified_ = metabase_.classes_.enter(kUnclassified);
    metabase_.nodes_.push_back(Node{kNoNode, kNoNode, kNoNode, 0, 0, 0, 0, unclassified_, 0});
  }

  void readElement(const pugi::xml_node& element) {
    refuseText(element, "<MBProperty>");
    if (element.type() != pugi::node_element) return;
    const std::size_t line = lineOf(element);
    const pugi::xml_attribute location = locationOf(element, line);
    const std::string_view place = location.value();
    // The one element that describes the file and no node ("IIS_Global").
    if (place == ".") return;
    const NodeId node = enterPath(place, offsetOf(location.value()), element, line);
    Node& entered = metabase_.nodes_[node];
    if (entered.line != 0) {
      refuse(number::kDuplicatePath, line,
             "the node " + inQuotes(place) + " stands twice, first on line " + std::to_string(entered.line));
    }
    entered.line = static_cast<std::uint32_t>(line);
    entered.classId = metabase_.classes_.enter(localName(element.name()));
    entered.firstValue = static_cast<std::uint32_t>(metabase_.values_.size());
    readValues(element, line);
    sortValues(node, line);
  }

  pugi::xml_attribute locationOf(const pugi::xml_node& element, std::size_t line) const {
    pugi::xml_attribute found;
    for (auto attribute = element.first_attribute(); attribute; attribute = attribute.next_attribute()) {
      if (std::string_view(attribute.name()) != "Location") continue;
      if (found) {
        refuse(number::kDuplicateProperty, line,
               "the attribute \"Location\" stands twice in " + inQuotes(element.name()));
      }
      found = attribute;
    }
    if (!found) {
      refuse(number::kBadElement, line, "the element " + inQuotes(element.name()) + " has no Location");
    }
    return found;
  }

  // The node at a path, with every node above it that is not there yet.
  NodeId enterPath(std::string_view place, std::uint32_t offset, const pugi::xml_node& element,
                   std::size_t line) {
    const auto refusePlace = [&](const char* why) {
      refuse(number::kBadLocation, line,
             "the Location " + inQuotes(place) + " of " + inQuotes(element.name()) + " " + why);
    };
    if (place.empty() || place.front() != '/') refusePlace("does not begin with \"/\"");
    if (place.size() == 1) return metabase_.root();
    // Elements that follow one another mostly share the front of their paths, which need not be looked up
    // again.
    const auto shared = static_cast<std::size_t>(
        std::mismatch(place.begin(), place.end(), lastPlace_.begin(), lastPlace_.end()).first -
        place.begin());
    const auto isBelow = [&](const Step& step) {
      return step.end <= shared && (step.end == place.size() || place[step.end] == '/');
    };
    while (!steps_.empty() && !isBelow(steps_.back())) steps_.pop_back();
    lastPlace_ = place;
    NodeId at = steps_.empty() ? metabase_.root() : steps_.back().node;
    for (std::size_t end = steps_.empty() ? 0 : steps_.back().end; end < place.size();) {
      const std::size_t start = end + 1;
      end = std::min(place.find('/', start), place.size());
      if (end == start) refusePlace("has an empty piece");
      const std::string_view piece = place.substr(start, end - start);
      const std::uint32_t hash = nodeHash(at, foldedHash(piece));
      const auto found = metabase_.findChild(at, piece, hash);
      at = found ? *found
                 : addNode(at, offset + static_cast<std::uint32_t>(start),
                           static_cast<std::uint32_t>(piece.size()), hash);
      steps_.push_back(Step{end, at});
    }
    return at;
  }

  NodeId addNode(NodeId parentNode, std::uint32_t nameOffset, std::uint32_t nameLength, std::uint32_t hash) {
    std::vector<Node>& nodes = metabase_.nodes_;
    if (nodes.size() >= kNoNode) fail(number::kFileTooLarge, metabase_.file_ + ": too many nodes");
    const auto node = static_cast<NodeId>(nodes.size());
    nodes.push_back(Node{parentNode, kNoNode, node, nameOffset, nameLength, 0, 0, unclassified_, 0});
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

  void readValues(const pugi::xml_node& element, std::size_t line) {
    for (auto attribute = element.first_attribute(); attribute; attribute = attribute.next_attribute()) {
      const std::string_view name = attribute.name();
      if (name == "Location") continue;
      addValue(makeKey(nameId(name, line)), attribute.value());
    }
    for (const pugi::xml_node& inner : element.children()) {
      refuseText(inner, "a node");
      if (inner.type() != pugi::node_element) continue;
      if (localName(inner.name()) != "Custom") {
        refuse(number::kBadElement, lineOf(inner),
               "the element " + inQuotes(inner.name()) + " inside a node, where only <Custom> stands");
      }
      readCustom(inner);
    }
  }

  void addValue(std::uint32_t key, const char* text) {
    const auto length = static_cast<std::uint32_t>(std::char_traits<char>::length(text));
    if (const auto bits = flagBits(key, {text, length})) {
      metabase_.values_.push_back(Value{(key & ~kKeyTypeMask) | kKeyParsedFlags, *bits, 0});
    } else {
      metabase_.values_.push_back(Value{key, offsetOf(text), length});
    }
  }

  // The bits of a value of flags, so that its twenty flags are not worked out at each read. Nothing for any
  // other value, and for one with a flag that is not known, which fails when it is read.
  static std::optional<std::uint32_t> flagBits(std::uint32_t key, std::string_view text) {
    const NameTable::Id id = keyProperty(key);
    if (id >= properties().size() || properties()[id].type != Type::kFlags) return std::nullopt;
    const std::optional<Type> type = keyType(key);
    if (type && *type != Type::kDword && *type != Type::kBool) return std::nullopt;
    std::string culprit;
    return parseFlags(text, properties()[id].flags, culprit);
  }

  NameTable::Id nameId(std::string_view name, std::size_t line) {
    const NameTable::Id id = metabase_.names_.enter(name);
    if (id >= kMostNames) refuse(number::kFileTooLarge, line, "too many different property names");
    return id;
  }

  void readCustom(const pugi::xml_node& custom) {
    std::string_view name;
    std::string_view identifier;
    std::string_view type;
    std::string_view attributes;
    const char* value = "";
    for (auto attribute = custom.first_attribute(); attribute; attribute = attribute.next_attribute()) {
      const std::string_view key = attribute.name();
      if (key == "Name") name = attribute.value();
      if (key == "ID") identifier = attribute.value();
      if (key == "Type") type = attribute.value();
      if (key == "Attributes") attributes = attribute.value();
      if (key == "Value") value = attribute.value();
    }
    const std::size_t line = lineOf(custom);
    std::uint32_t key = makeKey(customId(name, identifier, line));
    if (!type.empty()) key |= typeBits(typeByName(trimSpace(type)));
    key |= attributeBits(attributes, line);
    if (keyInherits(key)) metabase_.fileSaysInherit_ = true;
    addValue(key, value);
  }

  // By its name, or by its number where the file's writer knew no name.
  NameTable::Id customId(std::string_view name, std::string_view identifier, std::size_t line) {
    const bool named =
        !name.empty() && !equalFolded(name.substr(0, kUnknownNamePrefix.size()), kUnknownNamePrefix);
    if (named) return nameId(name, line);
    if (const auto id = parseDword(identifier)) {
      if (const auto property = propertyByIdentifier(*id)) return *property;
    }
    if (!name.empty()) return nameId(name, line);
    refuse(number::kBadElement, line, "a <Custom> without a Name, whose ID is missing or not known");
  }

  std::uint32_t attributeBits(std::string_view attributes, std::size_t line) const {
    static constexpr Flag kNames[] = {{"INHERIT", kAttributeInherit},
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
    std::string culprit;
    const auto bits = parseFlags(attributes, kNames, culprit);
    if (!bits)
      refuse(number::kBadElement, line, "the attribute " + inQuotes(culprit) + " of a <Custom> is not known");
    return ((*bits & kAttributeInherit) != 0 ? kKeyInherits : 0) |
           ((*bits & kAttributeSecure) != 0 ? kKeySecured : 0);
  }

  // Sorts the values of the node that was read last, so that each is found at once and a second one of the
  // same name shows.
  void sortValues(NodeId node, std::size_t line) {
    Node& owner = metabase_.nodes_[node];
    std::vector<Value>& values = metabase_.values_;
    owner.valueCount = static_cast<std::uint32_t>(values.size() - owner.firstValue);
    const auto first = values.begin() + static_cast<std::ptrdiff_t>(owner.firstValue);
    std::sort(first, values.end(), [](const Value& a, const Value& b) { return a.key < b.key; });
    const auto twice = std::adjacent_find(first, values.end(), [](const Value& a, const Value& b) {
      return keyProperty(a.key) == keyProperty(b.key);
    });
    if (twice != values.end()) {
      refuse(number::kDuplicateProperty, line,
             "the property " + inQuotes(metabase_.names_.text(keyProperty(twice->key))) +
                 " stands twice in the node " + inQuotes(metabase_.path(node)));
    }
  }

  // A piece of the last path: where it ends, and the node there.
  struct Step {
    std::size_t end;
    NodeId node;
  };

  Metabase& metabase_;
  const LineIndex* lines_ = nullptr;
  NameTable::Id unclassified_ = 0;
  std::string_view lastPlace_;
  std::vector<Step> steps_;
};

std::shared_ptr<const Metabase> Metabase::parse(FileBytes bytes, std::string name) {
  if (bytes.size == 0) fail(number::kFileEmpty, name + ": the file is empty");
  if (bytes.size > kLargestFile) fail(number::kFileTooLarge, name + ": the file is larger than 2 GiB");
  const std::shared_ptr<Metabase> metabase(new Metabase(std::move(bytes.bytes), bytes.size, std::move(name)));
  Builder(*metabase).build();
  return metabase;
}

std::shared_ptr<const Metabase> Metabase::parse(std::string_view bytes, std::string name) {
  FileBytes copy{std::unique_ptr<char[]>(new char[bytes.size() + 1]), bytes.size(), {}};
  std::copy(bytes.begin(), bytes.end(), copy.bytes.get());
  return parse(std::move(copy), std::move(name));
}

std::shared_ptr<const Metabase> Metabase::load(const std::filesystem::path& path) {
  return parse(readFile(path), path.string());
}

}  // namespace platform::metabase
