// The schema of the metabase: type, inheritance, default, identifier and classes of each property, from
// schema.tsv.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "platform/metabase/names.h"

namespace platform::metabase {

enum class Type : std::uint8_t {
  kString,
  kExpandString,  // text with environment variables, returned unexpanded
  kMultiString,   // one value per line
  kDword,         // unsigned in the file, read as a signed 32-bit integer
  kBool,
  kFlags,       // names joined by "|", or a number; the names are Boolean properties
  kIpSecurity,  // an object
  kBinary,      // hexadecimal text, returned unchanged
  kUnknown,     // the file names a type that is not supported
};

struct Flag {
  std::string_view name;
  std::uint32_t mask;
};

struct Property {
  std::string_view name;
  std::uint32_t identifier = 0;  // 0 if there is none
  Type type = Type::kUnknown;
  bool inherits = false;
  bool secured = false;                         // encrypted in the file, never read
  std::optional<std::string_view> defaultText;  // as a file would write it
  std::span<const Flag> flags;                  // of a property of type kFlags
  // The classes that have it, a bit for the id of each in `schemaClasses()`; 0 if any class may have it.
  std::uint64_t classes = 0;
};

// A flag, which can be read as a Boolean property: a bit of a property of type kFlags.
struct FlagProperty {
  std::uint32_t owner;  // index of the property in `properties()`
  std::uint32_t mask;
};

// All properties of the schema.
std::span<const Property> properties();

// All flags, in the order in which their names follow the properties' in `schemaNames()`.
std::span<const FlagProperty> flagProperties();

// The names of the properties, then those of the flags. The id of a property's name is its index in
// `properties()`.
const NameTable& schemaNames();

// The names of the classes that the schema names. IIsConfigObject, the class of a node that has none, is not
// among them.
const NameTable& schemaClasses();

// The property with an identifier, or nullopt.
std::optional<NameTable::Id> propertyByIdentifier(std::uint32_t identifier);

// The type named by a <Custom> element; kUnknown for an unknown name.
Type typeByName(std::string_view name);

}  // namespace platform::metabase
