#include "tests/support/collection.h"

#include <algorithm>

#include "automation/object.h"
#include "automation/runtime.h"
#include "host/sections.h"
#include "inventory/tables.h"
#include "platform/desktop/desktop.h"
#include "platform/metabase/servers.h"
#include "platform/store/store.h"
#include "platform/wmi/wmi.h"
#include "server/portable/server.h"

namespace test {
namespace {

using automation::call;
using automation::ObjectRef;
using automation::Text;
using automation::TextView;
using sqlite::Database;

ObjectRef component(TextView programmaticId, const Text& logs, const Text& server) {
  ObjectRef object = automation::CreateObject(programmaticId);
  call(object, u"SetErrorLogPath", logs, logs + u"\\" + server + u".log");
  return object;
}

std::vector<Text> tabsOf(host::Side side) {
  std::vector<Text> tabs;
  for (const host::Section& section : host::sections()) {
    if (section.side == side && section.kind == host::Kind::kTab) {
      tabs.push_back(automation::fromUtf8(section.name));
    }
  }
  return tabs;
}

void collectTrees(const ObjectRef& ftp, const Text& server, const Text& database) {
  const ObjectRef service = automation::GetObject(u"IIS://" + server + u"/MSFTPSVC");
  const auto sites = automation::children(service);
  while (const ObjectRef site = sites->next()) {
    const Text id = automation::toText(automation::read(site, u"Name"));
    if (automation::equalsIgnoringCase(id, u"Info")) continue;
    const Text root = u"IIS://" + server + u"/MSFTPSVC/" + id + u"/ROOT";
    call(ftp, u"GetRootVirtualDirectory", server, id, root, database);
    std::vector<Text> waiting{root};
    while (!waiting.empty()) {
      const Text path = std::move(waiting.back());
      waiting.pop_back();
      if (path != root) call(ftp, u"GetChildVirtualDirectories", server, id, path, database);
      const auto directories = automation::children(automation::GetObject(path));
      while (const ObjectRef directory = directories->next()) {
        if (directory->children()->next() == nullptr) continue;
        waiting.push_back(path + u"/" + automation::toText(automation::read(directory, u"Name")));
      }
    }
  }
}

}  // namespace

void registerEverything() {
  platform::metabase::registerMoniker();
  platform::wmi::registerMoniker();
  platform::desktop::registerDesktop();
  platform::store::registerStore();
  DllRegisterServer();
}

void createTables(Database& database) {
  for (const inventory::Table& table : inventory::tables()) database.execute(inventory::creationSql(table));
}

void collectEverything(const std::string& serverName, const std::filesystem::path& databasePath,
                       const std::filesystem::path& logDirectory) {
  const Text server = automation::fromUtf8(serverName);
  const Text database = automation::fromUtf8(databasePath.string());
  const Text logs = automation::fromUtf8(logDirectory.string());

  const ObjectRef ftp = component(u"TORVINFTPAppDataCom.FTPCollection", logs, server);
  call(ftp, u"GenerateFTPSiteInfo", server, database);
  for (const Text& tab : tabsOf(host::Side::kFtp)) {
    call(ftp, u"GetFTPPropertyInfo", server, database, tab, false);
  }
  collectTrees(ftp, server, database);

  const ObjectRef pools = component(u"TORVINFTPAppDataCom.AppPoolCollection", logs, server);
  call(pools, u"GetAppPoolsCount", server, database);
  for (const Text& tab : tabsOf(host::Side::kPools)) {
    call(pools, u"GetAppPoolPropertyInfo", server, database, tab, false);
  }
  call(pools, u"GetWebServiceExtension", server, database);
  const auto walk = automation::children(automation::GetObject(u"IIS://" + server + u"/W3SVC/AppPools"));
  while (const ObjectRef pool = walk->next()) {
    call(pools, u"EnumAppsInPool", server, database, automation::read(pool, u"Name"));
  }
}

std::vector<std::string> everyRow(Database& database) {
  std::vector<std::string> all;
  for (const inventory::Table& table : inventory::tables()) {
    auto statement = database.prepare("select * from " + sqlite::quotedName(table.name));
    while (statement.step()) {
      std::string& row = all.emplace_back(std::string(table.name) + ": ");
      for (int column = 0; column < statement.columnCount(); ++column) {
        row.append(column == 0 ? "" : "|").append(statement.text(column).value_or("-"));
      }
    }
  }
  std::sort(all.begin(), all.end());
  return all;
}

std::vector<std::string> everyRow(const std::filesystem::path& path) {
  if (!std::filesystem::exists(path)) return {};
  Database database(path, Database::Mode::kReadOnly, std::chrono::hours(1));
  const sqlite::ReadTransaction transaction(database);
  const bool hasTables = database.value("select count(*) from sqlite_schema") != "0";
  return hasTables ? everyRow(database) : std::vector<std::string>();
}

std::vector<std::string> rowsOf(const std::string& server, const std::vector<std::string>& rows) {
  std::vector<std::string> own;
  std::copy_if(rows.begin(), rows.end(), std::back_inserter(own), [&](const std::string& row) {
    const std::string_view values = std::string_view(row).substr(row.find(": ") + 2);
    return values.starts_with(server + "|") || values.starts_with("IIS://" + server + "/");
  });
  return own;
}

}  // namespace test
