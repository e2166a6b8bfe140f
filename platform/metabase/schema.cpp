#include "platform/metabase/schema.h"

#include <algorithm>
#include <stdexcept>
#include <unordered_map>
#include <vector>

#include "platform/metabase/values.h"

namespace platform::metabase {

// A row of schema.tsv as text.
struct SchemaRow {
  std::string_view name;
  std::string_view identifier;
  std::string_view type;
  std::string_view inherits;
  std::string_view secured;
  std::string_view defaultText;
  std::string_view classes;
};

struct FlagRow {
  std::string_view property;
  Flag flag;
};

}  // namespace platform::metabase

#include "platform/metabase/schema_data.h"

namespace platform::metabase {
namespace {

constexpr std::string_view kNone = "-";

struct Schema {
  std::vector<Property> properties;
  std::vector<Flag> flags;
  std::vector<FlagProperty> flagProperties;
  NameTable names;
  NameTable classes;
  std::unordered_map<std::uint32_t, NameTable::Id> byIdentifier;
};

Type schemaType(std::string_view name) {
  if (name == "NTACL") return Type::kBinary;
  if (name == "MIMEMAP") return Type::kMultiString;
  return typeByName(name);
}

std::uint64_t classBits(std::string_view list, NameTable& classes) {
  std::uint64_t bits = 0;
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(' '), list.size());
    const NameTable::Id id = classes.enter(list.substr(0, end));
    if (id >= 64) throw std::logic_error("the metabase schema has more than 64 classes");
    bits |= std::uint64_t{1} << id;
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return bits;
}

Property propertyOf(const SchemaRow& row, NameTable& classes) {
  Property property;
  property.name = row.name;
  property.identifier = parseDword(row.identifier).value_or(0);
  property.type = schemaType(row.type);
  property.inherits = row.inherits == "yes";
  property.secured = row.secured == "yes";
  if (row.defaultText != kNone) property.defaultText = row.defaultText;
  property.classes = classBits(row.classes, classes);
  return property;
}

void addFlags(Schema& schema) {
  for (const FlagRow& row : kFlagRows) schema.flags.push_back(row.flag);
  for (std::size_t at = 0; at < schema.flags.size(); ++at) {
    const NameTable::Id owner = schema.names.find(kFlagRows[at].property).value();
    Property& property = schema.properties[owner];
    // The flags of a property are adjacent.
    const std::size_t count = property.flags.size() + 1;
    property.flags = std::span(schema.flags).subspan(at + 1 - count, count);
    property.type = Type::kFlags;
    if (schema.names.enter(schema.flags[at].name) != schema.properties.size() + at)
      throw std::logic_error("a flag of the metabase schema has the name of a property or flag");
    schema.flagProperties.push_back({owner, schema.flags[at].mask});
  }
}

Schema buildSchema() {
  Schema schema;
  for (const std::string_view name : kClassNames) schema.classes.enter(name);
  for (const SchemaRow& row : kSchemaRows) {
    if (schema.names.enter(row.name) != schema.properties.size())
      throw std::logic_error("the metabase schema has a property twice");
    schema.properties.push_back(propertyOf(row, schema.classes));
  }
  for (NameTable::Id id = 0; id < schema.properties.size(); ++id) {
    if (schema.properties[id].identifier != 0)
      schema.byIdentifier.emplace(schema.properties[id].identifier, id);
  }
  addFlags(schema);
  return schema;
}

const Schema& schema() {
  static const Schema built = buildSchema();
  return built;
}

struct TypeName {
  std::string_view name;
  Type type;
};
constexpr TypeName kTypeNames[] = {
    {"STRING", Type::kString},
    {"EXPANDSZ", Type::kExpandString},
    {"MULTISZ", Type::kMultiString},
    {"DWORD", Type::kDword},
    {"BOOL", Type::kBool},
    {"BINARY", Type::kBinary},
    {"IPSECLIST", Type::kIpSecurity},
};

}  // namespace

std::span<const Property> properties() {
  return schema().properties;
}

std::span<const FlagProperty> flagProperties() {
  return schema().flagProperties;
}

const NameTable& schemaNames() {
  return schema().names;
}

const NameTable& schemaClasses() {
  return schema().classes;
}

std::optional<NameTable::Id> propertyByIdentifier(std::uint32_t identifier) {
  const auto found = schema().byIdentifier.find(identifier);
  return found == schema().byIdentifier.end() ? std::nullopt : std::optional(found->second);
}

Type typeByName(std::string_view name) {
  for (const TypeName& known : kTypeNames) {
    if (equalFolded(known.name, name)) return known.type;
  }
  return Type::kUnknown;
}

}  // namespace platform::metabase
