// The one way in which names are compared: of servers, sites, pools, tabs and columns, in options, in files
// and in every kind of database.
#pragma once

#include <string>
#include <string_view>

namespace inventory {

// The name with its case folded by automation::toLower. Both are UTF-8.
std::string folded(std::string_view utf8);

bool sameName(std::string_view left, std::string_view right);

}  // namespace inventory
