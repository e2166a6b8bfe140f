#include "tests/support/collection.h"

#include <algorithm>

#include "automation/object.h"
#include "automation/runtime.h"
#include "host/tables.h"
#include "platform/host/host.h"
#include "platform/metabase/servers.h"
#include "platform/store/store.h"
#include "platform/wmi/wmi.h"
#include "server/portable/server.h"

namespace test {
namespace {

using automation::ObjectRef;
using automation::Text;
using automation::TextView;
using platform::store::Access;
using platform::store::Database;

// An object of the component whose calls are told of.
class Component {
 public:
  Component(TextView programmaticId, const std::function<void()>& finished)
      : object_(automation::CreateObject(programmaticId)), finished_(finished) {}

  template <typename... Values>
  void call(TextView method, Values&&... values) {
    automation::call(object_, method, std::forward<Values>(values)...);
    if (finished_) finished_();
  }

  void setLog(const Text& directory, const Text& file) {
    automation::call(object_, u"SetErrorLogPath", directory, file);
  }

 private:
  ObjectRef object_;
  const std::function<void()>& finished_;
};

void collectTrees(Component& ftp, const Text& server, const Text& database) {
  const ObjectRef service = automation::GetObject(u"IIS://" + server + u"/MSFTPSVC");
  const auto sites = automation::children(service);
  while (const ObjectRef site = sites->next()) {
    const Text id = automation::toText(automation::read(site, u"Name"));
    if (automation::equalsIgnoringCase(id, u"Info")) continue;
    const Text root = u"IIS://" + server + u"/MSFTPSVC/" + id + u"/ROOT";
    ftp.call(u"GetRootVirtualDirectory", server, id, root, database);
    std::vector<Text> waiting{root};
    while (!waiting.empty()) {
      const Text path = std::move(waiting.back());
      waiting.pop_back();
      if (path != root) ftp.call(u"GetChildVirtualDirectories", server, id, path, database);
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
  platform::host::registerHostObjects();
  platform::store::registerStore();
  DllRegisterServer();
}

void createDatabase(const std::filesystem::path& database) {
  std::filesystem::remove(database);
  Database created = Database::create(database);
  for (const host::Table& table : host::tables()) created.execute(host::creationSql(table));
}

void collectEverything(const std::string& serverName, const std::filesystem::path& databasePath,
                       const std::filesystem::path& logDirectory, const std::function<void()>& finished) {
  const Text server = automation::fromUtf8(serverName);
  const Text database = automation::fromUtf8(databasePath.string());
  const Text logs = automation::fromUtf8(logDirectory.string());

  Component ftp(u"TORVINFTPAppDataCom.FTPCollection", finished);
  ftp.setLog(logs, logs + u"\\" + server + u".log");
  ftp.call(u"GenerateFTPSiteInfo", server, database);
  for (const TextView tab : {u"General", u"Log File Settings", u"Extended Log Properties",
                             u"Security Accounts", u"Message", u"Home Directory", u"Directory Security"}) {
    ftp.call(u"GetFTPPropertyInfo", server, database, tab, false);
  }
  collectTrees(ftp, server, database);

  Component pools(u"TORVINFTPAppDataCom.AppPoolCollection", finished);
  pools.setLog(logs, logs + u"\\" + server + u".log");
  pools.call(u"GetAppPoolsCount", server, database);
  for (const TextView tab : {u"General", u"Worker Process Recycling", u"Memory Recycling", u"Performance",
                             u"Health", u"Identity"}) {
    pools.call(u"GetAppPoolPropertyInfo", server, database, tab, false);
  }
  pools.call(u"GetWebServiceExtension", server, database);
  const auto walk = automation::children(automation::GetObject(u"IIS://" + server + u"/W3SVC/AppPools"));
  while (const ObjectRef pool = walk->next()) {
    pools.call(u"EnumAppsInPool", server, database, automation::read(pool, u"Name"));
  }
  platform::store::releaseIdle();
}

std::vector<std::vector<std::string>> rowsOf(Database& database) {
  std::vector<std::vector<std::string>> all;
  for (const host::Table& table : host::tables()) {
    auto statement = database.prepare("select * from " + host::quotedName(table.name) + " order by rowid");
    all.emplace_back();
    while (statement.step()) {
      std::string& row = all.back().emplace_back();
      for (int column = 0; column < statement.columnCount(); ++column) {
        row += (column == 0 ? "" : "|") + statement.columnText(column).value_or("-");
      }
    }
  }
  return all;
}

std::vector<std::string> everyRow(const std::filesystem::path& path) {
  Database database = Database::openExisting(path, Access::kReadOnly);
  std::vector<std::string> all;
  auto table = host::tables().begin();
  for (const auto& rows : rowsOf(database)) {
    for (const std::string& row : rows) all.push_back(std::string(table->name) + ": " + row);
    ++table;
  }
  std::sort(all.begin(), all.end());
  return all;
}

}  // namespace test
