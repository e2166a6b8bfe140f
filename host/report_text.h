// How the blocks of a report's page are made from their templates.
#pragma once

#include <kainjow/mustache.hpp>
#include <string>
#include <string_view>

#include "host/report_book.h"

namespace host {

// A template with its values, which it escapes. `part` is one of host::parts.
std::string render(const char* part, const kainjow::mustache::data& values);

kainjow::mustache::data flag(bool is);

// A cell as it is shown: "not known", and "-" where nothing was written.
std::string shown(const Cells& row, std::string_view column);

// A text as it stands in HTML, where no template is in use.
std::string escaped(const std::string& text);

}  // namespace host
