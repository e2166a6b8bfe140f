// The tables and columns that the report has its own places for, and the names that its files share.
#pragma once

#include <cstddef>
#include <vector>

#include "inventory/server_data.h"

namespace host::page {

using inventory::column;
using inventory::ColumnRef;
using inventory::DataRow;
using inventory::ObjectKind;
using inventory::ServerData;
using Rows = std::vector<DataRow>;

inline constexpr std::size_t kSites = inventory::table("tblFTPSiteInfo");
inline constexpr std::size_t kPools = inventory::table("tblAppPoolInfo");
inline constexpr std::size_t kExtensions = inventory::table("tblWSExtension");
inline constexpr std::size_t kApplications = inventory::table("tblAppliedObject");
inline constexpr std::size_t kDirectories = inventory::table("tblvirtualDirectory");
inline constexpr std::size_t kGeneral = inventory::table("tblGeneral");

inline constexpr ColumnRef kSiteIdentifier = column("tblFTPSiteInfo", "Identifier");
inline constexpr ColumnRef kSiteName = column("tblFTPSiteInfo", "FTP site name");
inline constexpr ColumnRef kPoolName = column("tblAppPoolInfo", "Application pool name");
inline constexpr ColumnRef kDirectorySite = column("tblvirtualDirectory", "Identifier");
inline constexpr ColumnRef kDirectoryPath = column("tblvirtualDirectory", "Path");
inline constexpr ColumnRef kDirectoryWrite = column("tblvirtualDirectory", "Write");
inline constexpr ColumnRef kApplicationPool = column("tblAppliedObject", "Application pool name");
inline constexpr ColumnRef kApplicationName = column("tblAppliedObject", "Object name");
inline constexpr ColumnRef kApplicationPath = column("tblAppliedObject", "Local path");

template <typename Each>
void forEachRow(const ServerData& server, std::size_t table, const Each& each) {
  for (std::size_t at = 0; at < server.rowCount(table); ++at) each(server.row(table, at));
}

}  // namespace host::page
