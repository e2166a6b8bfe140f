// Renders the blocks of a report's page from their templates.
#pragma once

#include <cstddef>
#include <kainjow/mustache.hpp>
#include <string>
#include <string_view>

#include "inventory/server_data.h"

namespace host {

// Renders a template with its values, which it escapes. `part`: one of host::parts.
std::string render(const char* part, const kainjow::mustache::data& values);

kainjow::mustache::data toFlag(bool value);

// Returns a cell's text for display: "not known" if it is unknown, "-" if no value was stored.
std::string cellText(const inventory::DataRow& row, std::size_t column);
inline std::string cellText(const inventory::DataRow& row, inventory::ColumnRef column) {
  return cellText(row, column.column);
}

}  // namespace host
