// The settings of a site or pool, grouped by the tabs of its properties.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/report/columns.h"

namespace host::page {

struct Setting {
  std::string label;
  std::string value;
  std::string note = {};  // the default of a value that differs from it
  bool isUnknown = false;

  void visit(auto& add) const {
    add("label", label)("value", value)("note", note)("isUnknown", isUnknown)("isChanged", !note.empty());
  }
};

struct SettingGroup {
  std::string title;
  std::vector<Setting> settings;
  std::string missing;               // why there are none
  std::vector<std::string> reasons;  // why some are not known

  void visit(auto& add) const {
    add("title", title)("fields", settings)("missing", missing)("reasons", reasons);
  }
};

struct Tab {
  std::string_view title;
  std::size_t table;
};

std::vector<SettingGroup> settingGroups(const ServerData& server, std::span<const Tab> tabs, ObjectKind kind,
                                        std::int64_t object);

}  // namespace host::page
