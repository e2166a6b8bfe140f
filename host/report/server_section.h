// The section of a server: its findings, drawings, sites, pools, extensions and problems.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/report/items.h"
#include "host/report/page.h"

namespace host::page {

struct SectionHead {
  std::string anchor, name;
  std::string rules;  // how many passed, failed and so on

  void visit(auto& add) const { add("anchor", anchor)("name", name)("rules", rules); }
};

// The heading of a list of sites or pools, or the whole list of extensions.
struct TableSection {
  std::string title;
  std::size_t count = 0;
  std::string missing;  // why there are none
  Table extensions;

  void visit(auto& add) const {
    add("title", title)("count", count)("missing", missing)("isEmpty", count == 0 && missing.empty())(
        "hasExtensions", !extensions.rows.empty())("extensions", extensions);
  }
};

// Writes the section. `findingsIndex`: of the server in the findings; nothing for a server that was collected
// again after the evaluation.
ServerSummary writeSection(const ServerData& server, Findings& findings,
                           std::optional<std::size_t> findingsIndex, const std::string& anchor,
                           StoredPart& output);

}  // namespace host::page
