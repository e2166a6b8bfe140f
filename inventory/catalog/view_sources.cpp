#include <fmt/core.h>

#include <algorithm>
#include <array>

#include "inventory/catalog/views.h"

namespace inventory {
namespace {

struct ViewKinds {
  std::string_view view;
  std::array<ObjectKind, 2> kinds;
};

constexpr ViewKinds kViews[] = {
    {"ftp_site", {ObjectKind::kSite}},
    {"ftp_directory", {ObjectKind::kDirectory}},
    {"ftp_access", {ObjectKind::kSite, ObjectKind::kDirectory}},
    {"app_pool", {ObjectKind::kPool}},
    {"web_extension", {ObjectKind::kExtension}},
    {"application", {ObjectKind::kApplication}},
};

// The view of addresses derives from the tables with this column and splits their other columns.
constexpr std::string_view kAccessColumn = "grants_others";

}  // namespace

std::vector<ViewSource> sourcesOf(std::string_view view, std::string_view column) {
  std::vector<ViewSource> sources;
  if (view == "ftp_access") column = kAccessColumn;
  for (const ViewKinds& each : kViews) {
    if (each.view != view) continue;
    for (const ObjectKind kind : each.kinds) {
      for (const Table& table : tables()) {
        if (kind == ObjectKind::kNone || !table.isAbout(kind)) continue;
        const bool hasColumn = std::ranges::any_of(table.columns, [&](const Column& of) {
          return of.viewName == column && of.role != Role::kIdentity &&
                 (of.onlyOf == ObjectKind::kNone || of.onlyOf == kind);
        });
        if (column.empty() || hasColumn) sources.push_back({&table, kind});
      }
    }
  }
  return sources;
}

std::string objectsQuery(const std::string& sql, const std::vector<std::string>& columns) {
  constexpr ColumnRef kName = column("tblFTPSiteInfo", "FTP site name");
  const Table& sites = tables()[kName.table];
  const auto column = [](const std::string& name) { return ", r." + quotedName(name); };
  return fmt::format(R"(select r.object_id, r.holds, o.kind, o.key, p.key, t.{}, o.line{} from ({}
) r left join objects o on o.collection_id = r.object_id / 4294967296 and o.number = r.object_id % 4294967296
left join objects p on p.collection_id = o.collection_id and p.number = o.parent
left join {} t on t.id = r.object_id where r.holds is not false)",
                     quotedName(sites.columns[kName.column].name), joined(columns, column, ""), sql,
                     quotedName(sites.name));
}

}  // namespace inventory
