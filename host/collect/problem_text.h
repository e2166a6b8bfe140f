// What the component's records mean for a reader. The component's own words follow in parentheses.
#pragma once

#include <string>
#include <string_view>

#include "host/collect/record_parser.h"

namespace host {

// Items that a routine counts in 16 bits.
struct CountedItems {
  std::string_view routine;
  std::string_view items;
  std::string_view consequence;
  std::string_view table;  // that lacks rows; empty if only the count is wrong
};

// The items that a record is about if it says that there are too many of them to count, else null.
const CountedItems* findCountOverflow(const Record& record);

std::string messageOf(const CountedItems& counted);

// Whether a record says that a value was used that is not set.
bool isAboutNull(const Record& record);

// A record's message. `property`: the one that it concerns; may be empty.
std::string messageOf(const Record& record, const std::string& property);

}  // namespace host
