#include "inventory/not_known.h"

#include <algorithm>
#include <utility>

#include "inventory/names.h"
#include "inventory/records.h"

namespace inventory {
namespace {

using namespace std::string_view_literals;

const MadeOf kMadeOf[] = {
    {"ServerComment", "", {"FTP site name"}},
    {"ServerComment", "tblAppliedObject", {"Object name"}},
    {"ServerBindings", "tblGeneral", {"IP Address", "TCP Port"}},
    {"ServerBindings", "tblAppliedObject", {"IP address", "TCP port"}},
    {"MaxConnections", "", {"Maximum Connections"}},
    {"ConnectionTimeout", "", {"Connection Timeout (seconds)"}},
    {"Status", "", {"State"}},
    {"AppPoolState", "", {"State"}},
    {"LogType", "", {"Enable Logging"}},
    // Everything behind the format depends on it.
    {"LogPluginClsid",
     "tblLogFileSetting",
     {"Active log format", "New Log Time Period", "Use local time for file naming and rollover",
      "Log file directory", "Log file name", "ODBC Data Source Name (DSN)", "ODBC User name",
      "ODBC Table name"}},
    {"LogFilePeriod", "", {"New Log Time Period", "Log file name"}},
    {"LogFileTruncateSize", "", {"New Log Time Period"}},
    {"LogFileLocaltimeRollover", "", {"Use local time for file naming and rollover"}},
    {"LogFileDirectory", "", {"Log file directory"}},
    {"LogOdbcDataSource", "", {"ODBC Data Source Name (DSN)"}},
    {"LogOdbcUserName", "", {"ODBC User name"}},
    {"LogOdbcTableName", "", {"ODBC Table name"}},
    {"LogExtFileDate", "", {"Date"}},
    {"LogExtFileTime", "", {"Time"}},
    {"LogExtFileClientIp", "", {"Client IP Address"}},
    {"LogExtFileUserName", "tblExtendedLogSetting", {"User Name"}},
    {"LogExtFileSiteName", "", {"Service Name"}},
    {"LogExtFileComputerName", "", {"Computer Name"}},
    {"LogExtFileServerIp", "", {"Server IP Address"}},
    {"LogExtFileServerPort", "", {"Server Port"}},
    {"LogExtFileMethod", "", {"Method"}},
    {"LogExtFileUriStem", "", {"URI Stem"}},
    {"LogExtFileUriQuery", "", {"URI Query"}},
    {"LogExtFileHttpStatus", "", {"Protocol Status"}},
    {"LogExtFileWin32Status", "", {"Win32 Status"}},
    {"LogExtFileBytesSent", "", {"Bytes Sent"}},
    {"LogExtFileBytesRecv", "", {"Bytes Received"}},
    {"LogExtFileTimeTaken", "", {"Time Taken"}},
    {"LogExtFileProtocolVersion", "", {"Protocol Version"}},
    {"LogExtFileHost", "", {"Host"}},
    {"LogExtFileUserAgent", "", {"User Agent"}},
    {"LogExtFileCookie", "", {"Cookie"}},
    {"LogExtFileReferer", "", {"Referer"}},
    {"AllowAnonymous", "", {"Allow Anonymous Connections"}},
    {"AnonymousUserName", "tblSecurityAccounts", {"User name"}},
    {"AnonymousOnly", "", {"Allow only anonymous connections"}},
    {"AnonymousPasswordSync", "", {"Allow IIS to control password"}},
    {"GreetingMessage", "", {"Welcome Message"}},
    {"ExitMessage", "", {"Exit Message"}},
    {"BannerMessage", "", {"Banner Message"}},
    {"MaxClientsMessage", "", {"Maximum connections message"}},
    {"Path", "", {"Content source", "Path"}},
    {"Path", "tblAppliedObject", {"Local path"}},
    {"AccessRead", "", {"Read"}},
    {"AccessWrite", "", {"Write"}},
    {"DontLog", "", {"Log visits"}},
    {"MsdosDirOutput", "", {"Directory Listing Style"}},
    {"IPSecurity",
     "",
     {"All computer access", "Granted IP Address (Subnet mask)", "Denied IP Address (Subnet mask)"}},
    {"PeriodicRestartTime", "", {"Recycle settings", "Recycle (in minutes)"}},
    {"PeriodicRestartRequests", "", {"Recycle request settings", "Number of recycle requests"}},
    {"PeriodicRestartSchedule", "", {"Recycle schedule settings", "Scheduled recycle at"}},
    {"PeriodicRestartMemory", "", {"Maximum virtual memory settings", "Maximum virtual memory (mb)"}},
    {"PeriodicRestartPrivateMemory", "", {"Maximum used memory settings", "Maximum used memory (mb)"}},
    {"IdleTimeout", "", {"Idle timeout settings", "Idle timeout (in minutes)"}},
    {"AppPoolQueueLength", "", {"Request queue limit settings", "Number of request queues"}},
    {"CPULimit", "", {"Enable CPU monitoring", "Maximum CPU use (percentage)"}},
    {"CPUResetInterval", "", {"Refresh CPU usage numbers (in minutes)"}},
    {"CPUAction", "", {"Action performed when CPU usage exceeds maximum CPU use"}},
    {"MaxProcesses", "", {"Maximum number of worker processes"}},
    {"PingingEnabled", "", {"Enable pinging"}},
    {"PingInterval", "", {"Ping worker process (frequency in seconds)"}},
    {"RapidFailProtection", "", {"Enable rapid-fail protection"}},
    {"RapidFailProtectionMaxCrashes", "", {"Rapid-fail protection failures"}},
    {"RapidFailProtectionInterval", "", {"Rapid-fail protection time period (in minutes)"}},
    {"StartupTimeLimit", "", {"Startup time limit (in seconds)"}},
    {"ShutdownTimeLimit", "", {"Shutdown time limit (in seconds)"}},
    {"AppPoolIdentityType", "", {"Application pool identity settings", "Security account"}},
    {"WAMUserName", "", {"Security account"}},
};

// What a row is about stands there whatever failed.
constexpr std::string_view kIdentity[] = {"Server name", "Identifier",     "Application pool name",
                                          "IISPath",     "Directory name", "Web service extension",
                                          "Object type"};
constexpr std::string_view kNameColumn = "FTP site name";
constexpr std::string_view kSites = "tblFTPSiteInfo";

constexpr std::string_view kApplications = "tblAppliedObject";
constexpr std::string_view kExtensions = "tblWSExtension";
constexpr std::string_view kGeneral = "tblGeneral";
constexpr std::string_view kLogFiles = "tblLogFileSetting";

bool isIdentity(const Table& table, std::string_view column) {
  if (column == kNameColumn) return table.name != kSites;
  return std::ranges::find(kIdentity, column) != std::end(kIdentity);
}

std::uint32_t bit(std::size_t column) {
  return std::uint32_t{1} << column;
}

std::string keyOf(std::string_view server, std::string_view table, std::string_view item) {
  std::string key = folded(server);
  key += '\0';
  key += table;
  key += '\0';
  key += folded(item);
  return key;
}

std::string textOf(Cell cell) {
  return std::string(cell.value_or(std::string_view()));
}

// "IIS://WEB01/MSFTPSVC/1/ROOT" is one of WEB01's.
std::string_view serverOf(std::string_view path) {
  constexpr std::string_view kStart = "IIS://";
  if (!path.starts_with(kStart)) return {};
  path.remove_prefix(kStart.size());
  return path.substr(0, path.find('/'));
}

// Whether a web application, as its row tells it, can be the one at a node. Only a directory has the node's
// name.
bool mayBeAt(const std::string& node, std::string_view type, std::string_view name) {
  constexpr std::string_view kBelow = "/w3svc/";
  const std::string path = folded(node);
  const std::size_t start = path.find(kBelow);
  if (start == path.npos) return true;
  const auto depth =
      std::count(path.begin() + static_cast<std::ptrdiff_t>(start + kBelow.size()), path.end(), '/');
  if (type == "Web site") return depth <= 1;
  return depth >= 2 && path.ends_with("/" + folded(name));
}

// Whether a log of this format has a column, as far as only some have it.
bool isOfFormat(std::string_view column, std::string_view format) {
  if (column.starts_with("ODBC")) return format == "ODBC Logging";
  if (column.starts_with("Use local time")) return format == "W3C Extended Log File Format";
  return format != "ODBC Logging";
}

}  // namespace

std::span<const MadeOf> madeOf() {
  return kMadeOf;
}

std::vector<std::string_view> columnsOf(const Table& table, std::string_view property) {
  std::vector<std::string_view> columns;
  for (const MadeOf& made : kMadeOf) {
    if (!sameName(made.property, property) || (!made.table.empty() && made.table != table.name)) continue;
    for (const std::string_view column : made.columns) {
      if (hasColumn(table, column)) columns.push_back(column);
    }
  }
  if (!columns.empty()) return columns;
  for (const std::string_view column : table.columns) {
    if (!isIdentity(table, column)) columns.push_back(column);
  }
  return columns;
}

void NotKnown::add(std::span<const Cell> row) {
  const auto at = [&](std::string_view column) {
    const std::size_t place = columnIndex(problemsTable(), column);
    return place < row.size() ? textOf(row[place]) : std::string();
  };
  const std::string table = at("Table");
  if (at("Kind") == "note" || table.empty()) return;
  const std::string kind = at("Item kind");
  Entry entry{kind == wordFor(ItemKind::kSite)   ? ItemKind::kSite
              : kind == wordFor(ItemKind::kPool) ? ItemKind::kPool
                                                 : ItemKind::kNone,
              at("Node"), at("Property"), at("Number"), at("Message")};
  problems_[keyOf(at(kServerColumn), table, at("Item"))].push_back(std::move(entry));
}

NotKnownCells NotKnown::of(std::size_t tablePlace, const CellOf& cell) const {
  NotKnownCells cells;
  if (problems_.empty()) return cells;
  const Table& table = tables()[tablePlace];
  const auto valueOf = [&](std::string_view column) {
    return hasColumn(table, column) ? textOf(cell(columnIndex(table, column))) : std::string();
  };
  const std::string path = valueOf(kPathColumn);
  const std::string server = path.empty() ? valueOf(kServerColumn) : std::string(serverOf(path));
  const std::string site = valueOf(kSiteColumn);
  const std::string item = site.empty() ? valueOf(kPoolColumn) : site;
  const ItemKind kind = site.empty() ? ItemKind::kPool : ItemKind::kSite;
  const auto concerns = [&](const Entry& entry) {
    if (entry.kind != ItemKind::kNone && entry.kind != kind && !item.empty()) return false;
    if (entry.node.empty()) return true;
    if (!path.empty()) return sameName(entry.node, path + "/" + valueOf("Directory name"));
    if (table.name != kApplications) return true;
    return mayBeAt(entry.node, valueOf("Object type"), valueOf("Object name"));
  };
  // A row of the table that two kinds share has half of its columns.
  const auto isOfKind = [&](std::string_view column) {
    if (table.name != kGeneral) return true;
    return kind == ItemKind::kSite ? column != kPoolColumn : column == "State";
  };
  const auto add = [&](std::string_view column) {
    if (isOfKind(column)) cells.columns |= bit(columnIndex(table, column));
  };
  const auto addEmpty = [&](const std::vector<std::string_view>& columns, bool isWritten) {
    for (const std::string_view column : columns) {
      const Cell value = cell(columnIndex(table, column));
      if (isWritten ? value.value_or("").empty() : !value) add(column);
    }
  };
  for (const std::string& about : {item, std::string()}) {
    const std::vector<Entry>* const entries = find(server, table.name, about);
    if (entries == nullptr) continue;
    for (const Entry& entry : *entries) {
      if (!concerns(entry)) continue;
      const std::uint32_t before = cells.columns;
      const std::vector<std::string_view> columns = columnsOf(table, entry.property);
      if (entry.number == kTooFewPieces && table.name == kExtensions) {
        addEmpty(columns, true);
      } else if (entry.number == kTooFewPieces && table.name == kApplications) {
        // The missing address shows as that of all addresses.
        if (valueOf("TCP port").empty())
          for (const std::string_view column : {"IP address"sv, "TCP port"sv}) add(column);
      } else {
        std::ranges::for_each(columns, add);
      }
      if (cells.columns != before &&
          std::ranges::find(cells.messages, entry.message) == cells.messages.end()) {
        cells.messages.push_back(entry.message);
      }
    }
    if (item.empty()) break;
  }
  // Nor is what the routine didn't come to any more.
  if (cells.columns != 0 && table.name != kExtensions && table.name != kApplications) {
    std::vector<std::string_view> columns = columnsOf(table, {});
    if (table.name == kLogFiles) {
      const std::string format = valueOf("Active log format");
      std::erase_if(columns, [&](std::string_view column) { return !isOfFormat(column, format); });
    }
    addEmpty(columns, false);
  }
  return cells;
}

std::vector<std::string> NotKnown::whyMissing(std::string_view server, std::string_view table,
                                              std::string_view item) const {
  std::vector<std::string> messages;
  for (const std::string_view about : {item, std::string_view()}) {
    const std::vector<Entry>* const entries = find(server, table, about);
    if (entries == nullptr) continue;
    for (const Entry& entry : *entries) {
      if (std::ranges::find(messages, entry.message) == messages.end()) messages.push_back(entry.message);
    }
  }
  return messages;
}

const std::vector<NotKnown::Entry>* NotKnown::find(std::string_view server, std::string_view table,
                                                   std::string_view item) const {
  const auto found = problems_.find(keyOf(server, table, item));
  return found == problems_.end() ? nullptr : &found->second;
}

NotKnown readNotKnown(Snapshot& snapshot, const std::vector<std::string>& servers) {
  NotKnown result;
  const std::vector<std::string> names = snapshot.tableNames();
  const std::string problems(kProblems);
  if (std::ranges::find(names, problems) == names.end()) return result;
  const auto rows = snapshot.rowsOf(problems, servers.empty() ? snapshot.servers() : servers);
  std::vector<Cell> cells(problemsTable().columns.size());
  while (rows->next()) {
    for (std::size_t at = 0; at < cells.size(); ++at) cells[at] = rows->cell(at);
    result.add(cells);
  }
  return result;
}

}  // namespace inventory
