// All external objects of the component, set up for one test.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "automation/runtime.h"
#include "platform/store/private_database.h"
#include "tests/support/fakes.h"
#include "tests/support/folder.h"
#include "tests/support/journal.h"

namespace test {

// What serves the component's external calls: fakes of the metabase, or the platform layer with the sample
// server WEB01; with a private database that connections are redirected to, whose rows are buffered or
// written at once, or a database file.
enum class Layer { kFakes, kWaiting, kPrivate, kFile };

// Registers the objects in the process's runtime, with the journal between them and the component, and
// unregisters them in the destructor. Only one at a time.
class Environment {
 public:
  explicit Environment(Layer layer = Layer::kFakes);
  ~Environment();
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

  std::shared_ptr<Journal> journal = std::make_shared<Journal>();
  automation::Text server = u"WEB01";
  automation::Text database;

  // The fake node at a path relative to "IIS://WEB01/". Creates it and its parents if missing.
  FakeObject& node(automation::TextView path);
  // A site with a root, a directory or a pool, with all properties that the tabs read.
  FakeObject& site(automation::TextView id, automation::Variant comment);
  FakeObject& directory(automation::TextView path, automation::TextView localPath);
  FakeObject& pool(automation::TextView name);
  static automation::Variant ipSecurity(bool grantByDefault, const std::vector<automation::Text>& list);
  // The applications of a pool according to WMI.
  FakeObject& applications(automation::TextView poolName, automation::Variant paths);
  std::int16_t version = 6;

  // The rows of a table: the values of a row separated by "|", "-" for a column without a value.
  std::vector<std::string> rows(automation::TextView table) const;

  // The database of the layer: a connection of another process, or the private database itself.
  std::shared_ptr<sqlite::Database> openDatabase() const;
  void dropTable(const std::string& name);
  // The number of open connections to a private database.
  long openConnections() const;
  // Why the private database is unusable; empty if it is usable.
  std::string fatalError() const { return private_ ? private_->fatalError() : ""; }

  int pointer() const;
  std::vector<std::string> progress() const;

  // The logs, byte for byte except for "<time>" in place of the time of a record.
  std::string log() const;
  std::string appLog() const;

  // The log locations to pass to SetErrorLogPath.
  automation::Text appLogDirectory;
  automation::Text logFile;

  automation::ObjectRef status;
  automation::ObjectRef bar;
  automation::ObjectRef count;

 private:
  void setUpFakes();
  void setUpLayer();
  void setUpStore();
  void serve(automation::TextView prefix, automation::MonikerServer behind);
  void serveClass(automation::TextView id, automation::ClassServer behind);

  Layer layer_;
  bool hasDropped_ = false;
  Folder folder_;
  std::unique_ptr<platform::store::PrivateDatabase> private_;
  std::optional<platform::store::ConnectionRedirect> redirect_;
  FakeObject metabase_;
  FakeObject wmi_;
  FakeObject statusBar_;
  FakeObject progressBar_;
  FakeObject processCount_;
  automation::ObjectRef screen_;
};

// A log record. The number is in hexadecimal, without padding.
std::string record(const std::string& object, const std::string& function, const std::string& number,
                   const std::string& message);
std::size_t recordsIn(const std::string& log);
// The log record of an injected failure.
std::string injectedFailure(const std::string& object, const std::string& function);

}  // namespace test
