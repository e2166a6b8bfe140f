// What is known of metabase properties beforehand: type, whether a value is inherited, default value and
// identifier. From the vendor's pages "<Name> Metabase Property" and the property pages of the 6.0 software
// development kit, whose row "Schema Default" is the default here and whose table "Configurable Locations"
// tells the classes.
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
  kExpandString,  // text with environment variables, given unexpanded
  kMultiString,   // one value a line
  kDword,         // unsigned in the file, a signed 32-bit integer to a reader
  kBool,
  kFlags,       // names joined by "|", or a number; the names are Boolean properties
  kIpSecurity,  // an object
  kBinary,      // hexadecimal text, given as it stands
  kUnknown,     // a type that a file names and nobody knows
};

struct Flag {
  std::string_view name;
  std::uint32_t mask;
};

struct Property {
  std::string_view name;
  std::uint32_t identifier;  // 0 where none is documented
  Type type;
  bool inherits;
  bool secured;                 // encrypted in the file, never read
  const char* defaultText;      // as a file would write it; null where there is no default
  std::span<const Flag> flags;  // of a property of flags
  // The only known classes that have it, one bit for the place of each in `schemaClasses()`. 0 where any
  // class may have it, or where the pages don't tell for sure.
  std::uint32_t classes = 0;
};

// A flag as a Boolean property: a bit of the property of flags that it belongs to.
struct FlagProperty {
  std::uint32_t owner;  // the property's place in `properties()`
  std::uint32_t mask;
};

// All properties that the schema knows.
std::span<const Property> properties();

// All flags of these, in the order in which their names follow the properties' in `schemaNames()`.
std::span<const FlagProperty> flagProperties();

// The names of the properties, then of their flags. The number of a property's name is its place in
// `properties()`.
const NameTable& schemaNames();

// The names of the classes that are known, from "IIS ADSI Provider Reference". Neither IIsConfigObject, the
// class of what has none, nor a class that a file invents is among them.
const NameTable& schemaClasses();

// The property with an identifier, or nothing.
std::optional<NameTable::Id> propertyByIdentifier(std::uint32_t identifier);

// The type that a <Custom> element names. A name that is not known gives kUnknown.
Type typeByName(std::string_view name);

}  // namespace platform::metabase
