#include "inventory/views.h"

#include <initializer_list>
#include <utility>

#include "inventory/names.h"
#include "inventory/not_known.h"
#include "inventory/records.h"
#include "inventory/tables.h"
#include "sqlite/database.h"

namespace inventory {
namespace {

using sqlite::quotedName;

enum class Type { kText, kNumber, kTruth, kTime };

// A column of a view, out of a column of a table.
struct ViewColumn {
  const char* name;
  const char* source;
  Type type = Type::kText;
};
using Columns = std::initializer_list<ViewColumn>;

class Maker {
 public:
  explicit Maker(const ViewLanguage& language) : language_(language) {}

  std::vector<View> all() const {
    return {{"ftp_site", ftpSite()},           {"ftp_directory", ftpDirectory()},
            {"ftp_access", ftpAccess()},       {"app_pool", appPool()},
            {"web_extension", webExtension()}, {"application", application()},
            {"collection", collection()},      {"problem", problem()}};
  }

 private:
  std::string ftpSite() const {
    Joined site(*this, "tblFTPSiteInfo", kSiteColumn, ItemKind::kSite);
    site.add(
        {{"server", "Server name"}, {"identifier", "Identifier", Type::kNumber}, {"name", "FTP site name"}});
    site.join("tblGeneral",
              {{"ip_address", "IP Address"},
               {"tcp_port", "TCP Port", Type::kNumber},
               {"maximum_connections", "Maximum Connections", Type::kNumber},
               {"connection_timeout_seconds", "Connection Timeout (seconds)", Type::kNumber},
               {"state", "State"}},
              quotedName(kPoolColumn) + " is null");
    site.join("tblHomeDirectorySetting", {{"content_source", "Content source"},
                                          {"path", "Path"},
                                          {"may_read", "Read", Type::kTruth},
                                          {"may_write", "Write", Type::kTruth},
                                          {"logs_visits", "Log visits", Type::kTruth},
                                          {"listing_style", "Directory Listing Style"}});
    site.join("tblSecurityAccounts", {{"allows_anonymous", "Allow Anonymous Connections", Type::kTruth},
                                      {"anonymous_user", "User name"},
                                      {"only_anonymous", "Allow only anonymous connections", Type::kTruth},
                                      {"controls_password", "Allow IIS to control password", Type::kTruth}});
    site.join("tblDirectorySecuritySetting", {}, "", {kGrantedColumn, kDeniedColumn});
    site.add(accessColumns("tblDirectorySecuritySetting"));
    site.join("tblMessageSetting", {{"welcome_message", "Welcome Message"},
                                    {"exit_message", "Exit Message"},
                                    {"banner_message", "Banner Message"},
                                    {"maximum_connections_message", "Maximum connections message"}});
    site.join("tblLogFileSetting",
              {{"logging", "Enable Logging", Type::kTruth},
               {"log_format", "Active log format"},
               {"log_period", "New Log Time Period"},
               {"log_local_time", "Use local time for file naming and rollover", Type::kTruth},
               {"log_directory", "Log file directory"},
               {"log_file", "Log file name"},
               {"odbc_source", "ODBC Data Source Name (DSN)"},
               {"odbc_user", "ODBC User name"},
               {"odbc_table", "ODBC Table name"}});
    site.join("tblExtendedLogSetting", {{"log_date", "Date", Type::kTruth},
                                        {"log_time", "Time", Type::kTruth},
                                        {"log_client_ip", "Client IP Address", Type::kTruth},
                                        {"log_user_name", "User Name", Type::kTruth},
                                        {"log_service_name", "Service Name", Type::kTruth},
                                        {"log_computer_name", "Computer Name", Type::kTruth},
                                        {"log_server_ip", "Server IP Address", Type::kTruth},
                                        {"log_server_port", "Server Port", Type::kTruth},
                                        {"log_method", "Method", Type::kTruth},
                                        {"log_uri_stem", "URI Stem", Type::kTruth},
                                        {"log_uri_query", "URI Query", Type::kTruth},
                                        {"log_protocol_status", "Protocol Status", Type::kTruth},
                                        {"log_win32_status", "Win32 Status", Type::kTruth},
                                        {"log_bytes_sent", "Bytes Sent", Type::kTruth},
                                        {"log_bytes_received", "Bytes Received", Type::kTruth},
                                        {"log_time_taken", "Time Taken", Type::kTruth},
                                        {"log_protocol_version", "Protocol Version", Type::kTruth},
                                        {"log_host", "Host", Type::kTruth},
                                        {"log_user_agent", "User Agent", Type::kTruth},
                                        {"log_cookie", "Cookie", Type::kTruth},
                                        {"log_referer", "Referer", Type::kTruth}});
    return site.select();
  }

  std::string ftpDirectory() const {
    Joined directory(*this, "tblvirtualDirectory", "Directory name", ItemKind::kSite);
    directory.add(pathColumns("tblvirtualDirectory"));
    directory.add({{"content_source", "Content source"},
                   {"path", "Path"},
                   {"may_read", "Read", Type::kTruth},
                   {"may_write", "Write", Type::kTruth},
                   {"logs_visits", "Log visits", Type::kTruth}});
    directory.join("tblvirtualDirSecurity", {}, "", {kGrantedColumn, kDeniedColumn});
    directory.add(accessColumns("tblvirtualDirSecurity"));
    return directory.select();
  }

  // A row for each address, and one for whoever has none.
  std::string ftpAccess() const {
    const auto addresses = [&](const std::string& head, const char* table) {
      const std::string granted = of(table, kGrantedColumn), denied = of(table, kDeniedColumn);
      const std::string entry = "coalesce(nullif(" + granted + ", ''), nullif(" + denied + ", ''))";
      const std::string bracket = position(entry, " (");
      const auto shown = [&](const char* column, const std::string& value, const char* name) {
        return ", " + known(table, column, value) + " as " + name;
      };
      return "select " + head + shown(kAllColumn, granting(of(table, kAllColumn)), "grants_others") +
             shown(kGrantedColumn,
                   "case when " + granted + " <> '' then true when " + denied + " <> '' then false end",
                   "is_granted") +
             shown(kGrantedColumn,
                   "case when " + bracket + " > 0 then substr(" + entry + ", 1, " + bracket + " - 1) else " +
                       entry + " end",
                   "address") +
             shown(kGrantedColumn,
                   "case when " + bracket + " > 0 then replace(substr(" + entry + ", " + bracket +
                       " + 2), ')', '') end",
                   "mask") +
             " from (select *" + unknownColumns(table, ItemKind::kSite) + " from " + language_.table(table) +
             " as here) as " + quotedName(table);
    };
    const char* const sites = "tblDirectorySecuritySetting";
    const std::string ofSite = text(of(sites, kServerColumn)) + " as server, " +
                               number(of(sites, kSiteColumn)) + " as site_identifier, " + nullText() +
                               " as parent, " + nullText() + " as name";
    std::string ofDirectory;
    for (const std::string& column : pathColumns("tblvirtualDirSecurity")) {
      ofDirectory += (ofDirectory.empty() ? "" : ", ") + column;
    }
    return addresses(ofSite, sites) + " union all " + addresses(ofDirectory, "tblvirtualDirSecurity");
  }

  std::string appPool() const {
    Joined pool(*this, "tblAppPoolInfo", kPoolColumn, ItemKind::kPool);
    pool.add({{"server", "Server name"}, {"name", "Application pool name"}});
    pool.join("tblGeneral", {{"state", "State"}}, quotedName(kPoolColumn) + " is not null");
    pool.join("tblIdentity",
              {{"identity", "Application pool identity settings"}, {"account", "Security account"}});
    pool.join("tblWProcessRecycling",
              {{"recycles_by_time", "Recycle settings", Type::kTruth},
               {"recycle_minutes", "Recycle (in minutes)", Type::kNumber},
               {"recycles_by_requests", "Recycle request settings", Type::kTruth},
               {"recycle_requests", "Number of recycle requests", Type::kNumber},
               {"recycles_by_schedule", "Recycle schedule settings", Type::kTruth}},
              "", {"Scheduled recycle at"});
    pool.add({known("tblWProcessRecycling", "Scheduled recycle at",
                    of("tblWProcessRecycling", "all Scheduled recycle at")) +
              " as recycle_times"});
    pool.join("tblMemoryRecycling",
              {{"limits_virtual_memory", "Maximum virtual memory settings", Type::kTruth},
               {"virtual_memory_mb", "Maximum virtual memory (mb)", Type::kNumber},
               {"limits_used_memory", "Maximum used memory settings", Type::kTruth},
               {"used_memory_mb", "Maximum used memory (mb)", Type::kNumber}});
    pool.join("tblPerformance",
              {{"ends_when_idle", "Idle timeout settings", Type::kTruth},
               {"idle_minutes", "Idle timeout (in minutes)", Type::kNumber},
               {"limits_requests", "Request queue limit settings", Type::kTruth},
               {"request_limit", "Number of request queues", Type::kNumber},
               {"monitors_cpu", "Enable CPU monitoring", Type::kTruth},
               {"cpu_percent", "Maximum CPU use (percentage)", Type::kNumber},
               {"cpu_refresh_minutes", "Refresh CPU usage numbers (in minutes)", Type::kNumber},
               {"cpu_action", "Action performed when CPU usage exceeds maximum CPU use"},
               {"worker_processes", "Maximum number of worker processes", Type::kNumber}});
    pool.join("tblHealth",
              {{"pinging", "Enable pinging", Type::kTruth},
               {"ping_seconds", "Ping worker process (frequency in seconds)", Type::kNumber},
               {"rapid_fail_protection", "Enable rapid-fail protection", Type::kTruth},
               {"rapid_fail_failures", "Rapid-fail protection failures", Type::kNumber},
               {"rapid_fail_minutes", "Rapid-fail protection time period (in minutes)", Type::kNumber},
               {"startup_seconds", "Startup time limit (in seconds)", Type::kNumber},
               {"shutdown_seconds", "Shutdown time limit (in seconds)", Type::kNumber}});
    return pool.select();
  }

  std::string webExtension() const {
    Joined extension(*this, "tblWSExtension", "Web service extension", ItemKind::kNone);
    extension.add({{"server", "Server name"},
                   {"name", "Web service extension"},
                   {"description", "Description"},
                   {"status", "Status"},
                   {"file", "Required files path"},
                   {"file_allowed", "File access", Type::kTruth}});
    return extension.select();
  }

  std::string application() const {
    Joined application(*this, "tblAppliedObject", "Object name", ItemKind::kPool);
    application.add({{"server", "Server name"},
                     {"pool", "Application pool name"},
                     {"name", "Object name"},
                     {"type", "Object type"},
                     {"ip_address", "IP address"},
                     {"tcp_port", "TCP port", Type::kNumber},
                     {"state", "State"},
                     {"path", "Local path"}});
    return application.select();
  }

  std::string collection() const {
    Joined collection(*this, "Collections", kServerColumn, ItemKind::kNone);
    collection.add({{"server", "Server name"}, {"file", "File"}});
    collection.add({of("Collections", "File size") + " as file_size"});
    collection.add({{"file_time", "File time", Type::kTime},
                    {"sha256", "SHA-256"},
                    {"started", "Started", Type::kTime},
                    {"published", "Published", Type::kTime},
                    {"version", "Version"},
                    {"selection", "Selection"}});
    for (const char* name : {"Rows", "Problems", "Notes", "Seconds"}) {
      const std::string column = of("Collections", name);
      collection.add(
          {column + " as " + quotedName(std::string(1, static_cast<char>(*name | 0x20)) + (name + 1))});
    }
    return collection.select();
  }

  std::string problem() const {
    Joined problem(*this, "Problems", kServerColumn, ItemKind::kNone);
    problem.add({{"server", "Server name"}});
    problem.add({"case " + of("Problems", "Kind") +
                 " when 'note' then true when 'problem' then false end as is_note"});
    problem.add({{"table_name", "Table"},
                 {"item_kind", "Item kind"},
                 {"item", "Item"},
                 {"node", "Node"},
                 {"property", "Property"},
                 {"routine", "Routine"},
                 {"number", "Number"},
                 {"message", "Message"},
                 {"time", "Time", Type::kTime}});
    return problem.select();
  }

  static constexpr const char* kUnknown = "not known";
  static constexpr const char* kApplications = "tblAppliedObject";
  static constexpr const char* kExtensions = "tblWSExtension";
  static constexpr const char* kAllColumn = "All computer access";
  static constexpr const char* kGrantedColumn = "Granted IP Address (Subnet mask)";
  static constexpr const char* kDeniedColumn = "Denied IP Address (Subnet mask)";

  // A table, and beside each of its rows the first row of other tables that is about the same. On SQLite that
  // takes names for one which differ in the case of ASCII letters: its views have no more to compare by.
  class Joined {
   public:
    Joined(const Maker& maker, const char* table, std::string_view key, ItemKind kind)
        : maker_(maker), table_(table), isByPath_(hasColumnOf(table, kPathColumn)), key_(key), kind_(kind) {
      const std::string unknown = maker.unknownColumns(table, kind);
      from_ =
          " from " +
          (unknown.empty() ? maker.language_.table(table)
                           : "(select *" + unknown + " from " + maker.language_.table(table) + " as here)") +
          " as " + quotedName(table);
    }

    void add(Columns columns) { add(table_, columns); }
    void add(const std::vector<std::string>& columns) {
      for (const std::string& column : columns) columns_ += (columns_.empty() ? "" : ", ") + column;
    }

    // Those of `lists` come as lists of all rows' values, each in a column named "all ...".
    void join(const char* table, Columns columns, const std::string& condition = "",
              std::initializer_list<const char*> lists = {}) {
      std::vector<std::string> keys{key_};
      if (isByPath_) keys.insert(keys.begin(), std::string(kPathColumn));
      if (maker_.language_.isPostgres) {
        keys.insert(keys.begin(), "server_id");
      } else if (!isByPath_) {
        keys.insert(keys.begin(), std::string(kServerColumn));
      }
      std::string list, on;
      for (const std::string& key : keys) {
        list += (list.empty() ? "" : ", ") + quotedName(key);
        on += (on.empty() ? " on " : " and ") + of(table, key) + " = " + of(table_, key);
      }
      from_ += " left join (" + maker_.firstRows(table, kind_, list, condition, lists) + ") as " +
               quotedName(table) + on;
      add(table, columns);
    }

    std::string select() const { return "select " + columns_ + from_; }

   private:
    void add(const char* table, Columns columns) {
      for (const ViewColumn& column : columns) {
        add({maker_.known(table, column.source, maker_.typed(of(table, column.source), column.type)) +
             " as " + quotedName(column.name)});
      }
    }

    const Maker& maker_;
    const char* const table_;
    const bool isByPath_;
    const std::string key_;
    const ItemKind kind_;
    std::string columns_;
    std::string from_;
  };

  static bool hasColumnOf(std::string_view table, std::string_view column) {
    const std::size_t at = tableIndex(table);
    return at < tables().size() && hasColumn(tables()[at], column);
  }

  static std::string of(std::string_view table, std::string_view column) {
    return quotedName(table) + "." + quotedName(column);
  }

  // ", ... as "not known"": the columns of each row that aren't known, each between bars. Empty for a table
  // that no problem is about.
  std::string unknownColumns(std::string_view name, ItemKind kind) const {
    const std::size_t at = tableIndex(name);
    if (at == tables().size()) return "";
    const Table& table = tables()[at];
    const auto row = [](std::string_view column) { return of("here", column); };
    const auto problem = [](std::string_view column) { return of("problem", column); };
    const bool isByPath = hasColumn(table, kPathColumn);
    const std::string server = isByPath ? serverIn(row(kPathColumn)) : row(kServerColumn);
    std::string where = language_.isPostgres ? problem("server_id") + " = " + row("server_id")
                                             : problem(kServerColumn) + " = " + server + " collate nocase";
    where +=
        " and " + problem("Table") + " = '" + std::string(name) + "' and " + problem("Kind") + " = 'problem'";
    if (kind != ItemKind::kNone) {
      where += " and " + problem("Item") + " in ('', " +
               row(kind == ItemKind::kSite ? kSiteColumn : kPoolColumn) + ") and (" + problem("Item") +
               " = '' or " + problem("Item kind") + " = '" + std::string(wordFor(kind)) + "')";
    }
    const std::string node = "lower(" + problem("Node") + ")";
    if (isByPath) {
      where += " and (" + node + " = '' or " + node + " = lower(" + row(kPathColumn) + " || '/' || " +
               row("Directory name") + "))";
    } else if (name == kApplications) {
      where += " and (" + mayBeApplication(node, row("Object type"), row("Object name")) + ")";
    }
    std::string cases;
    if (name == kApplications) {
      // The missing address shows as that of all addresses.
      cases += " when " + problem("Number") + " = '" + std::string(kTooFewPieces) + "' then case when " +
               row("TCP port") + " = '' then " + list({"IP address", "TCP port"}) + " else '' end";
    } else if (name == kExtensions) {
      cases += " when " + problem("Number") + " = '" + std::string(kTooFewPieces) + "' then ''";
    }
    std::vector<std::string> done;
    for (const MadeOf& made : madeOf()) {
      if (!made.table.empty() && made.table != name) continue;
      if (std::none_of(made.columns.begin(), made.columns.end(),
                       [&](std::string_view column) { return hasColumn(table, column); }) ||
          std::find(done.begin(), done.end(), made.property) != done.end()) {
        continue;
      }
      done.emplace_back(made.property);
      cases += " when lower(" + problem("Property") + ") = '" + folded(made.property) + "' then " +
               list(columnsOf(table, made.property));
    }
    const std::string whole = list(columnsOf(table, ""));
    const std::string columns = cases.empty() ? whole : "case" + cases + " else " + whole + " end";
    return ", (select " +
           (language_.isPostgres ? "string_agg(" + columns + ", '')" : "group_concat(" + columns + ", '')") +
           " from " + language_.table(kProblems) + " as problem where " + where + ") as " +
           quotedName(kUnknown);
  }

  // Whether a row can be the web application at a node, in small letters. Only a directory has its name.
  std::string mayBeApplication(const std::string& node, const std::string& type,
                               const std::string& name) const {
    const std::string below = "substr(" + node + ", " + position(node, "/w3svc/") + " + 7)";
    const std::string depth = "length(" + below + ") - length(replace(" + below + ", '/', ''))";
    const std::string end = "substr(" + node + ", length(" + node + ") - length(" + name + "))";
    return position(node, "/w3svc/") + " = 0 or case " + type + " when 'Web site' then " + depth +
           " <= 1 else " + depth + " >= 2 and " + end + " = '/' || lower(" + name + ") end";
  }

  static std::string list(const std::vector<std::string_view>& columns) {
    std::string text = "|";
    for (const std::string_view column : columns) text += std::string(column) + "|";
    return "'" + text + "'";
  }

  // Null where a column isn't known.
  std::string known(std::string_view table, std::string_view column, const std::string& value) const {
    const std::size_t at = tableIndex(table);
    if (at == tables().size()) return value;
    const std::vector<std::string_view> columns = columnsOf(tables()[at], "");
    if (std::find(columns.begin(), columns.end(), column) == columns.end()) return value;
    return "case when " + position(of(table, kUnknown), "|" + std::string(column) + "|") +
           " > 0 then null else " + value + " end";
  }

  std::string firstRows(const char* table, ItemKind kind, const std::string& keys,
                        const std::string& condition, std::initializer_list<const char*> lists) const {
    const std::string name = language_.table(table) + " as here",
                      where = condition.empty() ? "" : " where " + condition;
    std::string all = unknownColumns(table, kind);
    for (const char* column : lists) {
      const std::string value = "nullif(" + quotedName(column) + ", '')";
      all += (language_.isPostgres ? ", string_agg(" + value + ", ', ') over same"
                                   : ", group_concat(" + value + ", ', ')") +
             " as " + quotedName("all " + std::string(column));
    }
    if (language_.isPostgres) {
      return "select distinct on (" + keys + ") *" + all + " from " + name + where +
             " window same as (partition by " + keys +
             " order by row_order rows between unbounded preceding and unbounded following) order by " +
             keys + ", row_order";
    }
    // The other columns are those of the row with the least number ("Bare columns in an aggregate query").
    return "select *, min(row_order)" + all + " from (select rowid as row_order, * from " + name + where +
           " order by rowid) as here group by " + keys;
  }

  std::vector<std::string> pathColumns(const char* table) const {
    const std::string path = of(table, kPathColumn);
    return {text(serverIn(path)) + " as server", number(of(table, kSiteColumn)) + " as site_identifier",
            text(path) + " as parent", text(of(table, "Directory name")) + " as name"};
  }

  std::string serverIn(const std::string& path) const {
    return language_.isPostgres ? "split_part(" + path + ", '/', 3)"
                                : "substr(" + path + ", 7, instr(substr(" + path + ", 7), '/') - 1)";
  }

  std::vector<std::string> accessColumns(const char* table) const {
    const auto all = [&](const char* column) {
      return known(table, column, of(table, "all " + std::string(column)));
    };
    return {known(table, kAllColumn, granting(of(table, kAllColumn))) + " as grants_others",
            all(kGrantedColumn) + " as granted_addresses", all(kDeniedColumn) + " as denied_addresses"};
  }

  static std::string granting(const std::string& value) {
    return "case " + value + " when 'Granted' then true when 'Denied' then false end";
  }

  std::string position(const std::string& value, const std::string& what) const {
    return language_.isPostgres ? "strpos(" + value + ", '" + what + "')"
                                : "instr(" + value + ", '" + what + "')";
  }

  std::string nullText() const { return language_.isPostgres ? "null::text" : "null"; }

  static std::string text(const std::string& value) { return "nullif(" + value + ", '')"; }

  std::string number(const std::string& value) const {
    if (language_.isPostgres) {
      return "case when " + value + " ~ '^-?[0-9]{1,18}$' then " + value + "::bigint end";
    }
    const std::string digits = "ltrim(" + value + ", '-')";
    return "case when " + digits + " <> '' and length(" + digits + ") <= 18 and length(" + value +
           ") - length(" + digits + ") <= 1 and " + digits + " not glob '*[^0-9]*' then cast(" + value +
           " as integer) end";
  }

  std::string typed(const std::string& value, Type type) const {
    switch (type) {
      case Type::kText:
        break;
      case Type::kNumber:
        return number(value);
      case Type::kTruth:
        return "case when " + value + " in ('Yes', 'True', 'Enabled', 'Allowed') then true when " + value +
               " in ('No', 'False', 'Disabled', 'Prohibited') then false end";
      case Type::kTime:
        return language_.isPostgres
                   ? "case when " + value + " ~ '^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:.]{12}Z$' then " + value +
                         "::timestamptz end"
                   : "case when " + value + " glob '[0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9]T*Z' then " +
                         value + " end";
    }
    return text(value);
  }

  const ViewLanguage& language_;
};

}  // namespace

std::vector<View> views(const ViewLanguage& language) {
  return Maker(language).all();
}

}  // namespace inventory
