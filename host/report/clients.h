// The clients that a site or directory admits by their addresses.
#pragma once

#include "host/report/values.h"

namespace host::page {

struct AccessColumns {
  ColumnRef all;
  ColumnRef granted;
  ColumnRef denied;
};

inline constexpr AccessColumns kSiteAccess = {
    column("tblDirectorySecuritySetting", "All computer access"),
    column("tblDirectorySecuritySetting", "Granted IP Address (Subnet mask)"),
    column("tblDirectorySecuritySetting", "Denied IP Address (Subnet mask)")};
inline constexpr AccessColumns kDirectoryAccess = {
    column("tblvirtualDirSecurity", "All computer access"),
    column("tblvirtualDirSecurity", "Granted IP Address (Subnet mask)"),
    column("tblvirtualDirSecurity", "Denied IP Address (Subnet mask)")};

// `rows`: all rows of one object, at least one.
Value allowedClients(const Rows& rows, const AccessColumns& columns);

}  // namespace host::page
