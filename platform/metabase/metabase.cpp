#include "platform/metabase/metabase.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <utility>

#include "platform/metabase/failures.h"
#include "platform/metabase/ip_security.h"
#include "platform/metabase/metabase_internal.h"
#include "platform/metabase/values.h"

namespace platform::metabase {
namespace {

using automation::TextView;
using automation::Variant;

thread_local Metabase::UnsetRead unsetRead;

// "ServerState": 2 is started, 4 is stopped. "AppPoolState" has the same two numbers.
constexpr std::int32_t kRunning = 2;
constexpr std::int32_t kStopped = 4;

// The properties of the server's or pool's state, which readState() derives.
struct StateProperties {
  NameTable::Id status;
  NameTable::Id serverState;
  NameTable::Id serverAutoStart;
  NameTable::Id appPoolState;
  NameTable::Id appPoolAutoStart;
};

const StateProperties& stateProperties() {
  static const StateProperties ids = [] {
    const auto id = [](std::string_view name) { return *schemaNames().find(name); };
    return StateProperties{id("Status"), id("ServerState"), id("ServerAutoStart"), id("AppPoolState"),
                           id("AppPoolAutoStart")};
  }();
  return ids;
}

// The longest value that is read, in bytes. The component copies a value dozens of times.
constexpr std::size_t kLongestValue = std::size_t{1} << 20;

std::uint64_t nextSerial() {
  static std::atomic<std::uint64_t> last = 0;
  return ++last;
}

// Whether a value of the file's type can be read as one of the schema's type.
bool isCompatible(Type schema, Type file) {
  switch (schema) {
    case Type::kBool:
    case Type::kDword:
    case Type::kFlags:
      return file == Type::kBool || file == Type::kDword;
    case Type::kString:
    case Type::kExpandString:
      return file == Type::kString || file == Type::kExpandString;
    case Type::kMultiString:
      return file == Type::kMultiString || file == Type::kString || file == Type::kExpandString;
    case Type::kIpSecurity:
      return file == Type::kIpSecurity || file == Type::kBinary || file == Type::kMultiString ||
             file == Type::kString;
    case Type::kBinary:
    case Type::kUnknown:
      return file == schema;
  }
  return false;
}

}  // namespace

Metabase::Metabase(std::unique_ptr<char[]> bytes, std::size_t size, std::string file)
    : bytes_(std::move(bytes)),
      size_(size),
      file_(std::move(file)),
      serial_(nextSerial()),
      names_(schemaNames()),
      classes_(schemaClasses()) {}

template <typename View>
std::optional<Metabase::NodeId> Metabase::findChild(NodeId parentNode, View childName,
                                                    std::uint32_t hash) const {
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t slot = hash & mask; slots_[slot].node != kNoNode; slot = (slot + 1) & mask) {
    if (slots_[slot].hash != hash) continue;
    const Node& candidate = nodes_[slots_[slot].node];
    if (candidate.parent == parentNode &&
        equalFolded(text(candidate.name, candidate.nameLength), childName)) {
      return slots_[slot].node;
    }
  }
  return std::nullopt;
}

template std::optional<Metabase::NodeId> Metabase::findChild(NodeId, std::string_view, std::uint32_t) const;

std::optional<Metabase::NodeId> Metabase::child(NodeId parentNode, TextView childName) const {
  return findChild(parentNode, childName, nodeHash(parentNode, foldedHash(childName)));
}

std::optional<Metabase::NodeId> Metabase::find(NodeId from, TextView pieces) const {
  if (pieces.empty()) return from;
  struct Last {
    std::uint64_t snapshot = 0;
    NodeId from = 0;
    PathCache<char16_t> pathCache;
  };
  static thread_local Last last;
  if (last.snapshot != serial_ || last.from != from) last = {serial_, from, {}};
  return last.pathCache.follow(from, pieces,
                               [this](NodeId at, TextView piece, std::size_t) { return child(at, piece); });
}

std::optional<Metabase::NodeId> Metabase::parent(NodeId node) const {
  return node == root() ? std::nullopt : std::optional(nodes_[node].parent);
}

std::optional<Metabase::NodeId> Metabase::firstChild(NodeId node) const {
  const NodeId last = nodes_[node].lastChild;
  return last == kNoNode ? std::nullopt : std::optional(nodes_[last].nextSibling);
}

std::optional<Metabase::NodeId> Metabase::nextSibling(NodeId node) const {
  if (node == root() || nodes_[nodes_[node].parent].lastChild == node) return std::nullopt;
  return nodes_[node].nextSibling;
}

std::string_view Metabase::name(NodeId node) const {
  return text(nodes_[node].name, nodes_[node].nameLength);
}

std::string Metabase::path(NodeId node) const {
  if (node == root()) return "/";
  std::size_t length = 0;
  for (NodeId at = node; at != root(); at = nodes_[at].parent) length += nodes_[at].nameLength + 1;
  std::string whole(length, '/');
  for (NodeId at = node; at != root(); at = nodes_[at].parent) {
    const std::string_view piece = name(at);
    length -= piece.size();
    std::copy(piece.begin(), piece.end(), whole.begin() + static_cast<std::ptrdiff_t>(length));
    --length;
  }
  return whole;
}

bool Metabase::isPartialExport() const {
  bool hasBelow = false;
  for (const TextView service : {u"LM/W3SVC", u"LM/MSFTPSVC"}) {
    const auto node = find(root(), service);
    if (node && line(*node) > 0) return false;
    hasBelow = hasBelow || node;
  }
  return hasBelow;
}

std::string_view Metabase::className(NodeId node) const {
  return classes_.text(nodes_[node].classId);
}

const Metabase::Value* Metabase::ownValue(NodeId node, PropertyId property) const {
  const Value* const first = values_.data() + nodes_[node].firstValue;
  const Value* const end = first + nodes_[node].valueCount;
  const Value* const found = std::lower_bound(
      first, end, property, [](const Value& value, PropertyId id) { return keyProperty(value.key) < id; });
  return found != end && keyProperty(found->key) == property ? found : nullptr;
}

// The node's own value, else that of the nearest ancestor whose value is inherited according to the schema or
// the file.
const Metabase::Value* Metabase::effectiveValue(NodeId node, PropertyId property) const {
  if (const Value* own = ownValue(node, property)) return own;
  const bool known = property < properties().size();
  if (known && !properties()[property].inherits && !fileSaysInherit_) return nullptr;
  const bool always = known && properties()[property].inherits;
  while ((node = nodes_[node].valueAncestor) != kNoNode) {
    const Value* const value = ownValue(node, property);
    if (value != nullptr && (always || keyInherits(value->key))) return value;
  }
  return nullptr;
}

// Most lookups repeat a few schema names, whose ids are the same in every snapshot, so the last id found for
// a cheap hash of the name is tried before the table.
std::optional<Metabase::PropertyId> Metabase::property(TextView name) const {
  if (name.empty()) return names_.find(name);
  thread_local std::array<PropertyId, 256> foundLast{};
  const std::size_t size = name.size();
  PropertyId& last =
      foundLast[(size * 29 + name[size / 2] * 7u + name[size / 4] * 3u + name[size - 1]) % foundLast.size()];
  if (equalFolded(names_.text(last), name)) return last;
  const auto found = names_.find(name);
  if (found && *found < schemaNames().size()) last = *found;
  return found;
}

std::optional<std::string_view> Metabase::ownText(NodeId node, PropertyId property) const {
  const Value* const value = ownValue(node, property);
  if (value == nullptr || keyIsParsedFlags(value->key)) return std::nullopt;
  return text(value->text, value->length);
}

Type Metabase::typeOf(const Value* value, PropertyId property) const {
  const std::optional<Type> file = value == nullptr ? std::nullopt : keyType(value->key);
  if (property >= properties().size()) return file.value_or(Type::kString);
  const Type schema = properties()[property].type;
  return file && !isCompatible(schema, *file) ? *file : schema;
}

std::string Metabase::address(NodeId node, TextView server) const {
  const std::string whole = path(node);
  const std::size_t below = std::min(whole.find('/', 1), whole.size());
  return "IIS://" + automation::toUtf8(server) + whole.substr(below);
}

std::string Metabase::location(NodeId node, TextView server, std::string_view property) const {
  std::string text = address(node, server);
  text.append(" (").append(className(node)).append(")");
  if (!property.empty()) text.append(", ").append(property);
  return toSingleLine(text);
}

std::string Metabase::describe(const ParseWarning& warning, TextView server) const {
  const std::string line = "line " + std::to_string(warning.line);
  if (!warning.node) return toSingleLine(file_) + ", " + line + ": " + warning.reason;
  return location(*warning.node, server, warning.property) + ": " + warning.reason + " (" + line + ")";
}

void Metabase::failRead(const Reading& reading, std::int32_t failureNumber, std::string_view why) const {
  fail(failureNumber,
       location(reading.node, reading.server, names_.text(reading.property)).append(": ").append(why));
}

void Metabase::failValue(const Reading& reading, std::string_view valueText, std::string_view why) const {
  std::string what = "the value " + quoteForMessage(valueText);
  NodeId valueAncestor = reading.node;
  while (valueAncestor != root() && ownValue(valueAncestor, reading.property) == nullptr)
    valueAncestor = nodes_[valueAncestor].parent;
  if (valueAncestor != reading.node) what += ", inherited from " + toSingleLine(path(valueAncestor)) + ",";
  failRead(reading, number::kWrongValue, what.append(" ").append(why));
}

// Whether the schema knows the node's class and the class does not have the property.
bool Metabase::isExcludedByClass(NodeId node, PropertyId property) const {
  const NameTable::Id classId = nodes_[node].classId;
  if (property >= properties().size() || classId >= schemaClasses().size()) return false;
  const std::uint64_t having = properties()[property].classes;
  return having != 0 && (having >> classId & 1) == 0;
}

// Whether the property is a text that is empty by default, which a node of no class is not taken to have.
bool Metabase::isEmptyTextOfNoClass(NodeId node, PropertyId property) const {
  if (property >= properties().size() || className(node) != kNoClass) return false;
  const Property& known = properties()[property];
  return known.defaultText == "" && (known.type == Type::kString || known.type == Type::kExpandString);
}

Variant Metabase::read(NodeId node, PropertyId property, TextView server) const {
  const Reading reading{node, property, server};
  const std::size_t known = properties().size();
  if (property >= known && property - known < flagProperties().size()) {
    return readFlag(reading, flagProperties()[property - known]);
  }
  const StateProperties& ids = stateProperties();
  if (property == ids.status || property == ids.serverState || property == ids.appPoolState) {
    return readState(reading);
  }
  const Value* const value = effectiveValue(node, property);
  if ((isExcludedByClass(node, property) && ownValue(node, property) == nullptr) ||
      (value == nullptr && isEmptyTextOfNoClass(node, property)))
    failRead(reading, number::kNotOfClass, "nodes of this class do not have the property");
  if ((property < known && properties()[property].secured) || (value != nullptr && keySecured(value->key))) {
    failRead(reading, number::kSecured, "the property is secured and cannot be read");
  }
  if (value != nullptr && keyIsParsedFlags(value->key)) return static_cast<std::int32_t>(value->text);
  const Type type = typeOf(value, property);
  if (value != nullptr) return convert(reading, type, text(value->text, value->length));
  if (property < known && properties()[property].defaultText) {
    return convert(reading, type, *properties()[property].defaultText);
  }
  if (type == Type::kMultiString) return automation::Array();
  if (type == Type::kIpSecurity) return makeIpSecurityObject({});
  unsetRead = {this, node, names_.text(property)};
  return automation::Null;
}

Metabase::UnsetRead Metabase::takeUnsetRead() {
  return std::exchange(unsetRead, {});
}

Variant Metabase::convert(const Reading& reading, Type type, std::string_view valueText) const {
  if (valueText.size() > kLongestValue) failValue(reading, valueText, "is longer than 1 MiB");
  switch (type) {
    case Type::kString:
    case Type::kExpandString:
    case Type::kBinary:
      return automation::fromUtf8(valueText);
    case Type::kMultiString:
      return parseMultiString(valueText);
    case Type::kDword:
      if (const auto whole = parseDword(valueText)) return static_cast<std::int32_t>(*whole);
      failValue(reading, valueText, "is not a number from 0 to 4294967295");
    case Type::kBool:
      if (const auto flag = parseBool(valueText)) return *flag;
      failValue(reading, valueText, "is neither TRUE nor FALSE");
    case Type::kFlags: {
      std::optional<std::string_view> invalidPiece;
      const std::uint32_t bits = parseFlags(valueText, properties()[reading.property].flags, invalidPiece);
      if (!invalidPiece) return static_cast<std::int32_t>(bits);
      failValue(reading, valueText,
                "contains " + quoteForMessage(*invalidPiece) + ", which is not a flag of the property");
    }
    case Type::kIpSecurity: {
      IpSecurityProblem problem;
      if (auto security = parseIpSecurity(valueText, problem))
        return makeIpSecurityObject(*std::move(security));
      failRead(reading, problem.failureNumber, problem.why);
    }
    case Type::kUnknown:
      break;
  }
  failValue(reading, valueText, "has an unknown type");
}

Variant Metabase::readFlag(const Reading& reading, const FlagProperty& flag) const {
  const Variant bits = read(reading.node, flag.owner, reading.server);
  const std::int32_t* const number = bits.as<std::int32_t>();
  if (number == nullptr) {
    failRead({reading.node, flag.owner, reading.server}, number::kWrongValue,
             "the value has a type without flags");
  }
  return (static_cast<std::uint32_t>(*number) & flag.mask) != 0;
}

Variant Metabase::readState(const Reading& reading) const {
  const StateProperties& ids = stateProperties();
  const bool pool = reading.property == ids.appPoolState;
  const PropertyId state = reading.property == ids.status ? ids.serverState : reading.property;
  for (const PropertyId held : {reading.property, state}) {
    if (const auto own = ownText(reading.node, held)) {
      return convert({reading.node, held, reading.server}, Type::kDword, *own);
    }
  }
  if (isExcludedByClass(reading.node, state))
    failRead(reading, number::kNotOfClass, "nodes of this class do not have the property");
  return automation::toBool(
             read(reading.node, pool ? ids.appPoolAutoStart : ids.serverAutoStart, reading.server))
             ? kRunning
             : kStopped;
}

}  // namespace platform::metabase
