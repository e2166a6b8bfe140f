#include "inventory/tables.h"

#include <algorithm>

#include "sqlite/database.h"

namespace inventory {
namespace {

const std::vector<Table> kTables = {
    {"tblFTPSiteInfo", {"Server name", "FTP site name", "Identifier"}},
    // Rows of FTP sites and of application pools: only the former have an identifier, only the latter the
    // name of a pool.
    {"tblGeneral",
     {"Server name", "FTP site name", "Identifier", "IP Address", "TCP Port", "Maximum Connections",
      "Connection Timeout (seconds)", "State", "Application pool name"}},
    {"tblLogFileSetting",
     {"Server name", "FTP site name", "Identifier", "Enable Logging", "Active log format",
      "New Log Time Period", "Use local time for file naming and rollover", "Log file directory",
      "Log file name", "ODBC Data Source Name (DSN)", "ODBC User name", "ODBC Table name"}},
    {"tblExtendedLogSetting", {"Server name",   "FTP site name",     "Identifier",      "Date",
                               "Time",          "Client IP Address", "User Name",       "Service Name",
                               "Computer Name", "Server IP Address", "Server Port",     "Method",
                               "URI Stem",      "URI Query",         "Protocol Status", "Win32 Status",
                               "Bytes Sent",    "Bytes Received",    "Time Taken",      "Protocol Version",
                               "Host",          "User Agent",        "Cookie",          "Referer"}},
    {"tblSecurityAccounts",
     {"Server name", "FTP site name", "Identifier", "Allow Anonymous Connections", "User name",
      "Allow only anonymous connections", "Allow IIS to control password"}},
    {"tblMessageSetting",
     {"Server name", "FTP site name", "Identifier", "Welcome Message", "Exit Message", "Banner Message",
      "Maximum connections message"}},
    {"tblHomeDirectorySetting",
     {"Server name", "FTP site name", "Identifier", "Content source", "Path", "Read", "Write", "Log visits",
      "Directory Listing Style"}},
    {"tblDirectorySecuritySetting",
     {"Server name", "FTP site name", "Identifier", "All computer access", "Granted IP Address (Subnet mask)",
      "Denied IP Address (Subnet mask)"}},
    {"tblvirtualDirectory",
     {"IISPath", "Identifier", "Directory name", "Content source", "Path", "Read", "Write", "Log visits"}},
    {"tblvirtualDirSecurity",
     {"IISPath", "Directory name", "Identifier", "All computer access", "Granted IP Address (Subnet mask)",
      "Denied IP Address (Subnet mask)"}},
    {"tblAppPoolInfo", {"Server name", "Application pool name"}},
    {"tblWProcessRecycling",
     {"Server name", "Application pool name", "Recycle settings", "Recycle (in minutes)",
      "Recycle request settings", "Number of recycle requests", "Recycle schedule settings",
      "Scheduled recycle at"}},
    {"tblMemoryRecycling",
     {"Server name", "Application pool name", "Maximum virtual memory settings",
      "Maximum virtual memory (mb)", "Maximum used memory settings", "Maximum used memory (mb)"}},
    {"tblPerformance",
     {"Server name", "Application pool name", "Idle timeout settings", "Idle timeout (in minutes)",
      "Request queue limit settings", "Number of request queues", "Enable CPU monitoring",
      "Maximum CPU use (percentage)", "Refresh CPU usage numbers (in minutes)",
      "Action performed when CPU usage exceeds maximum CPU use", "Maximum number of worker processes"}},
    {"tblHealth",
     {"Server name", "Application pool name", "Enable pinging", "Ping worker process (frequency in seconds)",
      "Enable rapid-fail protection", "Rapid-fail protection failures",
      "Rapid-fail protection time period (in minutes)", "Startup time limit (in seconds)",
      "Shutdown time limit (in seconds)"}},
    {"tblIdentity",
     {"Server name", "Application pool name", "Application pool identity settings", "Security account"}},
    {"tblWSExtension",
     {"Server name", "Web service extension", "Description", "Status", "Required files path", "File access"}},
    {"tblAppliedObject",
     {"Server name", "Application pool name", "Object name", "Object type", "IP address", "TCP port", "State",
      "Local path"}},
};

}  // namespace

std::span<const Table> tables() {
  return kTables;
}

std::size_t tableIndex(std::string_view name) {
  const auto found =
      std::find_if(kTables.begin(), kTables.end(), [&](const Table& table) { return table.name == name; });
  return static_cast<std::size_t>(found - kTables.begin());
}

std::size_t columnIndex(const Table& table, std::string_view column) {
  return static_cast<std::size_t>(std::find(table.columns.begin(), table.columns.end(), column) -
                                  table.columns.begin());
}

bool hasColumn(const Table& table, std::string_view column) {
  return columnIndex(table, column) < table.columns.size();
}

std::string creationSql(const Table& table) {
  std::string sql = "create table if not exists " + sqlite::quotedName(table.name) + " (";
  for (const std::string_view column : table.columns) {
    if (column != table.columns.front()) sql += ", ";
    sql += sqlite::quotedName(column) + " text collate nocase";
  }
  return sql + ")";
}

}  // namespace inventory
