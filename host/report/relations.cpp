#include "host/report/relations.h"

#include "host/report/values.h"

namespace host::page {
namespace {

constexpr std::string_view kDash = " \u2013 ";

bool isShare(std::string_view path) {
  return path.starts_with("\\\\");
}

// Returns the drive or share that a path is on.
std::string rootOf(const std::string& path) {
  if (!isShare(path)) return path.substr(0, path.size() > 1 && path[1] == ':' ? 2 : path.size());
  const std::size_t server = path.find('\\', 2);
  return path.substr(0, server == path.npos ? path.npos : path.find('\\', server + 1));
}

}  // namespace

Drawing drawPools(const ServerData& server) {
  Drawing pools;
  forEachRow(server, kPools, [&](const DataRow& pool) {
    const std::size_t box = pools.addLeft(pool.text(kPoolName));
    if (!missingReason(server, kApplications, ObjectKind::kApplication, pool.objectId()).empty())
      pools.markUnknown(box);
  });
  forEachRow(server, kApplications, [&](const DataRow& row) {
    const std::string path = row.isUnknown(kApplicationPath) ? "" : row.text(kApplicationPath);
    std::string label = row.text(kApplicationName);
    if (!path.empty()) label.append(kDash).append(path);
    pools.connect(pools.addLeft(row.text(kApplicationPool)),
                  pools.addRight(label, isShare(path) ? "share" : ""));
  });
  return pools;
}

Drawing drawContent(const ServerData& server) {
  Drawing content;
  std::unordered_map<std::string, std::size_t> sites;
  forEachRow(server, kSites, [&](const DataRow& site) {
    const std::string id = site.text(kSiteIdentifier);
    sites[id] = content.addLeft(std::string(id).append(kDash).append(site.text(kSiteName)));
  });
  const auto connect = [&](ColumnRef identifier, ColumnRef pathColumn, ColumnRef write) {
    forEachRow(server, identifier.table, [&](const DataRow& row) {
      const auto site = sites.find(row.text(identifier));
      const std::string path = row.text(pathColumn);
      if (site == sites.end() || row.isUnknown(pathColumn) || path.empty()) return;
      const std::string root = rootOf(path);
      content.connect(site->second, content.addRight(root, isShare(root) ? "share" : ""),
                      !row.isUnknown(write) && row.text(write) == "Yes");
    });
  };
  connect(column("tblHomeDirectorySetting", "Identifier"), column("tblHomeDirectorySetting", "Path"),
          column("tblHomeDirectorySetting", "Write"));
  connect(kDirectorySite, kDirectoryPath, kDirectoryWrite);
  return content;
}

}  // namespace host::page
