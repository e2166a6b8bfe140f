// Renders the blocks of a report's page from their templates.
#pragma once

#include <cstddef>
#include <kainjow/mustache.hpp>
#include <string>
#include <string_view>

#include "inventory/server_data.h"

namespace host {

// A template with its values, which it escapes. `part` is one of host::parts.
std::string render(const char* part, const kainjow::mustache::data& values);

kainjow::mustache::data flag(bool is);

// A cell as it is shown: "not known" if it is unknown, "-" if nothing was written.
std::string shown(const inventory::DataRow& row, std::size_t column);
inline std::string shown(const inventory::DataRow& row, inventory::ColumnRef column) {
  return shown(row, column.column);
}

// Escapes a text for HTML that is written without a template.
std::string escaped(const std::string& text);

}  // namespace host
