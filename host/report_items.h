// The blocks of a report's page about one site, one pool, and a server's extensions, in HTML.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/findings.h"
#include "host/report_book.h"
#include "inventory/records.h"

namespace host {

// The rules that hold for a thing.
using Marks = std::vector<const Rule*>;

// A site or pool with all its tabs. `row` is the one that lists it, `id` the block's anchor.
std::string siteBlock(Book& book, const std::string& server, const Cells& row, const std::string& id,
                      const Marks& marks);
std::string poolBlock(Book& book, const std::string& server, const Cells& row, const std::string& id,
                      const Marks& marks);

std::string extensionsTable(const std::vector<Cells>& rows);

}  // namespace host
